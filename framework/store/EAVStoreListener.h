// Listener of an EAVStore: told of every attribute a commit wrote, then once
// that the commit is complete.
//
// Threads: both calls arrive after the commit is durable and with no lock of
// the store held, so a listener may read the store, write to it, or hand a
// write to another thread and wait for it. They arrive on the thread that
// committed, or on a thread that was telling of an earlier commit meanwhile.
// Calls of one commit are never interleaved with those of another, except
// that a write made from inside a callback is told at once.
// The results are not looked at; listeners return 0.
#pragma once

#include "frame/IListener.h"

#include <string>

namespace Velmora {

class EAVStoreListener : public virtual IListener {
public:
    virtual int onEAVUpdate(std::string const& entity, std::string const& attribute, std::string const& value) = 0;
    virtual int onEAVCommit() = 0;
};

} // namespace Velmora
