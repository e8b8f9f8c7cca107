// What a body does that a test reads: the ReturnCode of the Exception it
// throws (ReturnSuccess if none), and what it writes to standard error, the
// product's debug lines among them. One thread.
#pragma once

#include "frame/Exception.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

inline Velmora::ReturnCode returnCodeOf(std::function<void()> const& body)
{
    try {
        body();
    } catch (Velmora::Exception const& e) {
        return e.getCode();
    }
    return Velmora::ReturnSuccess;
}

namespace VelmoraTest {

template <typename Action>
std::string stderrOf(Action action)
{
    ::testing::internal::CaptureStderr();
    action();
    return ::testing::internal::GetCapturedStderr();
}

} // namespace VelmoraTest
