// A window-manager listener that ignores every notice, for tests and benches
// to override the notices they follow. Calls come on the manager's threads.
#pragma once

#include "interfaces/IWindowManager.h"

namespace VelmoraTest {

class NullWindowManagerListener : public Velmora::IWindowManager::IWindowManagerListener {
public:
    using IWindowManager = Velmora::IWindowManager;
    using Rect = Velmora::ISurfaceCompositing::Rect;

    void onKeepAlive(std::string const&, std::string const&) override {}
    void onStateChange(std::string const&, std::string const&, std::string const&) override {}
    void onError(std::string const&, std::string const&) override {}
    void onWindowListChange(IWindowManager&, Velmora::VectorObject<std::string> const&) override {}
    void onFocusChange(IWindowManager&, std::string const&, std::string const&) override {}
    void onLayoutChange(IWindowManager&, std::string const&, std::string const&) override {}
    using IWindowCompositingListener::onLocationChange;
    using IWindowCompositingListener::onOpacityChange;
    using IWindowCompositingListener::onVisibilityChange;
    using IWindowCompositingListener::onZOrderChange;
    void onVisibilityChange(std::string const&, bool const&, bool const&) override {}
    void onOpacityChange(std::string const&, unsigned int const&, unsigned int const&) override {}
    void onZOrderChange(std::string const&, unsigned int const&, unsigned int const&) override {}
    void onLocationChange(std::string const&, Rect const&, Rect const&) override {}
};

} // namespace VelmoraTest
