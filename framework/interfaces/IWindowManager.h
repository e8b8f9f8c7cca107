// A manager of windows: applications that own a surface on one display
// session. It launches them, keeps the input focus and the window list, and
// tells its listeners of list, focus and layout changes.
//
// LaunchParameters adds to the application record the surface's creation
// settings and whether the window takes the focus. Its JSON form is the base
// record's members plus "compositingParameters" (a CreationSettings object)
// and "giveFocus"; every member is optional when read. The command-line form
// (the master window of a session) reads
//   --velmora:masterType <type>  --velmora:masterURL <url>
//   --velmora:masterParameters <text>
// and leaves the rest at its defaults.
#pragma once

#include "interfaces/IApplicationManager.h"
#include "interfaces/ISurfaceManagement.h"
#include "interfaces/IWindowCompositing.h"
#include "interfaces/IWindowEvent.h"
#include "serial/VectorObject.h"

#include <string>

namespace Velmora {

class IWindowManager : public virtual IApplicationManager, public virtual IWindowCompositing,
                       public virtual IWindowEvent {
public:
    // Kinds of application; each picks a launch script or the slave server.
    static char const* const APPLICATION_TYPE_INVALID;    // "INVALID"
    static char const* const APPLICATION_TYPE_WEBBROWSER; // "WEBBROWSER"
    static char const* const APPLICATION_TYPE_WEBPAGE;    // "WEBPAGE"
    static char const* const APPLICATION_TYPE_WEBAPP;     // "WEBAPP"
    static char const* const APPLICATION_TYPE_WEBGLAPP;   // "WEBGLAPP"
    static char const* const APPLICATION_TYPE_AIR;        // "AIR"
    static char const* const APPLICATION_TYPE_AIRGL;      // "AIRGL"
    static char const* const APPLICATION_TYPE_WFDPLAYER;  // "WFDPLAYER"
    static char const* const APPLICATION_TYPE_OTHER;      // "OTHER"
    static char const* const APPLICATION_TYPE_ANDROID;    // "ANDROID"
    // The only layout there is.
    static char const* const LAYOUT_INVALID; // "INVALID"

    class LaunchParameters : public IApplicationManager::LaunchParameters {
    public:
        LaunchParameters() = default;
        LaunchParameters(std::string const& authorizationToken, std::string const& applicationType,
                         std::string const& applicationURL, std::string const& applicationParameters,
                         ISurfaceManagement::CreationSettings const& compositingParameters, bool giveFocus,
                         bool launchFlag);
        LaunchParameters(int argc, char** argv);
        explicit LaunchParameters(Deserializer& deserializer);

        std::string const& getObjectType() const override;
        SerialObject* clone() const override { return new LaunchParameters(*this); }
        using SerialObject::serialize;
        void serialize(Serializer& serializer) const override;

        ISurfaceManagement::CreationSettings const& getCompositingParameters() const { return compositingParameters; }
        bool getGiveFocus() const { return giveFocus; }
        bool getLaunchFlag() const { return launchFlag; }

    private:
        ISurfaceManagement::CreationSettings compositingParameters;
        bool giveFocus = false;
    };

    class IWindowManagerListener : public virtual IApplicationManager::IApplicationManagerListener,
                                   public virtual IWindowCompositing::IWindowCompositingListener {
    public:
        virtual void onWindowListChange(IWindowManager& manager, VectorObject<std::string> const& list) = 0;
        virtual void onFocusChange(IWindowManager& manager, std::string const& oldFocus,
                                   std::string const& newFocus) = 0;
        virtual void onLayoutChange(IWindowManager& manager, std::string const& oldLayout,
                                    std::string const& newLayout) = 0;
    };

    class IWindowManagerNotifier : public virtual IObservable, public virtual IWindowManagerListener,
                                   public virtual IApplicationManager::IApplicationManagerNotifier,
                                   public virtual IWindowCompositing::IWindowCompositingNotifier {};

    virtual unsigned int getSessionIndex() = 0;
    virtual VectorObject<std::string> getWindowList() = 0;
    // The new window's uid; empty when the launch was put off or failed.
    virtual std::string launch(LaunchParameters const& parameters) = 0;
    virtual LaunchParameters getLaunchParameters(std::string const& uid) = 0;
    virtual void dispatchEvent(Event const& event) = 0;
    // True when the window took the focus; an empty uid takes it from everyone.
    virtual bool setFocus(std::string const& uid) = 0;
    virtual std::string getFocus() = 0;
    virtual void setWindowLayout(std::string const& name) = 0;
    virtual std::string getWindowLayout() = 0;
};

} // namespace Velmora
