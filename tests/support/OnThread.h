// `Manager` (an application manager) opened to a test on the server's side:
// work and reads on its thread, and a program started through its factory.
// Any thread but the manager's own may call these.
#pragma once

#include "Client.h"
#include "frame/FunctionCommand.h"

#include <functional>
#include <string>

namespace VelmoraTest {

template <class Manager>
struct OnThread : Manager {
    using Manager::Manager;
    Velmora::Client::Type getClientType() override { return Velmora::Client::Master; }
    void onThread(std::function<void()> body) { Velmora::FunctionCommand::run(*this, std::move(body)); }
    // What `read` gives on the manager's thread.
    template <class Read>
    auto fetch(Read read)
    {
        decltype(read()) value{};
        onThread([&] { value = read(); });
        return value;
    }
    std::string create(std::string const& name, std::string const& parameters = "")
    {
        return fetch([&] { return this->_createApplication(name, parameters); });
    }
};

} // namespace VelmoraTest
