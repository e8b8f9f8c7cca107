#include "interfaces/IWindowManager.h"

#include "serial/Serialization.h"

#include <cstring>

namespace Velmora {

char const* const IWindowManager::APPLICATION_TYPE_INVALID = "INVALID";
char const* const IWindowManager::APPLICATION_TYPE_WEBBROWSER = "WEBBROWSER";
char const* const IWindowManager::APPLICATION_TYPE_WEBPAGE = "WEBPAGE";
char const* const IWindowManager::APPLICATION_TYPE_WEBAPP = "WEBAPP";
char const* const IWindowManager::APPLICATION_TYPE_WEBGLAPP = "WEBGLAPP";
char const* const IWindowManager::APPLICATION_TYPE_AIR = "AIR";
char const* const IWindowManager::APPLICATION_TYPE_AIRGL = "AIRGL";
char const* const IWindowManager::APPLICATION_TYPE_WFDPLAYER = "WFDPLAYER";
char const* const IWindowManager::APPLICATION_TYPE_OTHER = "OTHER";
char const* const IWindowManager::APPLICATION_TYPE_ANDROID = "ANDROID";
char const* const IWindowManager::LAYOUT_INVALID = "INVALID";

namespace {
SerialTypeRegistry::Registrar<IWindowManager::LaunchParameters> const registrar("WindowLaunchParameters");
}

IWindowManager::LaunchParameters::LaunchParameters(std::string const& authorizationToken,
                                                   std::string const& applicationType,
                                                   std::string const& applicationURL,
                                                   std::string const& applicationParameters,
                                                   ISurfaceManagement::CreationSettings const& compositingParameters,
                                                   bool giveFocus, bool launchFlag)
    : IApplicationManager::LaunchParameters(authorizationToken, applicationType, applicationURL,
                                            applicationParameters, launchFlag),
      compositingParameters(compositingParameters), giveFocus(giveFocus)
{
}

IWindowManager::LaunchParameters::LaunchParameters(int argc, char** argv)
{
    for (int i = 1; i + 1 < argc; ++i) {
        std::string* field = std::strcmp(argv[i], "--velmora:masterType") == 0         ? &applicationType
                             : std::strcmp(argv[i], "--velmora:masterURL") == 0        ? &applicationURL
                             : std::strcmp(argv[i], "--velmora:masterParameters") == 0 ? &applicationParameters
                                                                                       : nullptr;
        if (field)
            *field = argv[++i];
    }
}

IWindowManager::LaunchParameters::LaunchParameters(Deserializer& d) : IApplicationManager::LaunchParameters(d)
{
    if (!d.current().isObject())
        return;
    compositingParameters = deserializeOptional("compositingParameters", d, ISurfaceManagement::CreationSettings());
    giveFocus = deserializeOptional<bool>("giveFocus", d, false);
}

std::string const& IWindowManager::LaunchParameters::getObjectType() const
{
    static std::string const TYPE_NAME("WindowLaunchParameters");
    return TYPE_NAME;
}

void IWindowManager::LaunchParameters::serialize(Serializer& s) const
{
    IApplicationManager::LaunchParameters::serialize(s);
    compositingParameters.serialize("compositingParameters", s);
    Velmora::serialize("giveFocus", giveFocus, s);
}

} // namespace Velmora
