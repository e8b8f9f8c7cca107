#include "QENClient.h"

#include "ClientFactory.h"

namespace Velmora {

QENClient* QENClient::create(Client::Type type, std::string const& name)
{
    return ClientFactory<QENClient>::create(type, name);
}

void QENClient::setFactory(Factory replacement) { ClientFactory<QENClient>::set(std::move(replacement)); }

QENClient::QENClient(Client::Type type, std::string const& name)
    : ServiceEndpointClient(type, name.empty() ? "QEN" : name)
{
}

void QENClient::releaseClient(std::string const& name)
{
    Json::Value params(Json::objectValue);
    params["name"] = name;
    call("IMediaEngine.releaseClient", params);
}

} // namespace Velmora
