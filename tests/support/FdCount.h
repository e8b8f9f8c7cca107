// Counts this process's open descriptors, for tests that prove nothing leaks.
#pragma once

#include <filesystem>

inline int openDescriptorCount()
{
    int count = 0;
    for ([[maybe_unused]] auto const& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        ++count;
    return count;
}
