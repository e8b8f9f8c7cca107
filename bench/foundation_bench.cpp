// Figures of the foundation: command hand-off, queueing, process launch and
// the serial model, each against the raw mechanism it is built on.
#include "FigureReporter.h"

#include "frame/CommandProcessor.h"
#include "HWPApplicationFactory.h"
#include "interfaces/IApplicationManager.h"
#include "serial/Serialization.h"

#include <json/reader.h>
#include <json/writer.h>

#include <condition_variable>
#include <fcntl.h>
#include <functional>
#include <deque>
#include <memory>
#include <mutex>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace Velmora;

namespace {

struct Noop : CommandProcessor::Command {
    using Command::Command;
    void call() override { benchmark::DoNotOptimize(this); }
};

// The period of the window manager's garbage collection, in milliseconds.
constexpr unsigned int GC_PERIOD = 2500;

struct Processor : CommandProcessor {
    Processor() : CommandProcessor("Bench") { init(); }
    ~Processor() override { uninit(); }
};

// A worker thread fed through one mutex and condition variable, the caller
// waiting on its own condition for the answer: the raw form of executeCommand.
class RawWorker {
public:
    RawWorker()
        : worker([this] { loop(); })
    {
    }
    ~RawWorker()
    {
        {
            std::lock_guard lock(mutex);
            stop = true;
        }
        wake.notify_one();
        worker.join();
    }
    void roundTrip()
    {
        struct Job {
            bool done = false;
            std::condition_variable cv;
        } job;
        std::unique_lock lock(mutex);
        jobs.push_back([&job] {
            job.done = true;
            job.cv.notify_one();
        });
        wake.notify_one();
        job.cv.wait(lock, [&job] { return job.done; });
    }
    void push(Noop* item)
    {
        std::lock_guard lock(mutex);
        owned.push_back(item);
        wake.notify_one();
    }

private:
    void loop()
    {
        std::unique_lock lock(mutex);
        while (!stop) {
            if (!jobs.empty()) {
                auto job = std::move(jobs.front());
                jobs.pop_front();
                job(); // runs under the lock, which the waiter needs anyway
                continue;
            }
            if (!owned.empty()) {
                Noop* item = owned.front();
                owned.pop_front();
                lock.unlock();
                item->call();
                delete item;
                lock.lock();
                continue;
            }
            wake.wait(lock);
        }
        for (Noop* item : owned)
            delete item;
    }
    std::mutex mutex;
    std::condition_variable wake;
    std::deque<std::function<void()>> jobs;
    std::deque<Noop*> owned;
    bool stop = false;
    std::thread worker;
};

void BM_ExecuteCommand(benchmark::State& state)
{
    Processor processor;
    Noop command(&processor);
    for (auto _ : state)
        processor.executeCommand(&command);
}
// Timed by the wall clock and by the CPU of the whole process, the processor's
// thread included: a waiting side that spins would show in the second.
BENCHMARK(BM_ExecuteCommand)->MeasureProcessCPUTime()->UseRealTime();

void BM_RawHandoff(benchmark::State& state)
{
    RawWorker worker;
    for (auto _ : state)
        worker.roundTrip();
}
BENCHMARK(BM_RawHandoff)->MeasureProcessCPUTime()->UseRealTime();

void BM_QueueCommand(benchmark::State& state)
{
    Processor processor;
    for (auto _ : state)
        processor.queueCommand(new Noop(&processor), true);
}
BENCHMARK(BM_QueueCommand)->UseRealTime();

void BM_RawQueuePush(benchmark::State& state)
{
    RawWorker worker;
    Processor unused;
    for (auto _ : state)
        worker.push(new Noop(&unused));
}
BENCHMARK(BM_RawQueuePush)->UseRealTime();

// The program exits by itself, as one does after it was told to terminate;
// the wait for that exit (without reaping) is the same in both loops.
void waitForExit(pid_t pid)
{
    siginfo_t info{};
    waitid(P_PID, pid, &info, WEXITED | WNOWAIT);
}

void BM_LaunchAndDestroy(benchmark::State& state)
{
    HWPApplicationFactory factory;
    for (auto _ : state) {
        std::string pid = factory.createApplication(VELMORA_TEST_CHILD, "Host", "exit");
        waitForExit(std::stoi(pid));
        factory.destroyApplication(pid, false);
    }
}
BENCHMARK(BM_LaunchAndDestroy)->UseRealTime();

void BM_RawForkExec(benchmark::State& state)
{
    for (auto _ : state) {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0)
            state.SkipWithError("pipe");
        pid_t pid = fork();
        if (pid == 0) {
            close(ends[0]);
            setenv("VELMORA_APP_HOSTNAME", "Host", 1);
            setenv("VELMORA_APP_PARAMETERS", "exit", 1);
            execlp(VELMORA_TEST_CHILD, VELMORA_TEST_CHILD, "", static_cast<char*>(nullptr));
            _exit(1);
        }
        close(ends[1]);
        char byte;
        benchmark::DoNotOptimize(read(ends[0], &byte, 1));
        close(ends[0]);
        waitForExit(pid);
        int status;
        waitpid(pid, &status, 0);
    }
}
BENCHMARK(BM_RawForkExec)->UseRealTime();

IApplicationManager::LaunchParameters const sample("1234567", "WEBAPP", "http://localhost/home/index.html",
                                                   "--fullscreen --lang=en", false);

void BM_SerialRoundTrip(benchmark::State& state)
{
    for (auto _ : state) {
        std::string text = sample.serialize();
        auto back = deserialize<IApplicationManager::LaunchParameters>(text);
        benchmark::DoNotOptimize(back.getApplicationURL().size());
    }
}
BENCHMARK(BM_SerialRoundTrip);

void BM_RawJsonRoundTrip(benchmark::State& state)
{
    Json::FastWriter writer;
    std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    for (auto _ : state) {
        // The same text as the serial model writes, type member included.
        Json::Value value(Json::objectValue);
        value["@type"] = sample.getObjectType();
        value["authorizationToken"] = sample.getAuthorizationToken();
        value["applicationType"] = sample.getApplicationType();
        value["applicationURL"] = sample.getApplicationURL();
        value["applicationParameters"] = sample.getApplicationParameters();
        value["launchFlag"] = false;
        std::string text = writer.write(value);
        Json::Value parsed;
        reader->parse(text.data(), text.data() + text.size(), &parsed, nullptr);
        std::string typeName = parsed["@type"].asString();
        std::string token = parsed["authorizationToken"].asString();
        std::string type = parsed["applicationType"].asString();
        std::string url = parsed["applicationURL"].asString();
        std::string parameters = parsed["applicationParameters"].asString();
        bool flag = parsed["launchFlag"].asBool();
        benchmark::DoNotOptimize(typeName.size() + url.size() + token.size() + type.size() + parameters.size() + flag);
    }
}
BENCHMARK(BM_RawJsonRoundTrip);

// Ten idle processors, each with a periodic command of the garbage
// collection's period, as a box's managers sit between events: the CPU that
// the process uses meanwhile, in percent of one core.
double idleCpuPercent()
{
    struct Periodic : CommandProcessor::PeriodicCommand {
        using PeriodicCommand::PeriodicCommand;
        void call() override {}
    };
    std::vector<std::unique_ptr<Processor>> processors;
    std::vector<std::unique_ptr<Periodic>> periodics;
    for (int i = 0; i < 10; ++i) {
        processors.push_back(std::make_unique<Processor>());
        periodics.push_back(std::make_unique<Periodic>(processors.back().get(), GC_PERIOD));
        processors.back()->registerPeriodicCommand(periodics.back().get());
    }
    auto cpuNow = [] {
        timespec now{};
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
        return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
    };
    auto const wall = std::chrono::seconds(5);
    auto const before = cpuNow();
    std::this_thread::sleep_for(wall);
    double const percent = 100.0 * std::chrono::duration<double>(cpuNow() - before) / wall;
    for (int i = 0; i < 10; ++i)
        periodics[i]->remove();
    return percent;
}

} // namespace

int main(int argc, char** argv)
{
    int const status =
        VelmoraBench::runFigures(argc, argv,
                                    {
                                        {"command_roundtrip_ratio", "BM_ExecuteCommand/process_time/real_time",
                                         "BM_RawHandoff/process_time/real_time"},
                                        {"command_cpu_ratio", "BM_ExecuteCommand/process_time/real_time",
                                         "BM_RawHandoff/process_time/real_time", 1.0, false, true},
                                        {"queue_command_ratio", "BM_QueueCommand/real_time", "BM_RawQueuePush/real_time"},
                                        {"launch_ratio", "BM_LaunchAndDestroy/real_time", "BM_RawForkExec/real_time"},
                                        {"serial_roundtrip_ratio", "BM_SerialRoundTrip", "BM_RawJsonRoundTrip"},
                                    });
    std::printf("figure idle_cpu_percent %.3f\n", idleCpuPercent());
    return status;
}
