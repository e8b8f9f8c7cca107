// An open listening endpoint of the bus. close() stops accepting and removes
// the endpoint's name; connections already accepted stay. Any thread.
#pragma once

namespace Velmora {

class RPCListener {
public:
    virtual ~RPCListener() = default;
    virtual void close() = 0;
    // The bound TCP port, 0 for a Unix endpoint.
    virtual unsigned short getPort() const { return 0; }
};

} // namespace Velmora
