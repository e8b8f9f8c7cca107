// Pings the watchdog of the process supervisor only while every manager still
// runs its commands. Each manager stamps a slot of its own from a periodic
// command on its thread; the stamp that completes a round sends the ping and
// starts the next round. A manager whose thread is wedged never stamps, so the
// pings stop and the supervisor restarts the process; no thread of its own
// wakes to look.
//
// Threads: construction and destruction on the owner's thread, while the
// processors live; `ping` runs on whichever manager's thread completes a round,
// and so must never block: a ping that waited would wedge that manager.
#pragma once

#include "frame/CommandProcessor.h"

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace Velmora {

class ManagerWatchdog {
public:
    // Stamps every `periodMs` on each processor; `ping` goes once per round.
    ManagerWatchdog(std::vector<CommandProcessor*> const& processors, unsigned int periodMs, std::function<void()> ping);
    ~ManagerWatchdog();
    ManagerWatchdog(ManagerWatchdog const&) = delete;
    ManagerWatchdog& operator=(ManagerWatchdog const&) = delete;

private:
    class Stamp : public CommandProcessor::PeriodicCommand {
    public:
        Stamp(CommandProcessor* processor, unsigned int periodMs, ManagerWatchdog& owner, std::size_t slot)
            : PeriodicCommand(processor, periodMs), owner(owner), slot(slot) {}
        void call() override { owner.stamp(slot); }

    private:
        ManagerWatchdog& owner;
        std::size_t slot;
    };

    void stamp(std::size_t slot);

    std::function<void()> ping;
    std::mutex mutex;
    std::vector<bool> stamped; // this round's stamps, by slot
    std::size_t missing;       // slots not yet stamped this round
    std::vector<std::unique_ptr<Stamp>> stamps;
};

} // namespace Velmora
