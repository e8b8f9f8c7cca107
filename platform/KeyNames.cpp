#include "KeyNames.h"

#include <linux/input.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstring>

namespace Velmora {

namespace {

constexpr KeyNames::Key KEYS[] = {
    {"Home", KEY_HOME}, {"Back", KEY_BACK}, {"Power", KEY_POWER}, {"Menu", KEY_MENU}, {"Up", KEY_UP},
    {"Down", KEY_DOWN}, {"Left", KEY_LEFT}, {"Right", KEY_RIGHT}, {"OK", KEY_OK},     {"0", KEY_0},
    {"1", KEY_1},       {"2", KEY_2},       {"3", KEY_3},         {"4", KEY_4},       {"5", KEY_5},
    {"6", KEY_6},       {"7", KEY_7},       {"8", KEY_8},         {"9", KEY_9},
};

bool sameName(std::string_view a, std::string_view b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
    });
}

input_event record(unsigned short type, unsigned short code, int value)
{
    input_event event{};
    event.type = type;
    event.code = code;
    event.value = value;
    return event;
}

} // namespace

std::span<KeyNames::Key const> KeyNames::all() { return KEYS; }

std::optional<unsigned short> KeyNames::linuxCode(std::string_view name)
{
    auto found = std::find_if(std::begin(KEYS), std::end(KEYS), [name](Key const& key) { return sameName(key.name, name); });
    if (found == std::end(KEYS))
        return std::nullopt;
    return found->linuxCode;
}

std::string KeyNames::nameOf(unsigned short linuxCode)
{
    auto found = std::find_if(std::begin(KEYS), std::end(KEYS), [linuxCode](Key const& key) { return key.linuxCode == linuxCode; });
    return found == std::end(KEYS) ? std::string() : std::string(found->name);
}

std::string KeyNames::whyNotOpen(int error)
{
    if (error == ENXIO)
        return "no box reads it: is the box up?";
    if (error == ENOENT)
        return "no such FIFO: is the box up?";
    return std::strerror(error);
}

bool KeyNames::writePress(int fd, unsigned short linuxCode)
{
    std::array<input_event, 4> const records = {record(EV_KEY, linuxCode, 1), record(EV_SYN, SYN_REPORT, 0),
                                                record(EV_KEY, linuxCode, 0), record(EV_SYN, SYN_REPORT, 0)};
    ssize_t const written = write(fd, records.data(), sizeof records);
    return written == static_cast<ssize_t>(sizeof records);
}

} // namespace Velmora
