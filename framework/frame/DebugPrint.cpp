#include "frame/DebugPrint.h"

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <unistd.h>

namespace Velmora {

namespace {

std::atomic<int>& shownLevel()
{
    static std::atomic<int> level = [] {
        char const* text = std::getenv("VELMORA_DEBUG");
        return text && *text ? std::atoi(text) : 4;
    }();
    return level;
}

} // namespace

bool velmoraDebugEnabled(DebugLevel level) { return static_cast<int>(level) <= shownLevel().load(std::memory_order_relaxed); }

void velmoraSetDebugLevel(int level) { shownLevel().store(level, std::memory_order_relaxed); }

void velmoraDebugPrint(DebugLevel level, char const* module, char const* /*name*/, int line, char const* format, ...)
{
    if (!velmoraDebugEnabled(level))
        return;
    char buffer[2048];
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    int used = std::snprintf(buffer, sizeof buffer, "%ld.%06ld %d %s:%d ", static_cast<long>(now.tv_sec),
                             now.tv_nsec / 1000, static_cast<int>(level), module, line);
    if (used < 0)
        return;
    va_list args;
    va_start(args, format);
    int text = std::vsnprintf(buffer + used, sizeof buffer - used - 1, format, args);
    va_end(args);
    size_t length = text < 0 ? used : std::min<size_t>(used + text, sizeof buffer - 2);
    while (length > 0 && buffer[length - 1] == '\n')
        --length;
    buffer[length++] = '\n';
    ssize_t ignored = ::write(STDERR_FILENO, buffer, length);
    (void)ignored;
}

} // namespace Velmora
