// The input driver over FIFOs and files; its IR filter is the window tests'.
#include "MultiInputDriver.h"
#include "DirectoryWatch.h"
#include "Journal.h"
#include "ScopedEnv.h"
#include "ScratchDirectory.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>

#include <fcntl.h>
#include <linux/input.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Velmora;
using KeyEvent = IWindowEvent::KeyEvent;
using Names = std::vector<std::string>;
using VelmoraTest::DirectoryWatch;

namespace {

// Each key as "<code>+" (pressed) or "<code>-".
struct Keys : IWindowEvent::IInputEventListener, VelmoraTest::Journal {
    void onInputEvent(IWindowEvent::InputEvent const& event) override
    {
        auto const& key = dynamic_cast<KeyEvent const&>(event);
        add(std::to_string(key.getKeyCode()) + (key.getPressed() ? "+" : "-"));
        if (onCall)
            onCall();
    }
    std::function<void()> onCall;
};

// A key record (value 1 press, 0 release, 2 autorepeat) and its sync record.
std::string key(unsigned short code, int value)
{
    input_event events[2]{};
    events[0].type = EV_KEY;
    events[0].code = code;
    events[0].value = value;
    events[1].type = EV_SYN;
    return std::string(reinterpret_cast<char const*>(events), sizeof(events));
}

std::string press(unsigned short code) { return key(code, 1); }

// A driver made directly takes the place of the process's InputDriver
// instance, which other tests share; this puts the one before back.
struct InstanceSlot : Singleton<InputDriver> {
    static Singleton* current() { return singleton; }
    static void putBack(Singleton* previous)
    {
        singleton = previous;
        --refCount;
    }
};

// A private root with an empty /dev/input; `start` makes a driver over the
// given device list with `keys` listening to session 0. The driver ends
// before the listeners it calls.
class InputWorld : public testing::Test {
protected:
    InputWorld() { std::filesystem::create_directories(base / "dev/input"); }
    ~InputWorld() override
    {
        if (driver) {
            driver.reset(); // destroyed, not deleted: a delete only drops a reference
            InstanceSlot::putBack(previous);
        }
        unsetenv("VELMORA_INPUT_DEVICES");
    }
    MultiInputDriver& start(std::string const& devices)
    {
        setenv("VELMORA_INPUT_DEVICES", devices.c_str(), 1);
        previous = InstanceSlot::current();
        driver.emplace();
        driver->addListener(&keys, 0);
        return *driver;
    }
    std::string fifo(std::string const& name)
    {
        std::string const path = (base / name).string();
        ::mkfifo(path.c_str(), 0600);
        return path;
    }
    static void write(std::string const& path, std::string const& bytes)
    {
        int const fd = ::open(path.c_str(), O_WRONLY | O_NONBLOCK);
        ASSERT_GE(fd, 0) << path;
        ASSERT_EQ(static_cast<ssize_t>(bytes.size()), ::write(fd, bytes.data(), bytes.size()));
        ::close(fd);
    }

    ScratchDirectory const scratch{"velmora-input"};
    std::filesystem::path const base = scratch.get();
    VelmoraTest::ScopedEnv const root{"VELMORA_ROOT", scratch.get()};
    Keys keys, other, session1;
    std::optional<MultiInputDriver> driver;
    Singleton<InputDriver>* previous = nullptr;
};

TEST_F(InputWorld, FifoRecordsReachTheirSessionWithMappedCodes)
{
    std::string const remote = fifo("remote");
    std::string const second = fifo("second");
    // The first listener leaves from its own call: the one after it still hears.
    keys.onCall = [&] { driver->removeListener(&keys); };
    start(remote + ":" + second + "@1").addListener(&other, 0);
    driver->addListener(&session1, 1);
    driver->enableIr();
    driver->enableIr(); // a second time opens nothing twice
    EXPECT_EQ(2u, driver->getSourceCount());

    std::string const bytes = press(KEY_POWER) + key(KEY_POWER, 0) + press(KEY_A);
    write(remote, bytes.substr(0, 10)); // a record split across writes
    write(remote, bytes.substr(10));
    write(second, press(KEY_HOME));
    ASSERT_TRUE(other.waitForSize(3) && session1.waitForSize(1));
    EXPECT_EQ((Names{"1+", "1-", std::to_string(MultiInputDriver::LINUX_KEY_BASE + KEY_A) + "+"}), other.all());
    EXPECT_EQ(Names{"30+"}, session1.all());
    EXPECT_EQ(1u, keys.all().size());
}

// A regular file is read to its end and dropped, an absent path skipped;
// hotplug then adopts new devices until it is switched off.
TEST_F(InputWorld, SourcesComeAndGo)
{
    std::string const path = (base / "recorded").string();
    std::ofstream(path, std::ios::binary) << press(KEY_LEFTALT) + key(KEY_LEFTALT, 2) + key(KEY_LEFTALT, 0) + "\x01\x02";
    start(path + ":" + (base / "absent").string() + ":/dev/null").enableIr();
    // The file is read to its end and dropped in the pass that finds its keys;
    // /dev/null, which ends at once, is dropped too instead of being polled
    // for ever.
    ASSERT_TRUE(keys.waitForSize(3));
    EXPECT_EQ(0u, driver->getSourceCount());
    EXPECT_EQ((Names{"56+", "56+", "56-"}), keys.all());

    driver->enableHotplug();
    DirectoryWatch inputs(base / "dev/input", DirectoryWatch::WRITES | IN_OPEN); // the driver opens what it adopts
    std::string const device = fifo("dev/input/event3");
    // The driver opens the device under the lock that the count takes.
    ASSERT_TRUE(inputs.waitFor([&] { return driver->getSourceCount() == 1; }));
    write(device, press(KEY_POWER));
    ASSERT_TRUE(keys.waitForSize(4));

    // The watch is closed when disableHotplug returns: nothing made after it is adopted.
    driver->disableHotplug();
    fifo("dev/input/event4");
    fifo("dev/input/mouse0");
    EXPECT_EQ(1u, driver->getSourceCount());
}

} // namespace
