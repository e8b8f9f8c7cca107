// Window figures, over real processes, launch scripts, simulators and
// certificates, as a box runs them:
//   launch_to_focus_ratio         launch() to the onFocusChange that names the
//                                 new window (the SDK's test program, started
//                                 by its launch script), against the plainest
//                                 way to do that work: fork and exec of the
//                                 same program and its first message back
//                                 over a Unix socket
//   launch_to_focus_p99_ms        the 99th percentile of that time over 200
//                                 launch and terminate cycles
//   launch_cycles_rss_growth_kib  the resident memory after 2,000 cycles, less
//                                 that after the first 100
//   journal_launch_overhead_ratio launch to focus with the lifecycle journal
//                                 (ring, file and writer thread) against
//                                 launch_to_focus without it
// The last two are measured once per run (their own benchmark time carries
// the figure). Run pinned to one core (taskset -c 0), the ratio is the
// _1core figure.
#include "FigureReporter.h"
#include "LifecycleJournal.h"
#include "WindowBenchBox.h"
#include "rpc/RuntimeDirectory.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <csignal>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Velmora;
using namespace VelmoraBench;
namespace fs = std::filesystem;

namespace {

// The plain way: fork, exec the program, and read its first message on a Unix socket.
double rawStart(std::string const& program)
{
    fs::path const socketPath = RuntimeDirectory::endpointPath("BenchRaw");
    fs::remove(socketPath);
    int const listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, socketPath.c_str(), sizeof(address.sun_path) - 1);
    ::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(address));
    ::listen(listener, 1);
    auto const start = Clock::now();
    pid_t const child = ::fork();
    if (child == 0) {
        setenv("VELMORA_APP_HOSTNAME", "BenchRaw", 1);
        setenv("VELMORA_APP_PARAMETERS", "{}", 1);
        ::execlp(program.c_str(), program.c_str(), "", static_cast<char*>(nullptr));
        ::_exit(1);
    }
    int const connection = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    char first = 0;
    ::read(connection, &first, 1);
    double const seconds = std::chrono::duration<double>(Clock::now() - start).count();
    ::close(connection);
    ::close(listener);
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    return seconds;
}

void BM_LaunchToFocus(benchmark::State& state)
{
    BenchBox& box = BenchBox::get();
    for (auto _ : state)
        state.SetIterationTime(box.cycle());
}
BENCHMARK(BM_LaunchToFocus)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(20);

void BM_LaunchToFocusJournalled(benchmark::State& state)
{
    BenchBox& box = BenchBox::get();
    LifecycleJournal journal(box.journalPath().string());
    journal.start();
    box.observeWith(&journal);
    for (auto _ : state)
        state.SetIterationTime(box.cycle());
    box.observeWith(nullptr);
}
BENCHMARK(BM_LaunchToFocusJournalled)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(20);

void BM_ForkExecFirstMessage(benchmark::State& state)
{
    BenchBox& box = BenchBox::get();
    for (auto _ : state)
        state.SetIterationTime(rawStart(box.program));
}
BENCHMARK(BM_ForkExecFirstMessage)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(20);

// The benchmark's time is the 99th percentile of 200 cycles.
void BM_LaunchToFocusP99(benchmark::State& state)
{
    BenchBox& box = BenchBox::get();
    for (auto _ : state) {
        std::vector<double> times;
        for (int i = 0; i < 200; ++i)
            times.push_back(box.cycle());
        std::sort(times.begin(), times.end());
        state.SetIterationTime(times[times.size() * 99 / 100]);
    }
}
BENCHMARK(BM_LaunchToFocusP99)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(1);

long residentKiB()
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmRSS:", 0) == 0)
            return std::stol(line.substr(6));
    return 0;
}

// The benchmark's time, in nanoseconds, is the growth in KiB (at least 1, so that the figure shows).
void BM_LaunchCyclesRss(benchmark::State& state)
{
    BenchBox& box = BenchBox::get();
    for (auto _ : state) {
        for (int i = 0; i < 100; ++i)
            box.cycle();
        long const early = residentKiB();
        for (int i = 100; i < 2000; ++i)
            box.cycle();
        state.SetIterationTime(std::max(1L, residentKiB() - early) * 1e-9);
    }
}
BENCHMARK(BM_LaunchCyclesRss)->UseManualTime()->Unit(benchmark::kNanosecond)->Iterations(1)->Repetitions(1);

} // namespace

int main(int argc, char** argv)
{
    int const result = VelmoraBench::runFigures(
        argc, argv,
        {{"launch_to_focus_ratio", "BM_LaunchToFocus/iterations:20/manual_time",
          "BM_ForkExecFirstMessage/iterations:20/manual_time"},
         {"journal_launch_overhead_ratio", "BM_LaunchToFocusJournalled/iterations:20/manual_time",
          "BM_LaunchToFocus/iterations:20/manual_time"},
         {"launch_to_focus_p99_ms", "BM_LaunchToFocusP99/iterations:1/repeats:1/manual_time", "", 1e-6},
         {"launch_cycles_rss_growth_kib", "BM_LaunchCyclesRss/iterations:1/repeats:1/manual_time", "", 1.0}});
    BenchBox::release();
    return result;
}
