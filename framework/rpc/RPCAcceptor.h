// The accepting half of a bus endpoint, for the transport sources only: it
// listens on one socket and hands every accepted socket to `onAccepted`. An
// accept that fails (out of descriptors, most likely) is retried after a pause
// instead of in a busy loop.
//
// Threads: open() on the creating thread, before anything else; close() from
// any thread. Accepting and `onAccepted` run on the acceptor's strand.
// Lifetime: held by shared_ptr; pending handlers keep it alive until close().
#pragma once

#include "frame/DebugPrint.h"
#include "rpc/RPCAsio.h"
#include "rpc/RPCListener.h"

#include <chrono>
#include <functional>
#include <memory>
#include <type_traits>

namespace Velmora {

template <class Protocol>
class RPCAcceptor : public RPCListener, public std::enable_shared_from_this<RPCAcceptor<Protocol>> {
public:
    using Socket = typename Protocol::socket;
    using AcceptHandler = std::function<void(Socket)>;

    RPCAcceptor(std::shared_ptr<RPCIoContext::Impl> loop, AcceptHandler onAccepted)
        : loop(std::move(loop)), io(this->loop->io), strand(boost::asio::make_strand(io)), acceptor(strand),
          retryTimer(strand), onAccepted(std::move(onAccepted))
    {
    }

    // Binds, listens and starts accepting; throws boost::system::system_error.
    void open(typename Protocol::endpoint const& endpoint)
    {
        acceptor.open(endpoint.protocol());
        if constexpr (std::is_same_v<Protocol, boost::asio::ip::tcp>)
            acceptor.set_option(boost::asio::socket_base::reuse_address(true));
        acceptor.bind(endpoint);
        acceptor.listen(boost::asio::socket_base::max_listen_connections);
        bound = acceptor.local_endpoint();
        boost::asio::dispatch(strand, [self = this->shared_from_this()] { self->acceptNext(); });
    }

    void close() override
    {
        boost::asio::dispatch(strand, [self = this->shared_from_this()] {
            boost::system::error_code ignored;
            self->retryTimer.cancel();
            self->acceptor.close(ignored);
        });
    }

    unsigned short getPort() const override
    {
        if constexpr (std::is_same_v<Protocol, boost::asio::ip::tcp>)
            return bound.port();
        return 0;
    }

private:
    static constexpr char const MODULE[] = "RPCAcceptor";

    void acceptNext()
    {
        acceptor.async_accept(boost::asio::make_strand(io),
                              [self = this->shared_from_this()](boost::system::error_code error, Socket socket) {
                                  self->onAccept(error, std::move(socket));
                              });
    }

    void onAccept(boost::system::error_code error, Socket socket)
    {
        if (error == boost::asio::error::operation_aborted || !acceptor.is_open())
            return;
        if (error) {
            VLOG(DebugLevelWarning, "onAccept(): %s\n", error.message().c_str());
            retryTimer.expires_after(std::chrono::milliseconds(100));
            retryTimer.async_wait([self = this->shared_from_this()](boost::system::error_code waitError) {
                if (!waitError)
                    self->acceptNext();
            });
            return;
        }
        onAccepted(std::move(socket));
        acceptNext();
    }

    std::shared_ptr<RPCIoContext::Impl> loop; // first: outlives the acceptor
    boost::asio::io_context& io;
    boost::asio::strand<boost::asio::io_context::executor_type> strand;
    typename Protocol::acceptor acceptor;
    boost::asio::steady_timer retryTimer;
    AcceptHandler onAccepted;
    typename Protocol::endpoint bound;
};

} // namespace Velmora
