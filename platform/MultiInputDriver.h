// The input driver of this box: reads Linux input records (struct
// input_event) from evdev devices, or from the files and FIFOs named in
// VELMORA_INPUT_DEVICES, and turns key records into KeyEvents for the
// listeners of the source's session.
//
// VELMORA_INPUT_DEVICES (read by enableIr) is a ':'-separated list of paths,
// each optionally followed by "@<session>" (default session 0); unset, every
// "event*" node of /dev/input (under VELMORA_ROOT) is a source. A source that
// reads to its end (a regular file, /dev/null, a hung-up terminal) or fails is
// dropped; a FIFO stays open for later writers; a device that goes away is
// dropped. Each source is read once per wake-up, so a busy one neither starves
// the others nor holds the source lock for long. Hotplug adopts "event*" nodes that appear
// in /dev/input later, for session 0.
//
// Key codes: power, home, menu and left-alt become the box's codes 1, 30, 34
// and 56; any other Linux code c becomes LINUX_KEY_BASE + c. A press and an
// autorepeat both give a pressed event, a release an unpressed one.
//
// Threads: one reader thread, started by the constructor and joined by the
// destructor; every public operation from any thread. Listeners are called on
// the reader thread without the driver's locks other than the delivery lock,
// which removeListener takes too: a listener may remove itself from its call.
#pragma once

#include "FileDescriptor.h"
#include "InputDriver.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace Velmora {

class MultiInputDriver : public InputDriver {
public:
    static constexpr unsigned int LINUX_KEY_BASE = 0x100;

    MultiInputDriver();
    ~MultiInputDriver() override;

    void addListener(IListener* listener, unsigned int sessionIndex) override;
    void removeListener(IListener* listener) override;
    void enableIr() override;
    void enableHotplug() override;
    void disableHotplug() override;
    void enableIrFilter(IWindowEvent::KeyEvent::Code code) override;
    void disableIrFilter() override;

    static IWindowEvent::KeyEvent::Code mapKeyCode(unsigned int linuxCode);
    bool isIrEnabled() const;
    bool isHotplugEnabled() const;
    std::size_t getSourceCount() const;

private:
    struct Source {
        FileDescriptor fd;
        std::string path;
        unsigned int session = 0;
        std::string pending;    // bytes of an incomplete record
        bool regular = false;   // a regular file, which ends
    };
    using Delivery = std::pair<unsigned int, IWindowEvent::KeyEvent>;

    void run();
    // Called with sourceMutex held.
    void openSource(std::string const& path, unsigned int session);
    bool isOpen(std::string const& path) const;
    void adoptNewDevices();
    // One read; false when the source has ended.
    bool readSource(Source& source, std::vector<Delivery>& deliveries);
    std::vector<IWindowEvent::IInputEventListener*> listenersOf(unsigned int session);
    bool isListening(IWindowEvent::IInputEventListener* listener);
    void deliver(std::vector<Delivery> const& deliveries);
    void wake();

    mutable std::mutex sourceMutex;
    std::vector<std::unique_ptr<Source>> sources;
    FileDescriptor hotplug;   // inotify on the input directory, when enabled
    std::string hotplugDirectory;
    bool irEnabled = false;
    bool stopping = false;
    FileDescriptor wakeup;    // eventfd: the set of sources changed, or stop

    std::recursive_mutex deliveryMutex;
    std::mutex listenerMutex;
    std::vector<std::pair<IWindowEvent::IInputEventListener*, unsigned int>> listeners;
    std::atomic<unsigned int> filter{IWindowEvent::KeyEvent::KEY_NONE};

    std::thread reader;
};

} // namespace Velmora
