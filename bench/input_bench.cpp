// Input figures, over the box's real pieces (the test world of the window
// tests: launch scripts, simulators, certificates, the input FIFO):
//   key_to_app_ratio             a press's records written into the input FIFO
//                                to its arrival in the focused application's
//                                SDK callback (this binary, started as the
//                                application), against the plainest way to do
//                                that: one process reads the records from a
//                                FIFO and passes them over a Unix socket to
//                                another. The release follows once the press
//                                has arrived, as from a hand on a remote, and
//                                is awaited untimed on both paths before the
//                                next press
//   key_to_app_p99_us            the 99th percentile of that time over 10,000 keys
//   power_key_to_request_p99_ms  the power key's records in the input FIFO to
//                                the manager's hearing of the power manager
//                                simulator's report of the requested state
//                                (an upper bound of its receipt), over 200 presses
// Both ends of each path answer the bench through the same kind of pipe.
// Run pinned to one core (taskset -c 0), the ratio is the _1core figure.
#include "FigureReporter.h"
#include "WindowBox.h"

#include "AppConnection.h"
#include "MultiInputDriver.h"

#include <benchmark/benchmark.h>

#include <linux/input.h>
#include <sys/socket.h>

using namespace Velmora;
using namespace WindowTest;

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned short KEY = KEY_OK;

// Reads whole input records from `from` and calls `each` with every key record.
template <class Each>
void forEachKey(int from, Each each)
{
    input_event record{};
    while (::read(from, &record, sizeof record) == static_cast<ssize_t>(sizeof record))
        if (record.type == EV_KEY)
            each(record);
}

// A press (1) or a release (0) of KEY with its synchronisation record, in one write.
void writeKey(int fd, int value)
{
    input_event records[2]{};
    records[0].type = EV_KEY;
    records[0].code = KEY;
    records[0].value = value;
    records[1].type = EV_SYN;
    records[1].code = SYN_REPORT;
    [[maybe_unused]] ssize_t const written = ::write(fd, records, sizeof records);
}

void answer(int fd)
{
    char const byte = 1;
    [[maybe_unused]] ssize_t const written = ::write(fd, &byte, 1);
}

// The application: answers every press and release of KEY on `replyFifo`.
int runApplication(char const* replyFifo)
{
    FileDescriptor reply(::open(replyFifo, O_WRONLY | O_CLOEXEC));
    AppConnection app;
    app.onEvent([&](Json::Value const& event) {
        if (event["code"].asUInt() == MultiInputDriver::mapKeyCode(KEY))
            answer(reply.get());
        return true;
    });
    std::mutex mutex;
    std::condition_variable ended;
    bool done = false;
    app.onTerminate([&] {
        app.reportState("TERMINATED");
        std::lock_guard lock(mutex);
        done = true;
        ended.notify_all();
    });
    app.connect();
    app.reportState("RUNNING");
    std::unique_lock lock(mutex);
    ended.wait(lock, [&] { return done; });
    return 0;
}

// A pipe end the bench reads answers from, and the time until the next answer.
double awaitAnswer(int fd, Clock::time_point start)
{
    char byte = 0;
    [[maybe_unused]] ssize_t const got = ::read(fd, &byte, 1);
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// A press of KEY written to `writer`, timed to its answer on `replies`; then
// its release, answered before the next press.
double timedPress(int writer, int replies)
{
    auto const start = Clock::now();
    writeKey(writer, 1);
    double const seconds = awaitAnswer(replies, start);
    writeKey(writer, 0);
    awaitAnswer(replies, start);
    return seconds;
}

// The plain path: FIFO -> relay process -> Unix socket -> sink process -> answer.
class Relay {
public:
    Relay()
    {
        ::mkfifo(fifo.c_str(), 0600);
        int pair[2];
        int answers[2];
        ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair);
        ::pipe2(answers, O_CLOEXEC);
        relay = ::fork();
        if (relay == 0) {
            int const in = ::open(fifo.c_str(), O_RDONLY);
            forEachKey(in, [&](input_event const& record) {
                [[maybe_unused]] ssize_t const sent = ::write(pair[0], &record, sizeof record);
            });
            ::_exit(0);
        }
        sink = ::fork();
        if (sink == 0) {
            forEachKey(pair[1], [&](input_event const&) { answer(answers[1]); });
            ::_exit(0);
        }
        ::close(pair[0]);
        ::close(pair[1]);
        ::close(answers[1]);
        replies = FileDescriptor(answers[0]);
        writer = FileDescriptor(::open(fifo.c_str(), O_WRONLY | O_CLOEXEC));
    }
    ~Relay()
    {
        writer.reset();
        for (pid_t child : {relay, sink}) {
            ::kill(child, SIGKILL);
            ::waitpid(child, nullptr, 0);
        }
        fs::remove(fifo);
    }
    double press() { return timedPress(writer.get(), replies.get()); }

private:
    fs::path const fifo = fs::temp_directory_path() / ("velmora-relay-" + std::to_string(::getpid()));
    pid_t relay = -1;
    pid_t sink = -1;
    FileDescriptor replies;
    FileDescriptor writer;
};

// The box with this binary running as the focused application, made once per process.
class InputBox {
public:
    static InputBox& get()
    {
        if (!instance)
            instance.reset(new InputBox);
        return *instance;
    }
    // Ends the box, its windows and services, before the process ends.
    static void end() { instance.reset(); }

    double press() { return timedPress(box.keyWriter.get(), replies.get()); }
    // A power key from the running state to the manager's hearing of the
    // power manager's report of standby; the box is woken again before the next.
    double powerKey()
    {
        auto const start = Clock::now();
        box.press(KEY_POWER);
        box.awaitPowerState("3");
        double const seconds = std::chrono::duration<double>(Clock::now() - start).count();
        Json::Value wake(Json::objectValue);
        wake["reason"] = 0;
        box.inject("HUX", "wakeUp", wake);
        box.awaitPowerState("0");
        return seconds;
    }

private:
    InputBox()
    {
        ::mkfifo(replyFifo.c_str(), 0600);
        replies = FileDescriptor(::open(replyFifo.c_str(), O_RDWR | O_CLOEXEC));
        // The master window first: coming up later, it would take the focus from the bench's.
        box.journal.await("focus >" + box.windows->master());
        std::string const self = fs::read_symlink("/proc/self/exe").string();
        std::string const uid = box.launch(IWindowManager::APPLICATION_TYPE_OTHER, "bench",
                                           "exec '" + self + "' app '" + replyFifo.string() + "'");
        box.journal.awaitLine([&](std::string const& line) { return line.ends_with(">" + uid); });
    }

    static inline std::unique_ptr<InputBox> instance;
    WindowBox box;
    fs::path const replyFifo = box.sandbox.root / "answers";
    FileDescriptor replies;
};

void BM_KeyToApp(benchmark::State& state)
{
    InputBox& box = InputBox::get();
    for (auto _ : state)
        state.SetIterationTime(box.press());
}
BENCHMARK(BM_KeyToApp)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(2000);

void BM_FifoRelay(benchmark::State& state)
{
    Relay relay;
    for (auto _ : state)
        state.SetIterationTime(relay.press());
}
BENCHMARK(BM_FifoRelay)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(2000);

// The 99th percentile of `samples` runs of `sample`, as the benchmark's one iteration.
template <class Sample>
void percentile99(benchmark::State& state, int samples, Sample sample)
{
    for (auto _ : state) {
        std::vector<double> times;
        for (int i = 0; i < samples; ++i)
            times.push_back(sample());
        std::sort(times.begin(), times.end());
        state.SetIterationTime(times[times.size() * 99 / 100]);
    }
}

void BM_KeyToAppP99(benchmark::State& state)
{
    percentile99(state, 10000, [] { return InputBox::get().press(); });
}
BENCHMARK(BM_KeyToAppP99)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(1)->Repetitions(1);

void BM_PowerKeyToRequestP99(benchmark::State& state)
{
    percentile99(state, 200, [] { return InputBox::get().powerKey(); });
}
BENCHMARK(BM_PowerKeyToRequestP99)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(1);

} // namespace

int main(int argc, char** argv)
{
    if (argc == 3 && std::string(argv[1]) == "app")
        return runApplication(argv[2]);
    // The power key is the manager's own in the demonstration mode; OK is routed alike in both.
    setenv("VELMORA_DEMO", "", 1);
    int const status = VelmoraBench::runFigures(
        argc, argv,
        {{"key_to_app_ratio", "BM_KeyToApp/iterations:2000/manual_time",
          "BM_FifoRelay/iterations:2000/manual_time"},
         {"key_to_app_p99_us", "BM_KeyToAppP99/iterations:1/repeats:1/manual_time", "", 1e-3},
         {"power_key_to_request_p99_ms", "BM_PowerKeyToRequestP99/iterations:1/repeats:1/manual_time", "", 1e-6}});
    InputBox::end();
    return status;
}
