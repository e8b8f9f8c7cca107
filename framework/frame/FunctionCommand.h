// A command that runs a function on its processor's thread: for code that has
// to look at a manager's tables from outside (tests, benchmarks, diagnostics)
// without a command class of its own. Executed, it borrows the function's
// captures from the caller's stack.
#pragma once

#include "frame/CommandProcessor.h"

#include <functional>
#include <utility>

namespace Velmora {

class FunctionCommand : public CommandProcessor::Command {
public:
    FunctionCommand(CommandProcessor* processor, std::function<void()> body)
        : Command(processor), body(std::move(body))
    {
    }
    void call() override { body(); }

    // Runs `body` on `processor`'s thread and waits; failures are thrown as Exception.
    static void run(CommandProcessor& processor, std::function<void()> body)
    {
        FunctionCommand command(&processor, std::move(body));
        processor.executeOrThrow(command, "FunctionCommand", __LINE__, "run");
    }

private:
    std::function<void()> body;
};

} // namespace Velmora
