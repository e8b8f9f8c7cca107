// A program for launcher tests. What it does is the text of
// VELMORA_APP_PARAMETERS:
//   "exit"          exit 0 at once
//   "sleep"         sleep until killed (SIGTERM ends it)
//   "ignore-term"   ignore SIGTERM and sleep until SIGKILL
//   "echo:<path>"   write argv, the two variables, the number of
//                   descriptors it got beyond 0 to 2, of signals blocked and
//                   of signals ignored to <path>, then exit 0
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <string>
#include <unistd.h>

int main(int argc, char** argv)
{
    char const* mode = std::getenv("VELMORA_APP_PARAMETERS");
    std::string behaviour = mode ? mode : "";
    if (behaviour.rfind("echo:", 0) == 0) {
        int inherited = 0;
        for (int fd = 3; fd < 1024; ++fd)
            inherited += fcntl(fd, F_GETFD) != -1;
        sigset_t blocked;
        sigprocmask(SIG_BLOCK, nullptr, &blocked);
        int blockedCount = 0;
        int ignoredCount = 0;
        for (int signal = 1; signal < NSIG; ++signal) {
            struct sigaction action {};
            blockedCount += sigismember(&blocked, signal) == 1;
            ignoredCount += sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
        }
        std::ofstream out(behaviour.substr(5));
        out << "argc=" << argc << "\n";
        for (int i = 0; i < argc; ++i)
            out << "argv" << i << "=" << argv[i] << "\n";
        char const* host = std::getenv("VELMORA_APP_HOSTNAME");
        out << "host=" << (host ? host : "(unset)") << "\n";
        out << "parameters=" << behaviour << "\n";
        out << "inherited=" << inherited << "\nblocked=" << blockedCount << "\nignored=" << ignoredCount << "\n";
        return 0;
    }
    if (behaviour == "exit")
        return 0;
    if (behaviour == "ignore-term")
        std::signal(SIGTERM, SIG_IGN);
    for (;;)
        pause();
}
