// Inside of RPCIoContext, for the transport sources only: keep this include
// out of widely used headers, it pulls in the whole of the I/O library.
#pragma once

#include "rpc/RPCIoContext.h"
#include "rpc/RPCWorkerPool.h"

#include <utility> // before the I/O library: its headers use std::exchange without it

#include <boost/asio.hpp>

#include <thread>
#include <vector>

namespace Velmora {

// The event loop lives as long as the last connection or listener bound to
// it: their sockets and strands must be destroyed before it. stop() shuts its
// services down, which frees the handlers still queued and with them the
// connections they hold.
struct RPCIoContext::Impl {
    explicit Impl(unsigned int handlerThreads) : workers(std::make_shared<RPCWorkerPool>(handlerThreads)) {}
    struct Loop : boost::asio::io_context {
        using boost::asio::io_context::shutdown;
    };
    Loop io;
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work{io.get_executor()};
    std::vector<std::thread> threads;
    std::shared_ptr<RPCWorkerPool> workers;
};

} // namespace Velmora
