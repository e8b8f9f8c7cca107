// The baselines of the bus figures: a raw line echo on a Unix socket and a
// WebSocket echo on TCP, served by asio threads as the bus is, and blocking
// clients that send one request text and read one answer, the same for an
// echo and for a real endpoint. Each client belongs to one thread.
#pragma once

#include <benchmark/benchmark.h>

#include <boost/asio.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/websocket.hpp>

#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace VelmoraBench {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace websocket = beast::websocket;
using tcp = asio::ip::tcp;
using Local = asio::local::stream_protocol;

// Raw line echo on a Unix socket and WebSocket echo on TCP, asio threads as the bus uses.
class RawEcho {
public:
    explicit RawEcho(std::string const& unixPath)
        : unixAcceptor(io, Local::endpoint(unixPath)), tcpAcceptor(io, {asio::ip::make_address("127.0.0.1"), 0})
    {
        acceptUnix();
        acceptWeb();
        for (int i = 0; i < 4; ++i)
            threads.emplace_back([this] { io.run(); });
    }
    ~RawEcho()
    {
        io.stop();
        for (auto& thread : threads)
            thread.join();
    }
    unsigned short port() const { return tcpAcceptor.local_endpoint().port(); }

private:
    struct LineSession : std::enable_shared_from_this<LineSession> {
        explicit LineSession(Local::socket socket) : socket(std::move(socket)) {}
        void read()
        {
            asio::async_read_until(socket, buffer, '\n', [self = shared_from_this()](auto error, std::size_t n) {
                if (error)
                    return;
                self->line.assign(asio::buffers_begin(self->buffer.data()), asio::buffers_begin(self->buffer.data()) + n);
                self->buffer.consume(n);
                asio::async_write(self->socket, asio::buffer(self->line), [self](auto writeError, std::size_t) {
                    if (!writeError)
                        self->read();
                });
            });
        }
        Local::socket socket;
        asio::streambuf buffer;
        std::string line;
    };
    struct WebSession : std::enable_shared_from_this<WebSession> {
        explicit WebSession(tcp::socket socket) : ws(std::move(socket)) {}
        void start()
        {
            ws.async_accept([self = shared_from_this()](auto error) {
                if (!error)
                    self->read();
            });
        }
        void read()
        {
            ws.async_read(buffer, [self = shared_from_this()](auto error, std::size_t) {
                if (error)
                    return;
                self->ws.text(true);
                self->ws.async_write(self->buffer.data(), [self](auto writeError, std::size_t) {
                    self->buffer.consume(self->buffer.size());
                    if (!writeError)
                        self->read();
                });
            });
        }
        websocket::stream<beast::tcp_stream> ws;
        beast::flat_buffer buffer;
    };
    void acceptUnix()
    {
        unixAcceptor.async_accept(asio::make_strand(io), [this](auto error, Local::socket socket) {
            if (!error)
                std::make_shared<LineSession>(std::move(socket))->read();
            acceptUnix();
        });
    }
    void acceptWeb()
    {
        tcpAcceptor.async_accept(asio::make_strand(io), [this](auto error, tcp::socket socket) {
            if (!error)
                std::make_shared<WebSession>(std::move(socket))->start();
            acceptWeb();
        });
    }
    asio::io_context io;
    Local::acceptor unixAcceptor;
    tcp::acceptor tcpAcceptor;
    std::vector<std::thread> threads;
};

// A blocking line client: the same for the echo and for the bus.
class LineClient {
public:
    LineClient(std::string const& path, std::string request) : request(std::move(request) + "\n"), socket(io)
    {
        socket.connect(Local::endpoint(path));
    }
    void roundTrip()
    {
        asio::write(socket, asio::buffer(request));
        std::size_t const n = asio::read_until(socket, buffer, '\n');
        buffer.consume(n);
    }

private:
    std::string const request;
    asio::io_context io;
    Local::socket socket;
    asio::streambuf buffer;
};

class WebClient {
public:
    WebClient(unsigned short port, std::string request) : request(std::move(request)), ws(io)
    {
        ws.next_layer().connect({asio::ip::make_address("127.0.0.1"), port});
        ws.handshake("127.0.0.1", "/");
        ws.text(true);
    }
    void roundTrip()
    {
        ws.write(asio::buffer(request));
        ws.read(buffer);
        buffer.consume(buffer.size());
    }

private:
    std::string const request;
    asio::io_context io;
    websocket::stream<tcp::socket> ws;
    beast::flat_buffer buffer;
};

template <class Client, class... Args>
void runRoundTrips(benchmark::State& state, Args&&... args)
{
    Client client(std::forward<Args>(args)...);
    for (auto _ : state)
        client.roundTrip();
}

} // namespace VelmoraBench
