#include "MultiInputDriver.h"

#include "frame/DebugPrint.h"
#include "frame/Exception.h"
#include "frame/SysRoot.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <linux/input.h>
#include <poll.h>
#include <pthread.h>
#include <sstream>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/stat.h>

namespace {

// Linux key codes with a role of their own. The header's macros are dropped
// where they clash with the names of the box's codes.
constexpr unsigned int LINUX_POWER = KEY_POWER;
constexpr unsigned int LINUX_HOME = KEY_HOME;
constexpr unsigned int LINUX_MENU = KEY_MENU;
constexpr unsigned int LINUX_LEFTALT = KEY_LEFTALT;
#undef KEY_POWER

} // namespace

namespace Velmora {

static char const MODULE[] = "MultiInputDriver";

using KeyEvent = IWindowEvent::KeyEvent;

namespace {

std::string inputDirectory() { return SysRoot::path("/dev/input"); }

bool isEventNode(std::string const& name) { return name.rfind("event", 0) == 0; }

// "path" or "path@session".
std::pair<std::string, unsigned int> parseSource(std::string const& entry)
{
    auto const at = entry.rfind('@');
    if (at == std::string::npos || at + 1 == entry.size())
        return {entry, 0};
    char* end = nullptr;
    unsigned long const session = std::strtoul(entry.c_str() + at + 1, &end, 10);
    if (*end != '\0')
        return {entry, 0};
    return {entry.substr(0, at), static_cast<unsigned int>(session)};
}

std::vector<std::pair<std::string, unsigned int>> configuredSources()
{
    std::vector<std::pair<std::string, unsigned int>> result;
    if (char const* list = std::getenv("VELMORA_INPUT_DEVICES")) {
        std::istringstream entries(list);
        for (std::string entry; std::getline(entries, entry, ':');)
            if (!entry.empty())
                result.push_back(parseSource(entry));
        return result;
    }
    std::string const directory = inputDirectory();
    std::unique_ptr<DIR, int (*)(DIR*)> dir(::opendir(directory.c_str()), ::closedir);
    if (!dir)
        return result;
    while (dirent const* entry = ::readdir(dir.get()))
        if (isEventNode(entry->d_name))
            result.emplace_back(directory + "/" + entry->d_name, 0);
    std::sort(result.begin(), result.end());
    return result;
}

} // namespace

MultiInputDriver::MultiInputDriver() : wakeup(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (!wakeup.valid())
        throwException(MODULE, __LINE__, "MultiInputDriver", ReturnGenericFailure);
    reader = std::thread([this] {
        pthread_setname_np(pthread_self(), "InputDriver");
        run();
    });
}

MultiInputDriver::~MultiInputDriver()
{
    {
        std::lock_guard lock(sourceMutex);
        stopping = true;
    }
    wake();
    reader.join();
}

void MultiInputDriver::addListener(IListener* listener, unsigned int sessionIndex)
{
    auto* typed = dynamic_cast<IWindowEvent::IInputEventListener*>(listener);
    if (!typed)
        return;
    std::lock_guard lock(listenerMutex);
    for (auto const& [known, session] : listeners)
        if (known == typed && session == sessionIndex)
            return;
    listeners.emplace_back(typed, sessionIndex);
}

void MultiInputDriver::removeListener(IListener* listener)
{
    auto* typed = dynamic_cast<IWindowEvent::IInputEventListener*>(listener);
    std::lock_guard delivery(deliveryMutex);
    std::lock_guard lock(listenerMutex);
    std::erase_if(listeners, [typed](auto const& entry) { return entry.first == typed; });
}

void MultiInputDriver::enableIr()
{
    auto const configured = configuredSources();
    {
        std::lock_guard lock(sourceMutex);
        if (irEnabled)
            return;
        irEnabled = true;
        for (auto const& [path, session] : configured)
            openSource(path, session);
    }
    wake();
}

void MultiInputDriver::enableHotplug()
{
    {
        std::lock_guard lock(sourceMutex);
        if (hotplug.valid())
            return;
        hotplugDirectory = inputDirectory();
        FileDescriptor watch(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
        if (!watch.valid() ||
            ::inotify_add_watch(watch.get(), hotplugDirectory.c_str(), IN_CREATE | IN_MOVED_TO | IN_ATTRIB) < 0) {
            VLOG(DebugLevelWarning, "cannot watch %s: %s\n", hotplugDirectory.c_str(), std::strerror(errno));
            return;
        }
        hotplug = std::move(watch);
    }
    wake();
}

void MultiInputDriver::disableHotplug()
{
    {
        std::lock_guard lock(sourceMutex);
        hotplug.reset();
    }
    wake();
}

void MultiInputDriver::enableIrFilter(KeyEvent::Code code) { filter = code; }

void MultiInputDriver::disableIrFilter() { filter = KeyEvent::KEY_NONE; }

KeyEvent::Code MultiInputDriver::mapKeyCode(unsigned int linuxCode)
{
    switch (linuxCode) {
    case LINUX_POWER:
        return KeyEvent::KEY_POWER;
    case LINUX_HOME:
        return KeyEvent::KEY_MASTER_TOGGLE;
    case LINUX_MENU:
        return KeyEvent::KEY_SYSTEM;
    case LINUX_LEFTALT:
        return KeyEvent::KEY_SYSTEM_ALT;
    default:
        return static_cast<KeyEvent::Code>(LINUX_KEY_BASE + linuxCode);
    }
}

bool MultiInputDriver::isIrEnabled() const
{
    std::lock_guard lock(sourceMutex);
    return irEnabled;
}

bool MultiInputDriver::isHotplugEnabled() const
{
    std::lock_guard lock(sourceMutex);
    return hotplug.valid();
}

std::size_t MultiInputDriver::getSourceCount() const
{
    std::lock_guard lock(sourceMutex);
    return sources.size();
}

bool MultiInputDriver::isOpen(std::string const& path) const
{
    return std::any_of(sources.begin(), sources.end(), [&](auto const& source) { return source->path == path; });
}

void MultiInputDriver::openSource(std::string const& path, unsigned int session)
{
    if (isOpen(path))
        return;
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        VLOG(DebugLevelWarning, "input source %s: %s\n", path.c_str(), std::strerror(errno));
        return;
    }
    // A FIFO opened for writing too never reads as ended between two writers.
    int const mode = S_ISFIFO(status.st_mode) ? O_RDWR : O_RDONLY;
    FileDescriptor fd(::open(path.c_str(), mode | O_NONBLOCK | O_CLOEXEC));
    if (!fd.valid()) {
        VLOG(DebugLevelWarning, "input source %s: %s\n", path.c_str(), std::strerror(errno));
        return;
    }
    auto source = std::make_unique<Source>();
    source->fd = std::move(fd);
    source->path = path;
    source->session = session;
    source->regular = S_ISREG(status.st_mode);
    sources.push_back(std::move(source));
    VLOG(DebugLevelInfo, "input source %s for session %u\n", path.c_str(), session);
}

void MultiInputDriver::adoptNewDevices()
{
    alignas(inotify_event) char buffer[4096];
    for (;;) {
        ssize_t const length = ::read(hotplug.get(), buffer, sizeof(buffer));
        if (length <= 0)
            return;
        for (ssize_t offset = 0; offset < length;) {
            auto const* event = reinterpret_cast<inotify_event const*>(buffer + offset);
            offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
            if (event->len > 0 && isEventNode(event->name))
                openSource(hotplugDirectory + "/" + event->name, 0);
        }
    }
}

bool MultiInputDriver::readSource(Source& source, std::vector<Delivery>& deliveries)
{
    // One read per wake-up: a writer that never pauses must not keep the
    // source lock held; what is left is still readable at the next poll.
    char buffer[64 * sizeof(input_event)];
    ssize_t const length = ::read(source.fd.get(), buffer, sizeof(buffer));
    if (length == 0)
        return false; // the end: a FIFO, open for writing too, never reads it
    if (length < 0)
        return errno == EAGAIN || errno == EINTR;
    source.pending.append(buffer, static_cast<std::size_t>(length));
    std::size_t used = 0;
    for (; used + sizeof(input_event) <= source.pending.size(); used += sizeof(input_event)) {
        input_event record;
        std::memcpy(&record, source.pending.data() + used, sizeof(record));
        if (record.type != EV_KEY)
            continue;
        KeyEvent::Code const code = mapKeyCode(record.code);
        unsigned int const only = filter;
        if (only != KeyEvent::KEY_NONE && only != code)
            continue;
        deliveries.emplace_back(source.session, KeyEvent(code, record.value != 0));
    }
    source.pending.erase(0, used);
    // A regular file reads short only at its end: dropped in the pass that
    // delivers its last keys.
    return !(source.regular && static_cast<std::size_t>(length) < sizeof(buffer));
}

std::vector<IWindowEvent::IInputEventListener*> MultiInputDriver::listenersOf(unsigned int session)
{
    std::lock_guard lock(listenerMutex);
    std::vector<IWindowEvent::IInputEventListener*> result;
    for (auto const& [listener, index] : listeners)
        if (index == session)
            result.push_back(listener);
    return result;
}

bool MultiInputDriver::isListening(IWindowEvent::IInputEventListener* listener)
{
    std::lock_guard lock(listenerMutex);
    return std::any_of(listeners.begin(), listeners.end(), [listener](auto const& entry) { return entry.first == listener; });
}

void MultiInputDriver::deliver(std::vector<Delivery> const& deliveries)
{
    // Held across the calls, so that removeListener() from another thread
    // waits for them; a listener removed by an earlier call is skipped.
    std::lock_guard delivery(deliveryMutex);
    for (Delivery const& each : deliveries)
        for (auto* listener : listenersOf(each.first))
            if (isListening(listener))
                runLoggingExceptions(MODULE, __LINE__, "deliver", [&] { listener->onInputEvent(each.second); });
}

void MultiInputDriver::wake()
{
    uint64_t const one = 1;
    [[maybe_unused]] ssize_t const written = ::write(wakeup.get(), &one, sizeof(one));
}

void MultiInputDriver::run()
{
    for (;;) {
        std::vector<pollfd> polled{{wakeup.get(), POLLIN, 0}};
        {
            std::lock_guard lock(sourceMutex);
            if (stopping)
                return;
            if (hotplug.valid())
                polled.push_back({hotplug.get(), POLLIN, 0});
            for (auto const& source : sources)
                polled.push_back({source->fd.get(), POLLIN, 0});
        }
        if (::poll(polled.data(), polled.size(), -1) < 0 && errno != EINTR)
            return;
        if (polled.front().revents != 0) {
            uint64_t drained = 0;
            [[maybe_unused]] ssize_t const read = ::read(wakeup.get(), &drained, sizeof(drained));
        }
        std::vector<Delivery> deliveries;
        {
            std::lock_guard lock(sourceMutex);
            if (hotplug.valid())
                adoptNewDevices();
            std::erase_if(sources, [&](auto const& source) {
                bool const ready = std::any_of(polled.begin(), polled.end(), [&](pollfd const& entry) {
                    return entry.fd == source->fd.get() && entry.revents != 0;
                });
                return ready && !readSource(*source, deliveries);
            });
        }
        deliver(deliveries);
    }
}

} // namespace Velmora
