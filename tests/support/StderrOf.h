// What `action` writes to standard error, the product's debug lines among them. One thread.
#pragma once

#include <gtest/gtest.h>

#include <string>

namespace VelmoraTest {

template <typename Action>
std::string stderrOf(Action action)
{
    ::testing::internal::CaptureStderr();
    action();
    return ::testing::internal::GetCapturedStderr();
}

} // namespace VelmoraTest
