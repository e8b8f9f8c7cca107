#include "ZAVClient.h"

namespace Velmora {

ZAVClient* ZAVClient::create(Client::Type type, std::string const& name) { return new ZAVClient(type, name); }

ZAVClient::ZAVClient(Client::Type type, std::string const& name) : APPClient(type, name) {}

} // namespace Velmora
