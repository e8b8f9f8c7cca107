// What every client library is created with: whether it serves the process
// that owns the hardware (Master) or one that doesn't (Stub).
#pragma once

namespace Velmora {

class Client {
public:
    enum Type : unsigned int {
        Plain = 0,  // a client with no role of its own (the web service's)
        Stub = 2,   // created by Stub classes
        Master = 3, // created by Master classes
    };
};

} // namespace Velmora
