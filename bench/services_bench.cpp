// Boot figures. boot_overhead_ratio: init() to onBootComplete for a chain of
// ten trivial services from real packages, against a loop that starts the
// same ten programs one after another and waits for each one's RUNNING
// report. boot_pass_us: one boot pass over 50 running services in chains and
// diamonds, in microseconds.
#include "frame/FunctionCommand.h"
#include "BootWorld.h"
#include "FigureReporter.h"
#include "Signal.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <functional>
#include <memory>

using namespace Velmora;
using namespace ServiceTest;
using VelmoraTest::Signal;

namespace {

constexpr int CHAIN = 10;

std::string serviceName(int i) { return "velmora-bench-svc-" + std::to_string(i); }

std::vector<ServicePackage> chainPackages()
{
    std::vector<ServicePackage> packages{{"bench-start", "start_velmora", {}}};
    for (int i = 1; i <= CHAIN; ++i)
        packages.push_back({"bench-" + std::to_string(i), serviceName(i),
                            {i == 1 ? std::string("bench-start") : "bench-" + std::to_string(i - 1)}});
    return packages;
}

// Made at first use; its folder goes at exit.
BootWorld& chainWorld()
{
    static std::unique_ptr<BootWorld> const world = [] {
        auto made = std::make_unique<BootWorld>("bench-chain", chainPackages());
        for (int i = 1; i <= CHAIN; ++i)
            made->plainService(serviceName(i));
        return made;
    }();
    return *world;
}

struct BootWaiter : ServiceListener {
    void onBootComplete() override { signal.raise(); }
    Signal signal;
};

struct RunningWaiter : IApplication::IApplicationListener {
    void onKeepAlive(std::string const&, std::string const&) override {}
    void onStateChange(std::string const&, std::string const&, std::string const& state) override
    {
        if (state == ILifecycleManagement::STATE_RUNNING)
            signal.raise();
    }
    Signal signal;
};

void BM_BootChain10(benchmark::State& state)
{
    BootWorld& world = chainWorld();
    for (auto _ : state) {
        Box box(world);
        BootWaiter waiter;
        box.manager.addListener(&waiter);
        auto const start = std::chrono::steady_clock::now();
        box.manager.init();
        waiter.signal.waitFor(1);
        state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        box.manager.removeListener(&waiter);
    }
}
BENCHMARK(BM_BootChain10)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(10);

void BM_RawStartLoop10(benchmark::State& state)
{
    chainWorld();
    HWPApplicationFactory factory;
    for (auto _ : state) {
        RunningWaiter waiter;
        std::vector<std::unique_ptr<APPClient>> clients;
        std::vector<std::string> pids;
        auto const start = std::chrono::steady_clock::now();
        for (int i = 1; i <= CHAIN; ++i) {
            pids.push_back(factory.createApplication(serviceName(i), "Host", "1"));
            clients.emplace_back(APPClient::create(Client::Master, pids.back()));
            clients.back()->addListener(&waiter);
            clients.back()->init();
            waiter.signal.waitFor(i);
        }
        state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        for (std::string const& pid : pids)
            factory.destroyApplication(pid, true);
    }
}
BENCHMARK(BM_RawStartLoop10)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(10);

// A master whose table is filled by hand: 10 groups of start -> a -> (b, c) -> d -> e.
class PassMaster : public MasterServiceManager {
public:
    explicit PassMaster(ApplicationFactory* factory) : MasterServiceManager(factory, 0, nullptr) {}

    void prepare()
    {
        ApplicationManager::init();
        for (int g = 0; g < 10; ++g) {
            auto node = [g](char const* suffix) { return StringObject("svc" + std::to_string(g) + suffix); };
            serviceGraph.newEdge(StringObject("start_velmora" + std::to_string(g)), node("a"));
            serviceGraph.newEdge(node("a"), node("b"));
            serviceGraph.newEdge(node("a"), node("c"));
            serviceGraph.newEdge(node("b"), node("d"));
            serviceGraph.newEdge(node("c"), node("d"));
            serviceGraph.newEdge(node("d"), node("e"));
        }
        onThread([this] {
            for (int g = 0; g < 10; ++g)
                for (char const* suffix : {"a", "b", "c", "d", "e"})
                    _createApplication("svc" + std::to_string(g) + suffix, "1");
            for (auto& [uid, entry] : applications)
                entry.setLastReportedState(ILifecycleManagement::STATE_RUNNING);
        });
    }
    double timedPass()
    {
        double seconds = 0;
        onThread([&] {
            auto const start = std::chrono::steady_clock::now();
            _sequenceBootup();
            seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        });
        return seconds;
    }
    std::size_t size() const { return applications.size(); }

private:
    void onThread(std::function<void()> body) { FunctionCommand::run(*this, std::move(body)); }
};

void BM_BootPass50(benchmark::State& state)
{
    FakeClients clients;
    FakeFactory factory;
    PassMaster master(&factory);
    master.prepare();
    if (master.size() != 50)
        state.SkipWithError("table not filled");
    for (auto _ : state)
        state.SetIterationTime(master.timedPass());
}
BENCHMARK(BM_BootPass50)->UseManualTime()->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char** argv)
{
    return VelmoraBench::runFigures(argc, argv,
                                    {{"boot_overhead_ratio", "BM_BootChain10/iterations:10/manual_time",
                                      "BM_RawStartLoop10/iterations:10/manual_time"},
                                     {"boot_pass_us", "BM_BootPass50/manual_time", "", 1e-3}});
}
