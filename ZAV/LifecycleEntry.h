// One change in the life of an application, a service or the box, as the
// lifecycle journal keeps it: what changed (kind), why (reason) and the
// particulars (cause). A manager fills what it knows cheaply; the journal
// stamps the sequence number and both times, and fills the type and name of
// a uid it has seen before. A plain value: any thread, copied freely.
#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace Velmora {

class LifecycleEntry {
public:
    std::uint64_t sequence = 0;  // 1, 2, ... over the life of the journal file
    std::uint64_t monotonicMs = 0; // CLOCK_MONOTONIC: orders entries within one boot
    std::int64_t wallClockMs = 0;  // CLOCK_REALTIME, milliseconds since the epoch
    int session = -1;              // the display session; -1 for services and the box
    std::string uid{};
    std::string applicationType{};
    std::string name{};              // the URL of a window, the name of a service or package
    std::string kind{};              // one of the KIND_ words below
    std::string reason{};
    std::string cause{};

    static constexpr char const* KIND_STARTED = "started";
    static constexpr char const* KIND_LAUNCH_FAILED = "launch-failed";
    static constexpr char const* KIND_PUT_OFF = "put-off";
    static constexpr char const* KIND_EVICTED = "evicted";
    static constexpr char const* KIND_STATE = "state";
    static constexpr char const* KIND_FOCUS = "focus";
    static constexpr char const* KIND_TERMINATE = "terminate";
    static constexpr char const* KIND_RUNAWAY = "runaway";
    static constexpr char const* KIND_EXITED = "exited";
    static constexpr char const* KIND_ENDED = "ended";
    static constexpr char const* KIND_SERVICE_FAILED = "service-failed";
    static constexpr char const* KIND_BOOT_COMPLETE = "boot-complete";
    static constexpr char const* KIND_POWER = "power";
    static constexpr char const* KIND_PACKAGE = "package";
    // Every kind, for tools that take one from a person.
    static constexpr std::array KINDS{KIND_STARTED, KIND_LAUNCH_FAILED, KIND_PUT_OFF,         KIND_EVICTED,
                                      KIND_STATE,   KIND_FOCUS,         KIND_TERMINATE,       KIND_RUNAWAY,
                                      KIND_EXITED,  KIND_ENDED,         KIND_SERVICE_FAILED,  KIND_BOOT_COMPLETE,
                                      KIND_POWER,   KIND_PACKAGE};
};

} // namespace Velmora
