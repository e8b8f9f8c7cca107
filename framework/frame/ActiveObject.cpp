#include "frame/ActiveObject.h"

#include <pthread.h>

namespace Velmora {

ActiveObject::ActiveObject(std::string const& name) : name(name) {}

ActiveObject::~ActiveObject() = default;

void ActiveObject::init()
{
    if (worker.joinable())
        return;
    worker = std::thread([this] {
        pthread_setname_np(pthread_self(), name.substr(0, 15).c_str());
        thread();
    });
}

void ActiveObject::exit()
{
    if (!worker.joinable())
        return;
    requestStop();
    worker.join();
}

std::string const& ActiveObject::getName() const { return name; }

bool ActiveObject::isOwnThread() const { return worker.get_id() == std::this_thread::get_id(); }

} // namespace Velmora
