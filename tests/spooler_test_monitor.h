#pragma once

// A port monitor with two ports that a test looks into. The library is loaded by the spooler like any
// other; the test reaches its controls through the exported TestMonitor().

#include <functional>
#include <mutex>
#include <vector>

#include "platform/platform.h"

struct TestMonitorScript {
    std::vector<WideString> ports = {TEXT("ONE"), TEXT("TWO")};
    std::vector<WideString> portsAddedByNextEnumeration;
    std::function<DWORD()> command;  // each administrator's command, with its result

    MONITORINIT init = {};
    int running = 0;                 // monitors started and not shut down
    std::vector<BYTE*> xcvPointers;  // input, output
};

struct TestMonitorControls : TestMonitorScript {
    std::recursive_mutex lock;

    template <typename Action>
    auto Locked(Action action)
    {
        const std::lock_guard guard(lock);
        return action(static_cast<TestMonitorScript&>(*this));
    }
};

extern "C" TestMonitorControls* TestMonitor();
