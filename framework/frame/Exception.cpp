#include "frame/Exception.h"

#include "frame/DebugPrint.h"

namespace Velmora {

Exception::Exception(ReturnCode const& code) : code(code) {}

Exception::~Exception() = default;

ReturnCode Exception::getCode() const { return code; }

char const* Exception::what() const
{
    switch (static_cast<int>(code)) {
    case 0: return "Success";
    case 1: return "Invalid parameter";
    case 2: return "Invalid state";
    case 3: return "Out of memory";
    case 4: return "Not supported";
    case 5: return "Timed out";
    default: return "Generic failure";
    }
}

void throwException(char const* module, int line, char const* operation, ReturnCode code)
{
    Exception exception(code);
    velmoraDebugPrint(DebugLevelError, module, module, line, "%s(): throwing exception: %s\n", operation,
                      exception.what());
    throw exception;
}

} // namespace Velmora
