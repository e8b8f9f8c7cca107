// A command that carries a result back to the caller of executeCommand:
// `Base` is the manager's intermediate command class, R the result type,
// default-constructed until call() sets it. Results move in and out, so a
// long list crosses the thread hop without a copy.
#pragma once

#include <utility>

namespace Velmora {

template <class Base, class R>
class ReturningCommand : public Base {
public:
    using Base::Base;
    void setReturn(R value) { result = std::move(value); }
    // Moves the result out, for the caller that waited for the command.
    R takeReturn() { return std::move(result); }

private:
    R result{};
};

} // namespace Velmora
