// A command that carries a result back to the caller of executeCommand:
// `Base` is the manager's intermediate command class, R the result type,
// default-constructed until call() sets it.
#pragma once

namespace Velmora {

template <class Base, class R>
class ReturningCommand : public Base {
public:
    using Base::Base;
    virtual R getReturn() const { return result; }
    virtual void setReturn(R const& value) { result = value; }

private:
    R result{};
};

} // namespace Velmora
