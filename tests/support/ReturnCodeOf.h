// The ReturnCode of the Exception that `body` throws; ReturnSuccess if none.
#pragma once

#include "frame/Exception.h"

#include <functional>

inline Velmora::ReturnCode returnCodeOf(std::function<void()> const& body)
{
    try {
        body();
    } catch (Velmora::Exception const& e) {
        return e.getCode();
    }
    return Velmora::ReturnSuccess;
}
