// The one exception type of the server: a ReturnCode, thrown by value.
// Deliberately not a std::exception, so generic clean-up code that catches
// std::exception first logs it as an unknown exception.
// Immutable after construction; safe to copy and read from any thread.
#pragma once

#include "frame/ReturnCode.h"

namespace Velmora {

class Exception {
public:
    Exception(ReturnCode const& code);
    virtual ~Exception();
    virtual ReturnCode getCode() const;
    // Text of the code; process-lifetime storage.
    virtual char const* what() const;

private:
    ReturnCode code;
};

// Logs "<operation>(): throwing exception: <text>" at level 1 for `module`
// and throws Exception(code). Every failing public operation ends here.
[[noreturn]] void throwException(char const* module, int line, char const* operation, ReturnCode code);

} // namespace Velmora
