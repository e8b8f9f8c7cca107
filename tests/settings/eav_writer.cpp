// A child process for store tests. Its first argument is the mode:
//   stream <dir> <n> <us>  write forever; after each write returns, print its
//                       index (every fourth write is a list of three values);
//                       <us> microseconds after the <n>th, die by SIGKILL,
//                       somewhere in the middle of a later write
//   fill <dir> <bytes>  cap file growth at <bytes> more, write until the store
//                       refuses; print "ok <i>" per write that returned, then
//                       "full <code>"; exit 0 on a clean Exception
//   open <dir>          open the store, as user "nobody" when run as root;
//                       print "opened" (exit 0) or "failed <code>" (exit 1)
#include "store/EAVStore.h"
#include "frame/Exception.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

using namespace Velmora;

namespace {

char const* const STORE_NAME = "Probe";

int stream(std::string const& directory, unsigned long writes, unsigned long microseconds)
{
    EAVStore store(STORE_NAME, directory, ".db");
    store.init();
    for (unsigned long i = 0;; ++i) {
        if (i == writes)
            std::thread([microseconds] {
                std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
                ::kill(::getpid(), SIGKILL);
            }).detach();
        std::string index = std::to_string(i);
        if (i % 4 == 3)
            store.setValueList({{"batch" + index, {"a", index}}, {"batch" + index, {"b", index}},
                                {"batch" + index, {"c", index}}});
        else
            store.setValue("single", "k" + index, "v" + index);
        std::printf("%lu\n", i);
        std::fflush(stdout);
    }
}

std::uintmax_t directorySize(std::string const& directory)
{
    std::uintmax_t total = 0;
    for (auto const& entry : std::filesystem::directory_iterator(directory))
        total += entry.file_size();
    return total;
}

int fill(std::string const& directory, unsigned long headroom)
{
    std::signal(SIGXFSZ, SIG_IGN);
    EAVStore store(STORE_NAME, directory, ".db");
    store.init();
    store.setValue("fill", "before", "present");
    rlim_t limit = directorySize(directory) + headroom;
    rlimit cap{limit, limit};
    setrlimit(RLIMIT_FSIZE, &cap);
    std::string const payload(4096, 'x');
    for (int i = 0; i < 10000; ++i) {
        try {
            store.setValue("fill", std::string("k").append(std::to_string(i)), payload);
        } catch (Exception const& e) {
            std::printf("full %d\n", static_cast<int>(e.getCode()));
            return 0;
        }
        std::printf("ok %d\n", i);
        std::fflush(stdout);
    }
    return 3;
}

int open(std::string const& directory)
{
    if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0))
        return 2;
    EAVStore store(STORE_NAME, directory, ".db");
    try {
        store.init();
    } catch (Exception const& e) {
        std::printf("failed %d\n", static_cast<int>(e.getCode()));
        return 1;
    }
    std::printf("opened\n");
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    std::string mode = argc > 2 ? argv[1] : "";
    if (mode == "stream" && argc > 4)
        return stream(argv[2], std::strtoul(argv[3], nullptr, 10), std::strtoul(argv[4], nullptr, 10));
    if (mode == "fill" && argc > 3)
        return fill(argv[2], std::strtoul(argv[3], nullptr, 10));
    if (mode == "open")
        return open(argv[2]);
    return 64;
}
