// Waits for a condition that a change of files in one directory brings
// about: the condition is tested anew after every inotify event there, for up
// to 30 s. Made before the action whose effect it waits for, it loses no
// event. Wakes on writes by default (a condition may read files without
// waking it); a file changed through a memory map tells nothing.
// Threads: one test thread.
#pragma once

#include <chrono>
#include <filesystem>
#include <poll.h>
#include <stdexcept>
#include <sys/inotify.h>
#include <unistd.h>

namespace VelmoraTest {

class DirectoryWatch {
public:
    static constexpr unsigned int WRITES =
        IN_CREATE | IN_MODIFY | IN_CLOSE_WRITE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE | IN_ATTRIB;

    explicit DirectoryWatch(std::filesystem::path const& directory, unsigned int events = WRITES)
        : fd(inotify_init1(IN_CLOEXEC | IN_NONBLOCK))
    {
        if (fd < 0 || inotify_add_watch(fd, directory.c_str(), events) < 0)
            throw std::runtime_error("cannot watch " + directory.string());
    }
    ~DirectoryWatch() { close(fd); }
    DirectoryWatch(DirectoryWatch const&) = delete;
    DirectoryWatch& operator=(DirectoryWatch const&) = delete;

    template <class Condition>
    bool waitFor(Condition condition)
    {
        auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (!condition()) {
            auto const left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline -
                                                                                    std::chrono::steady_clock::now());
            if (left.count() <= 0)
                return condition();
            pollfd ready{fd, POLLIN, 0};
            if (poll(&ready, 1, static_cast<int>(left.count())) > 0) {
                alignas(inotify_event) char events[4096];
                while (read(fd, events, sizeof events) > 0) {
                }
            }
        }
        return true;
    }

private:
    int fd;
};

} // namespace VelmoraTest
