// A program for launcher tests. What it does is the text of
// VELMORA_APP_PARAMETERS:
//   "exit"          exit 0 at once
//   "sleep"         sleep until killed (SIGTERM ends it)
//   "ignore-term"   ignore SIGTERM and sleep until SIGKILL
//   "echo:<path>"   write argv, the two variables and the number of
//                   descriptors it got beyond 0 to 2 to <path>, then exit 0
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
        std::ofstream out(behaviour.substr(5));
        out << "argc=" << argc << "\n";
        for (int i = 0; i < argc; ++i)
            out << "argv" << i << "=" << argv[i] << "\n";
        char const* host = std::getenv("VELMORA_APP_HOSTNAME");
        out << "host=" << (host ? host : "(unset)") << "\n";
        out << "parameters=" << behaviour << "\n";
        out << "inherited=" << inherited << "\n";
        return 0;
    }
    if (behaviour == "exit")
        return 0;
    if (behaviour == "ignore-term")
        std::signal(SIGTERM, SIG_IGN);
    for (;;)
        pause();
}
