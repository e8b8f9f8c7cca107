// The transcripts of the voice remote: the first word says what to do, the
// rest is its argument, and the outcome is one launch of a web page or none.
#include "MasterWindowManager.h"

#include "frame/DebugPrint.h"

#include <cstdlib>
#include <sstream>

namespace Velmora {

static char const MODULE[] = "MasterWindowManager";

char const* const MasterWindowManager::SEARCH_URL_DEFAULT = "file:///usr/local/html_root/velmoraLauncher/search/";
std::size_t const MasterWindowManager::MAX_TRANSCRIPT = 4096;

namespace {

char const MEDIA_PAGE[] = "file:///usr/local/html_root/velmoraLauncher/../qenclient.html";
char const DIALOG_PAGE[] = "file:///usr/local/html_root/velmoraLauncher/velmora-dialog-box.html";

bool has(std::string const& text, char const* part) { return text.find(part) != std::string::npos; }

// The search site's base URL, ending with a slash.
std::string searchSite()
{
    char const* configured = std::getenv("VELMORA_SEARCH_URL");
    std::string base = configured && *configured ? configured : MasterWindowManager::SEARCH_URL_DEFAULT;
    if (base.back() != '/')
        base += '/';
    return base;
}

} // namespace

std::string MasterWindowManager::voicePage(std::string const& transcript)
{
    std::istringstream words(transcript);
    std::string first;
    words >> first;
    std::string phrase;
    for (std::string word; words >> word;)
        phrase += " " + word;

    if (has(first, "search") || has(first, "weather") || has(first, "map")) {
        std::string url = searchSite() + (has(first, "map") ? "maps?" : "search?") + "hl=en" + "&q=";
        if (has(first, "weather"))
            url += "weather ";
        return url + phrase;
    }
    if (has(first, "launch") || has(first, "run") || has(first, "start")) {
        if (has(phrase, "media player"))
            return MEDIA_PAGE;
        if (has(phrase, "browser")) {
            std::string home = searchSite();
            home.pop_back();
            return home;
        }
        return {};
    }
    return DIALOG_PAGE;
}

void MasterWindowManager::launchPage(std::string const& url, std::string const& requester)
{
    launch(LaunchParameters("0", APPLICATION_TYPE_WEBAPP, url, "", {}, true, false), requester);
}

void MasterWindowManager::onHidVoiceRecDone(std::string const& transcript)
{
    if (transcript.size() > MAX_TRANSCRIPT) {
        VLOG(DebugLevelError, "onHidVoiceRecDone(): refused a transcript of %zu bytes\n", transcript.size());
        return;
    }
    std::string const page = voicePage(transcript);
    if (!page.empty())
        launchPage(page, "voice");
}

} // namespace Velmora
