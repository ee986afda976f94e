#pragma once

// The steady clock as a tick count, with the scale that tests may put on it. Not locked.

#include <chrono>
#include <cstdint>

#include "platform/platform.h"

// The count read `anchorTicks` at the real moment `anchor`, and advances by one in each `scale` milliseconds
// since. A double holds whole milliseconds exactly for far longer than a machine runs.
struct TickClock {
    using Clock = std::chrono::steady_clock;
    using Milliseconds = std::chrono::duration<double, std::milli>;

    Clock::time_point anchor;
    double anchorTicks = 0;
    double scale = 1;

    DWORD Now() const { return static_cast<DWORD>(static_cast<std::uint64_t>(TicksAt(Clock::now()))); }
    void SetScale(double newScale)
    {
        const auto now = Clock::now();
        *this = {now, TicksAt(now), newScale};
    }
    void SetTicks(DWORD tick) { *this = {Clock::now(), static_cast<double>(tick), scale}; }

private:
    double TicksAt(Clock::time_point now) const
    {
        return anchorTicks + Milliseconds(now - anchor).count() / scale;
    }
};
