// A window-manager listener that ignores every notice: tests and benches
// derive from it and override only the notices they follow. Calls come on
// the manager's threads; nothing here keeps state.
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
