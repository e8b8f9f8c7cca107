#include "interfaces/IApplicationManager.h"

#include "serial/Serialization.h"

namespace Velmora {

namespace {
SerialTypeRegistry::Registrar<IApplicationManager::LaunchParameters> const registrar("LaunchParameters");
}

IApplicationManager::LaunchParameters::LaunchParameters() = default;

IApplicationManager::LaunchParameters::LaunchParameters(std::string const& authorizationToken,
                                                        std::string const& applicationType,
                                                        std::string const& applicationURL,
                                                        std::string const& applicationParameters, bool launchFlag)
    : authorizationToken(authorizationToken), applicationType(applicationType), applicationURL(applicationURL),
      applicationParameters(applicationParameters), launchFlag(launchFlag)
{
}

IApplicationManager::LaunchParameters::LaunchParameters(Deserializer& d)
{
    if (!d.current().isObject())
        return;
    authorizationToken = deserializeOptional<std::string>("authorizationToken", d, "");
    applicationType = deserializeOptional<std::string>("applicationType", d, "");
    applicationURL = deserializeOptional<std::string>("applicationURL", d, "");
    applicationParameters = deserializeOptional<std::string>("applicationParameters", d, "");
    launchFlag = deserializeOptional<bool>("launchFlag", d, false);
}

std::string const& IApplicationManager::LaunchParameters::getObjectType() const
{
    static std::string const TYPE_NAME("LaunchParameters");
    return TYPE_NAME;
}

SerialObject* IApplicationManager::LaunchParameters::clone() const { return new LaunchParameters(*this); }

void IApplicationManager::LaunchParameters::serialize(Serializer& s) const
{
    Velmora::serialize("authorizationToken", authorizationToken, s);
    Velmora::serialize("applicationType", applicationType, s);
    Velmora::serialize("applicationURL", applicationURL, s);
    Velmora::serialize("applicationParameters", applicationParameters, s);
    Velmora::serialize("launchFlag", launchFlag, s);
}

} // namespace Velmora
