// Counts this process's open descriptors and threads, for tests that prove nothing leaks.
#pragma once

#include <filesystem>
#include <iterator>

inline int entriesOf(char const* directory)
{
    return static_cast<int>(std::distance(std::filesystem::directory_iterator(directory), {}));
}
inline int openDescriptorCount() { return entriesOf("/proc/self/fd"); }
inline int threadCount() { return entriesOf("/proc/self/task"); }
