#include "rpc/UnixEndpoint.h"

#include "frame/DebugPrint.h"
#include "frame/Exception.h"
#include "rpc/RPCAcceptor.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <mutex>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace Velmora {

static char const MODULE[] = "UnixEndpoint";

namespace asio = boost::asio;
using Protocol = asio::local::stream_protocol;

namespace {

// One line-framed connection. Reading and closing run on the connection's
// strand. A message is sent at once by the thread that writes it when nothing
// is queued before it (no hand-off); what the socket cannot take at once is
// queued and written by the strand. The output lock orders those writes and
// keeps the descriptor from being closed under a sender.
class UnixLineConnection : public RPCConnection {
public:
    UnixLineConnection(IHandler& handler, std::shared_ptr<RPCIoContext::Impl> loop, Protocol::socket socket)
        : RPCConnection(handler), loop(std::move(loop)), socket(std::move(socket)),
          descriptor(this->socket.native_handle()), strand(this->socket.get_executor()), input(MAX_MESSAGE_SIZE + 1)
    {
    }

    void start()
    {
        asio::dispatch(strand, [self = shared()] { self->readNext(); });
    }

    void close() override
    {
        asio::dispatch(strand, [self = shared()] { self->shutdown(); });
    }

    void closeAfterOutput() override
    {
        asio::dispatch(strand, [self = shared()] { self->shutdownAfterOutput(); });
    }

protected:
    // One message a line: a line break in a JSON text can only stand between
    // its tokens (a forwarded text as its sender wrote it), where a space
    // means the same.
    void write(std::string text) override
    {
        std::replace_if(text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
        text.push_back('\n');
        send(std::move(text));
    }

    void runDetached(std::function<void()> job) override { loop->workers->post(std::move(job)); }

    void closeTransportStopped() override { closeSocket(); }

private:
    std::shared_ptr<UnixLineConnection> shared()
    {
        return std::static_pointer_cast<UnixLineConnection>(shared_from_this());
    }

    void readNext()
    {
        asio::async_read_until(socket, input, '\n',
                               asio::bind_executor(strand, [self = shared()](boost::system::error_code error,
                                                                             std::size_t length) {
                                   self->onRead(error, length);
                               }));
    }

    void onRead(boost::system::error_code error, std::size_t length)
    {
        if (error == asio::error::not_found)
            return rejectOversized();
        if (error)
            return shutdown();
        std::string line(asio::buffers_begin(input.data()), asio::buffers_begin(input.data()) + length - 1);
        input.consume(length);
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (!line.empty())
            receive(line);
        readNext();
    }

    // A line without end within the limit: answer once, then hang up, since
    // the stream cannot be resynchronised.
    void rejectOversized()
    {
        VLOG(DebugLevelWarning, "onRead(): message over %zu bytes, closing\n", MAX_MESSAGE_SIZE);
        send("{\"error\":{\"code\":-32600,\"message\":\"Message too large\"},\"id\":null,\"jsonrpc\":\"2.0\"}\n");
        shutdownAfterOutput();
    }

    // On the strand: hangs up now, or once the queued output is written.
    void shutdownAfterOutput()
    {
        std::unique_lock lock(outputMutex);
        if (!output.empty()) {
            closeAfterWrite = true;
            return;
        }
        lock.unlock();
        shutdown();
    }

    // Any thread.
    void send(std::string text)
    {
        std::unique_lock lock(outputMutex);
        if (writesClosed)
            return;
        if (output.empty()) {
            ssize_t const sent = ::send(descriptor, text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
            if (sent == static_cast<ssize_t>(text.size()))
                return;
            if (sent < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) {
                lock.unlock();
                return hangUpLater();
            }
            text.erase(0, sent > 0 ? static_cast<std::size_t>(sent) : 0);
        }
        if (pendingBytes + text.size() > MAX_PENDING_OUTPUT) {
            lock.unlock();
            VLOG(DebugLevelWarning, "send(): peer reads too slowly, closing\n");
            return hangUpLater();
        }
        pendingBytes += text.size();
        output.push_back(std::move(text));
        if (output.size() > 1)
            return; // the strand is writing already
        lock.unlock();
        asio::dispatch(strand, [self = shared()] { self->writeNext(); });
    }

    // A sender may hold locks that the close's listeners take: the strand
    // ends the connection after the send has returned, never inside it.
    void hangUpLater()
    {
        asio::post(strand, [self = shared()] { self->shutdown(); });
    }

    void writeNext()
    {
        std::lock_guard lock(outputMutex);
        if (writesClosed || output.empty())
            return;
        // The deque keeps the front element in place while others are added.
        asio::async_write(socket, asio::buffer(output.front()),
                          asio::bind_executor(strand, [self = shared()](boost::system::error_code error, std::size_t) {
                              self->onWritten(error);
                          }));
    }

    void onWritten(boost::system::error_code error)
    {
        if (error)
            return shutdown();
        std::unique_lock lock(outputMutex);
        if (writesClosed)
            return;
        pendingBytes -= output.front().size();
        output.pop_front();
        if (!output.empty()) {
            lock.unlock();
            return writeNext();
        }
        if (!closeAfterWrite)
            return;
        lock.unlock();
        shutdown();
    }

    // On the strand. The queue stays until the connection goes: a write in
    // flight may still point into it.
    void shutdown()
    {
        closeSocket();
        closed();
    }

    void closeSocket()
    {
        std::lock_guard lock(outputMutex);
        writesClosed = true;
        if (socket.is_open()) {
            boost::system::error_code ignored;
            socket.shutdown(Protocol::socket::shutdown_both, ignored);
            socket.close(ignored);
        }
    }

    std::shared_ptr<RPCIoContext::Impl> loop; // first: outlives the socket
    Protocol::socket socket;
    int const descriptor; // the socket's, for senders off the strand; valid until writesClosed
    asio::any_io_executor strand; // the socket's own strand
    asio::streambuf input;
    std::mutex outputMutex;
    std::deque<std::string> output; // front: being written by the strand
    std::size_t pendingBytes = 0;
    bool writesClosed = false;
    bool closeAfterWrite = false;
};

// The endpoint's listener: the acceptor, and the socket's name, removed at close.
class UnixListener : public RPCListener {
public:
    UnixListener(std::shared_ptr<RPCAcceptor<Protocol>> acceptor, std::string path)
        : acceptor(std::move(acceptor)), path(std::move(path))
    {
    }
    void close() override
    {
        ::unlink(path.c_str());
        acceptor->close();
    }

private:
    std::shared_ptr<RPCAcceptor<Protocol>> acceptor;
    std::string path;
};

void checkPathLength(std::string const& path, char const* operation)
{
    if (path.size() < sizeof(sockaddr_un::sun_path))
        return;
    VLOG(DebugLevelError, "%s(): socket path too long: %s\n", operation, path.c_str());
    throwException(MODULE, __LINE__, operation, ReturnInvalidParameter);
}

bool hasLiveListener(std::string const& path)
{
    asio::io_context probe;
    Protocol::socket socket(probe);
    boost::system::error_code error;
    socket.connect(Protocol::endpoint(path), error);
    return !error;
}

// Clears the way for a new listener on `path`, or throws when it is taken.
void reclaimPath(std::string const& path)
{
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0)
        return;
    if (!S_ISSOCK(status.st_mode)) {
        VLOG(DebugLevelError, "listen(): %s exists and is not a socket\n", path.c_str());
        throwException(MODULE, __LINE__, "listen", ReturnInvalidState);
    }
    if (hasLiveListener(path)) {
        VLOG(DebugLevelError, "listen(): endpoint %s is in use\n", path.c_str());
        throwException(MODULE, __LINE__, "listen", ReturnInvalidState);
    }
    VLOG(DebugLevelInfo, "listen(): replacing stale socket %s\n", path.c_str());
    ::unlink(path.c_str());
}

} // namespace

std::shared_ptr<RPCListener> UnixEndpoint::listen(RPCIoContext& context, std::string const& path,
                                                  RPCConnection::IHandler& handler)
{
    checkPathLength(path, "listen");
    reclaimPath(path);
    std::shared_ptr<RPCIoContext::Impl> loop = context.impl();
    auto acceptor = std::make_shared<RPCAcceptor<Protocol>>(loop, [loop, &handler](Protocol::socket socket) {
        auto connection = std::make_shared<UnixLineConnection>(handler, loop, std::move(socket));
        if (handler.handleOpened(connection))
            connection->start();
        else
            connection->close();
    });
    // Bound under a name of its own and linked into place once it listens:
    // whoever sees the endpoint's name can dial it at once.
    std::string const staging = path + "." + std::to_string(::getpid());
    checkPathLength(staging, "listen");
    ::unlink(staging.c_str());
    try {
        acceptor->open(Protocol::endpoint(staging));
    } catch (boost::system::system_error const& e) {
        VLOG(DebugLevelError, "listen(): %s: %s\n", staging.c_str(), e.what());
        throwException(MODULE, __LINE__, "listen", ReturnGenericFailure);
    }
    int const linked = ::link(staging.c_str(), path.c_str());
    int const linkError = errno;
    ::unlink(staging.c_str());
    if (linked != 0) {
        acceptor->close();
        VLOG(DebugLevelError, "listen(): endpoint %s: %s\n", path.c_str(), std::strerror(linkError));
        throwException(MODULE, __LINE__, "listen", linkError == EEXIST ? ReturnInvalidState : ReturnGenericFailure);
    }
    return std::make_shared<UnixListener>(acceptor, path);
}

std::shared_ptr<RPCConnection> UnixEndpoint::connect(RPCIoContext& context, std::string const& path,
                                                     RPCConnection::IHandler& handler)
{
    checkPathLength(path, "connect");
    Protocol::socket socket(asio::make_strand(context.impl()->io));
    boost::system::error_code error;
    socket.connect(Protocol::endpoint(path), error);
    if (error) {
        VLOG(DebugLevelError, "connect(): %s: %s\n", path.c_str(), error.message().c_str());
        throwException(MODULE, __LINE__, "connect", ReturnGenericFailure);
    }
    auto connection = std::make_shared<UnixLineConnection>(handler, context.impl(), std::move(socket));
    if (!handler.handleOpened(connection)) {
        connection->close();
        throwException(MODULE, __LINE__, "connect", ReturnGenericFailure);
    }
    connection->start();
    return connection;
}

} // namespace Velmora
