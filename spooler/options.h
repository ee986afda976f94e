#pragma once

#include <atomic>

#include "platform/platform.h"

namespace spooler {

// What SetSpoolerOptions sets. Any thread.
struct Options {
    std::atomic<bool> runAcceptedJobs = true;
    std::atomic<DWORD> attemptLimit = 10;
};

inline Options& ProcessOptions()
{
    static Options options;
    return options;
}

}  // namespace spooler
