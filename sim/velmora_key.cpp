// velmora-key [--fifo PATH] NAME... (or --help): presses the remote's keys by name, as a
// receiver would, by writing input records into the FIFO that the input
// driver reads: PATH, else the first entry of VELMORA_INPUT_DEVICES.
// Exit status: 0 pressed, 1 the FIFO could not be written, 2 bad usage.
#include "KeyNames.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <vector>

using Velmora::KeyNames;

namespace {

// The usage on `out`; `status` is the exit status that goes with it.
int usage(FILE* out, int status)
{
    std::fprintf(out, "usage: velmora-key [--fifo PATH] NAME...\n"
                      "Presses the remote's keys into the FIFO of the box's input driver (PATH, else the first\n"
                      "entry of VELMORA_INPUT_DEVICES, which eval \"$(scripts/demo --env)\" sets).\nnames:");
    for (KeyNames::Key const& key : KeyNames::all())
        std::fprintf(out, " %.*s", static_cast<int>(key.name.size()), key.name.data());
    std::fprintf(out, "\n");
    return status;
}

// The first source of VELMORA_INPUT_DEVICES, without its "@session".
std::string configuredFifo()
{
    char const* list = std::getenv("VELMORA_INPUT_DEVICES");
    std::string first = list ? std::string(list).substr(0, std::string(list).find(':')) : "";
    return first.substr(0, first.rfind('@'));
}

} // namespace

int main(int argc, char** argv)
{
    std::string fifo = configuredFifo();
    std::vector<unsigned short> codes;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0)
            return usage(stdout, 0);
        if (std::strcmp(argv[i], "--fifo") == 0 && i + 1 < argc) {
            fifo = argv[++i];
            continue;
        }
        // No key name starts with "-": an option it does not know, or --fifo without its PATH.
        if (argv[i][0] == '-') {
            std::fprintf(stderr, "velmora-key: %s %s\n", argv[i],
                         std::strcmp(argv[i], "--fifo") == 0 ? "needs a PATH" : "is no option");
            return usage(stderr, 2);
        }
        auto const code = KeyNames::linuxCode(argv[i]);
        if (!code) {
            std::fprintf(stderr, "velmora-key: unknown key %s\n", argv[i]);
            return usage(stderr, 2);
        }
        codes.push_back(*code);
    }
    if (codes.empty())
        return usage(stderr, 2);
    if (fifo.empty()) {
        std::fprintf(stderr, "velmora-key: no FIFO: give --fifo PATH or set VELMORA_INPUT_DEVICES "
                             "(eval \"$(scripts/demo --env)\" sets it for the demo's box)\n");
        return 2;
    }
    int const fd = ::open(fifo.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        std::fprintf(stderr, "velmora-key: %s: %s\n", fifo.c_str(), KeyNames::whyNotOpen(errno).c_str());
        return 1;
    }
    int status = 0;
    for (unsigned short code : codes)
        if (!KeyNames::writePress(fd, code)) {
            std::fprintf(stderr, "velmora-key: %s: %s\n", fifo.c_str(), std::strerror(errno));
            status = 1;
            break;
        }
    ::close(fd);
    return status;
}
