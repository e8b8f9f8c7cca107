// An object that owns one thread. init() starts the thread, which runs the
// virtual thread(); exit() asks it to end (through requestStop(), which a
// subclass overrides to wake its loop) and joins it. init() and exit() are
// called by the owner's thread, never by the object's own thread.
#pragma once

#include <string>
#include <thread>

namespace Velmora {

class ActiveObject {
public:
    explicit ActiveObject(std::string const& name);
    virtual void init();
    virtual ~ActiveObject();
    virtual void thread() = 0;
    virtual void exit();

    std::string const& getName() const;
    // True on the object's own thread.
    bool isOwnThread() const;

protected:
    // Makes thread() return soon; called by exit() before it joins.
    virtual void requestStop() = 0;

private:
    std::string name;
    std::thread worker;
};

} // namespace Velmora
