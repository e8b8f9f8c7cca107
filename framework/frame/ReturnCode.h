// Result codes of every operation of the server. The numeric values travel on
// the wire (onRequestEnd sends them as integers), so they must never change.
#pragma once

namespace Velmora {

enum ReturnCode {
    ReturnSuccess = 0,
    ReturnInvalidParameter = 1,
    ReturnInvalidState = 2,
    ReturnOutOfMemory = 3,
    ReturnNotSupported = 4,
    ReturnTimedOut = 5,
    ReturnGenericFailure = 7,
};

} // namespace Velmora
