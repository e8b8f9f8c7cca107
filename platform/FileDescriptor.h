// Owns one file descriptor and closes it when it goes. Movable, not copyable.
#pragma once

#include <unistd.h>
#include <utility>

namespace Velmora {

class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int fd) : fd(fd) {}
    ~FileDescriptor() { reset(); }
    FileDescriptor(FileDescriptor&& other) noexcept : fd(std::exchange(other.fd, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept
    {
        if (this != &other) {
            reset();
            fd = std::exchange(other.fd, -1);
        }
        return *this;
    }
    FileDescriptor(FileDescriptor const&) = delete;
    FileDescriptor& operator=(FileDescriptor const&) = delete;

    int get() const { return fd; }
    bool valid() const { return fd >= 0; }
    void reset()
    {
        if (fd >= 0)
            ::close(fd);
        fd = -1;
    }

private:
    int fd = -1;
};

} // namespace Velmora
