#include "rpc/WebEndpoint.h"

#include "frame/DebugPrint.h"
#include "frame/Exception.h"
#include "rpc/RPCAcceptor.h"

#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <optional>
#include <regex>
#include <sstream>

namespace Velmora {

static char const MODULE[] = "WebEndpoint";

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
using tcp = asio::ip::tcp;

namespace {

// One WebSocket peer; all stream work runs on the stream's strand.
class WebSocketConnection : public RPCConnection {
public:
    WebSocketConnection(IHandler& handler, std::shared_ptr<RPCIoContext::Impl> loop, beast::tcp_stream stream)
        : RPCConnection(handler), loop(std::move(loop)), opener(handler), socket(std::move(stream))
    {
        socket.read_message_max(MAX_MESSAGE_SIZE);
        // A time limit on the handshake only: a quiet page is not a dead one
        // (a dead peer shows on write, a slow one hits MAX_PENDING_OUTPUT), and
        // an idle limit would re-arm a timer for every message.
        auto limits = websocket::stream_base::timeout::suggested(beast::role_type::server);
        limits.idle_timeout = websocket::stream_base::none();
        socket.set_option(limits);
    }

    void accept(http::request<http::string_body> request)
    {
        auto held = std::make_shared<http::request<http::string_body>>(std::move(request));
        socket.async_accept(*held, [self = shared(), held](beast::error_code error) { self->onAccepted(error); });
    }

    void close() override
    {
        asio::dispatch(socket.get_executor(), [self = shared()] { self->shutdown(); });
    }

protected:
    void write(std::string text) override
    {
        asio::dispatch(socket.get_executor(),
                       [self = shared(), text = std::move(text)]() mutable { self->enqueue(std::move(text)); });
    }

    void runDetached(std::function<void()> job) override { loop->workers->post(std::move(job)); }

private:
    std::shared_ptr<WebSocketConnection> shared()
    {
        return std::static_pointer_cast<WebSocketConnection>(shared_from_this());
    }

    void onAccepted(beast::error_code error)
    {
        if (error || !handlerAccepts())
            return shutdown();
        socket.text(true);
        readNext();
    }

    bool handlerAccepts();

    void readNext()
    {
        socket.async_read(input, [self = shared()](beast::error_code error, std::size_t) { self->onRead(error); });
    }

    void onRead(beast::error_code error)
    {
        if (error)
            return shutdown();
        std::string const text = beast::buffers_to_string(input.data());
        input.consume(input.size());
        receive(text);
        readNext();
    }

    void enqueue(std::string text)
    {
        if (!open)
            return;
        if (pendingBytes + text.size() > MAX_PENDING_OUTPUT) {
            VLOG(DebugLevelWarning, "enqueue(): peer reads too slowly, closing\n");
            return shutdown();
        }
        pendingBytes += text.size();
        output.push_back(std::move(text));
        if (output.size() == 1)
            writeNext();
    }

    void writeNext()
    {
        socket.async_write(asio::buffer(output.front()),
                           [self = shared()](beast::error_code error, std::size_t) { self->onWritten(error); });
    }

    void onWritten(beast::error_code error)
    {
        if (error)
            return shutdown();
        if (!open)
            return; // closed while the write was in flight
        pendingBytes -= output.front().size();
        output.pop_front();
        if (!output.empty())
            writeNext();
    }

    void shutdown()
    {
        if (open) {
            open = false;
            beast::error_code ignored;
            beast::get_lowest_layer(socket).socket().shutdown(tcp::socket::shutdown_both, ignored);
            beast::get_lowest_layer(socket).socket().close(ignored);
        }
        // The queue stays until the connection goes: a write in flight may still point into it.
        closed();
    }

    std::shared_ptr<RPCIoContext::Impl> loop; // first: outlives the stream
    IHandler& opener;
    websocket::stream<beast::tcp_stream> socket;
    beast::flat_buffer input;
    std::deque<std::string> output;
    std::size_t pendingBytes = 0;
    bool open = true;
};

bool WebSocketConnection::handlerAccepts() { return opener.handleOpened(shared_from_this()); }

// One HTTP peer until it upgrades or hangs up: each POST body is one request.
class HttpSession : public std::enable_shared_from_this<HttpSession> {
public:
    HttpSession(std::shared_ptr<RPCIoContext::Impl> loop, tcp::socket socket, RPCConnection::IHandler& handler,
                WebEndpoint::PayloadHandler payload, std::shared_ptr<std::vector<std::string> const> allowedOrigins)
        : loop(std::move(loop)), stream(std::move(socket)), handler(handler), payload(std::move(payload)),
          allowedOrigins(std::move(allowedOrigins))
    {
    }

    void readNext()
    {
        parser.emplace();
        parser->body_limit(RPCConnection::MAX_MESSAGE_SIZE);
        stream.expires_after(std::chrono::seconds(30));
        http::async_read(stream, buffer, *parser,
                         [self = shared_from_this()](beast::error_code error, std::size_t) { self->onRead(error); });
    }

private:
    void onRead(beast::error_code error)
    {
        if (error == http::error::body_limit)
            return respond(http::status::payload_too_large, "{\"error\":{\"code\":-32600,\"message\":\"Message too large\"},\"id\":null,\"jsonrpc\":\"2.0\"}", false);
        if (error)
            return hangUp();
        http::request<http::string_body> request = parser->release();
        if (std::string const origin(request[http::field::origin]);
            !WebEndpoint::isOriginAllowed(origin, *allowedOrigins)) {
            VLOG(DebugLevelWarning, "onRead(): refusing a request from the origin %s\n", origin.c_str());
            return respond(http::status::forbidden, "", false);
        }
        if (websocket::is_upgrade(request))
            return upgrade(std::move(request));
        if (request.method() != http::verb::post)
            return respond(http::status::method_not_allowed, "", request.keep_alive());
        // The method may block: answer it on a handler thread.
        loop->workers->post([self = shared_from_this(), request = std::move(request)]() mutable {
            std::string reply = self->payload(request.body());
            asio::dispatch(self->stream.get_executor(), [self, reply = std::move(reply), keep = request.keep_alive()] {
                self->respond(reply.empty() ? http::status::no_content : http::status::ok, reply, keep);
            });
        });
    }

    void upgrade(http::request<http::string_body> request)
    {
        stream.expires_never();
        auto connection = std::make_shared<WebSocketConnection>(handler, loop, std::move(stream));
        connection->accept(std::move(request));
    }

    void respond(http::status status, std::string body, bool keepAlive)
    {
        auto response = std::make_shared<http::response<http::string_body>>(status, 11);
        response->set(http::field::content_type, "application/json");
        response->keep_alive(keepAlive);
        response->body() = std::move(body);
        response->prepare_payload();
        http::async_write(stream, *response,
                          [self = shared_from_this(), response, keepAlive](beast::error_code error, std::size_t) {
                              if (error || !keepAlive)
                                  return self->hangUp();
                              self->readNext();
                          });
    }

    void hangUp()
    {
        beast::error_code ignored;
        stream.socket().shutdown(tcp::socket::shutdown_both, ignored);
        stream.close();
    }

    std::shared_ptr<RPCIoContext::Impl> loop; // first: outlives the stream
    beast::tcp_stream stream;
    beast::flat_buffer buffer;
    std::optional<http::request_parser<http::string_body>> parser;
    RPCConnection::IHandler& handler;
    WebEndpoint::PayloadHandler payload;
    std::shared_ptr<std::vector<std::string> const> allowedOrigins;
};

std::vector<std::string> readAllowedOrigins()
{
    std::vector<std::string> origins;
    char const* const text = std::getenv("VELMORA_ALLOWED_ORIGINS");
    std::istringstream list(text ? text : "");
    for (std::string origin; std::getline(list, origin, ',');)
        if (!origin.empty())
            origins.push_back(origin);
    return origins;
}

} // namespace

bool WebEndpoint::isOriginAllowed(std::string const& origin, std::vector<std::string> const& allowed)
{
    static std::regex const loopback(R"(https?://(127\.0\.0\.1|localhost|\[::1\])(:[0-9]{1,5})?)",
                                     std::regex::icase);
    return origin.empty() || origin == "null" || origin == "file://" || std::regex_match(origin, loopback) ||
           std::find(allowed.begin(), allowed.end(), origin) != allowed.end();
}

std::shared_ptr<RPCListener> WebEndpoint::listen(RPCIoContext& context, std::string const& host, unsigned short port,
                                                 RPCConnection::IHandler& handler, PayloadHandler payload)
{
    std::shared_ptr<RPCIoContext::Impl> loop = context.impl();
    auto const allowed = std::make_shared<std::vector<std::string> const>(readAllowedOrigins());
    auto listener = std::make_shared<RPCAcceptor<tcp>>(loop, [loop, &handler, payload, allowed](tcp::socket socket) {
        // A reply and the notifications after it are small writes in a row:
        // with Nagle's algorithm each would wait for the peer's delayed ACK.
        beast::error_code ignored;
        socket.set_option(tcp::no_delay(true), ignored);
        std::make_shared<HttpSession>(loop, std::move(socket), handler, payload, allowed)->readNext();
    });
    try {
        listener->open(tcp::endpoint(asio::ip::make_address(host), port));
    } catch (boost::system::system_error const& e) {
        VLOG(DebugLevelError, "listen(): %s:%u: %s\n", host.c_str(), static_cast<unsigned int>(port), e.what());
        throwException(MODULE, __LINE__, "listen", ReturnGenericFailure);
    }
    VLOG(DebugLevelInfo, "listen(): serving WebSocket and HTTP on %s:%u\n", host.c_str(),
         static_cast<unsigned int>(listener->getPort()));
    return listener;
}

} // namespace Velmora
