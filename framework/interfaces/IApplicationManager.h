// A table of running programs. Its listeners hear the programs' reports and
// errors. LaunchParameters is the record that says what to start; it travels
// as JSON text, also to the child in VELMORA_APP_PARAMETERS.
#pragma once

#include "interfaces/IApplication.h"
#include "serial/SerialObject.h"

#include <string>

namespace Velmora {

class Deserializer;

class IApplicationManager : public virtual ILifecycleManagement {
public:
    class LaunchParameters : public SerialObject {
    public:
        LaunchParameters();
        LaunchParameters(std::string const& authorizationToken, std::string const& applicationType,
                         std::string const& applicationURL, std::string const& applicationParameters,
                         bool launchFlag);
        // A text that is not an object (a bare number, an empty text) reads as
        // the empty record; missing members keep their defaults; a member of the
        // wrong type throws Exception(ReturnInvalidParameter).
        explicit LaunchParameters(Deserializer& deserializer);

        std::string const& getObjectType() const override;
        SerialObject* clone() const override;
        using SerialObject::serialize;
        void serialize(Serializer& serializer) const override;

        std::string const& getAuthorizationToken() const { return authorizationToken; }
        std::string const& getApplicationType() const { return applicationType; }
        std::string const& getApplicationURL() const { return applicationURL; }
        std::string const& getApplicationParameters() const { return applicationParameters; }
        void setAuthorizationToken(std::string const& token) { authorizationToken = token; }

    protected:
        std::string authorizationToken;
        std::string applicationType;
        std::string applicationURL;
        std::string applicationParameters;
        bool launchFlag = false;
    };

    class IApplicationManagerListener : public virtual ILifecycleManagement::ILifecycleManagementListener {
    public:
        virtual void onError(std::string const& uid, std::string const& errorType) = 0;
    };

    class IApplicationManagerNotifier : public virtual IObservable, public virtual IApplicationManagerListener {};
};

} // namespace Velmora
