// The names of the remote control's keys, one table for the tools, the tests
// and the docs: a tool presses a key by name by writing Linux input records
// into a FIFO that MultiInputDriver reads (VELMORA_INPUT_DEVICES), as a real
// remote's receiver would.
//
//   Home Back Power Menu Up Down Left Right OK 0 1 2 3 4 5 6 7 8 9
//
// Names are matched without regard to case. Every function may be called from
// any thread.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace Velmora {

class KeyNames {
public:
    struct Key {
        std::string_view name;
        unsigned short linuxCode; // a KEY_... code of <linux/input-event-codes.h>
    };

    static std::span<Key const> all();
    static std::optional<unsigned short> linuxCode(std::string_view name);
    // The name of a Linux key code; empty when the table has none.
    static std::string nameOf(unsigned short linuxCode);
    // Writes one press of the key, as a receiver does: a press and a release,
    // each followed by a synchronisation record, in one write so that
    // concurrent writers of the same FIFO never interleave. False on a failed
    // or short write (errno tells why).
    static bool writePress(int fd, unsigned short linuxCode);
    // Why a tool could not open the FIFO for writing (non-blocking), from
    // errno, in the words of the person who pressed: a FIFO that is missing or
    // that nobody reads means that no box runs.
    static std::string whyNotOpen(int error);
};

} // namespace Velmora
