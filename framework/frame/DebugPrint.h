// The one logging call of the system, and the helpers built on it.
// velmoraDebugPrint writes one line per call to stderr with a single write(2):
//   <seconds.micros> <level> <module>:<line> <text>
// It takes no lock, so it may be called from any thread and from a forked child
// before exec. VELMORA_DEBUG=<level> sets the highest level shown (default 4),
// read once at first use; velmoraSetDebugLevel changes it later.
#pragma once

#include <exception>

namespace Velmora {

enum DebugLevel {
    DebugLevelError = 1,
    DebugLevelWarning = 2,
    DebugLevelNotice = 4,
    DebugLevelInfo = 7,
    DebugLevelTrace = 9,
};

void velmoraDebugPrint(DebugLevel level, char const* module, char const* name, int line, char const* format, ...)
    __attribute__((format(printf, 5, 6)));

// True when lines of `level` are shown; lets callers skip building costly texts.
bool velmoraDebugEnabled(DebugLevel level);
// Replaces the highest level shown (a host option, or a test that reads the log).
void velmoraSetDebugLevel(int level);

// Runs `body` and logs instead of propagating anything it throws: std::exception
// as "<function>(): caught exception: <what>", everything else (Exception too) as
// "<function>(): caught unknown exception". For clean-up code that must go on.
template <class Body>
void runLoggingExceptions(char const* module, int line, char const* function, Body&& body)
{
    try {
        body();
    } catch (std::exception const& e) {
        velmoraDebugPrint(DebugLevelError, module, module, line, "%s(): caught exception: %s\n", function, e.what());
    } catch (...) {
        velmoraDebugPrint(DebugLevelError, module, module, line, "%s(): caught unknown exception\n", function);
    }
}

} // namespace Velmora

// Logs from a source file that defines `static char const MODULE[] = "<ClassName>";`.
#define VLOG(level, ...) ::Velmora::velmoraDebugPrint((level), MODULE, MODULE, __LINE__, __VA_ARGS__)
