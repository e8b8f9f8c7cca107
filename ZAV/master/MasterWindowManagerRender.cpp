// The media engine's renderer requests, which open a media window for the
// announced URI, and finished surface animations, which move the focus.
#include "MasterWindowManager.h"

#include "frame/DebugPrint.h"
#include "serial/Serialization.h"

namespace Velmora {

static char const MODULE[] = "MasterWindowManager";

void MasterWindowManager::RenderCommand::call()
{
    if (auto* manager = dynamic_cast<MasterWindowManager*>(getWindowManager()))
        manager->_requestRender(event, text);
}

int MasterWindowManager::onRendererEvent(IRenderer::NotifyEvent event, std::string const& text)
{
    queueCommand(new RenderCommand(this, event, text), true);
    return 0;
}

int MasterWindowManager::onAnimationFinished(std::string const& uid)
{
    VLOG(DebugLevelInfo, "MasterWindowManager::onAnimationFinished %s\n", uid.c_str());
    queueAnimationFinished(uid);
    return 0;
}

int MasterWindowManager::_requestRender(IRenderer::NotifyEvent event, std::string const& text)
{
    if (event == IRenderer::NOTIFY_URI) {
        renderUri = text;
        return 0;
    }
    if (event != IRenderer::NOTIFY_LAUNCH)
        return 0;
    for (auto const& window : applications) {
        auto const parameters = deserialize<LaunchParameters>(window.second.getParameters());
        if (parameters.getApplicationURL().find("mediaPlayer") != std::string::npos)
            return 0;
    }
    VLOG(DebugLevelError, "Launch %s\n", renderUri.c_str());
    launchFor(LaunchParameters("0", text, renderUri, "", {}, true, false), "renderer");
    return 0;
}

} // namespace Velmora
