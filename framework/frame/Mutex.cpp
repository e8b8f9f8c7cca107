#include "frame/Mutex.h"

namespace Velmora {

Mutex::Mutex(std::string const& name, unsigned short) : name(name) {}

void Mutex::lock() { mutex.lock(); }

void Mutex::unlock() { mutex.unlock(); }

std::string const& Mutex::getName() const { return name; }

Mutex::ScopedLock::ScopedLock(Mutex* mutex) : mutex(mutex) { mutex->lock(); }

Mutex::ScopedLock::~ScopedLock() { mutex->unlock(); }

} // namespace Velmora
