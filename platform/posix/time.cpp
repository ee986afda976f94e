#include <time.h>

#include <mutex>
#include <thread>

#include "platform/posix/call_switch.h"
#include "platform/posix/steady_time.h"

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

// The tick count read `anchorTicks` at the real moment `anchor`, and advances by one in each `scale`
// milliseconds since. A double holds whole milliseconds exactly for far longer than a machine runs.
struct TickClock {
    Clock::time_point anchor;
    double anchorTicks = 0;
    double scale = 1;

    double TicksAt(Clock::time_point now) const
    {
        return anchorTicks + Milliseconds(now - anchor).count() / scale;
    }
};

constinit std::mutex clockLock;
constinit TickClock tickClock;

}  // namespace

DWORD GetTickCount()
{
    posix_layer::CountCall("GetTickCount");
    const std::lock_guard lock(clockLock);
    return static_cast<DWORD>(static_cast<std::uint64_t>(tickClock.TicksAt(Clock::now())));
}

void Sleep(DWORD milliseconds)
{
    posix_layer::CountCall("Sleep");
    if (milliseconds == 0) {
        std::this_thread::yield();
    } else if (milliseconds == INFINITE) {
        for (;;)
            std::this_thread::sleep_for(std::chrono::hours(24));
    } else {
        std::this_thread::sleep_until(posix_layer::DeadlineAfter(milliseconds));
    }
}

void GetLocalTime(SYSTEMTIME* time)
{
    posix_layer::CountCall("GetLocalTime");
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    time->wYear = static_cast<WORD>(local.tm_year + 1900);
    time->wMonth = static_cast<WORD>(local.tm_mon + 1);
    time->wDayOfWeek = static_cast<WORD>(local.tm_wday);
    time->wDay = static_cast<WORD>(local.tm_mday);
    time->wHour = static_cast<WORD>(local.tm_hour);
    time->wMinute = static_cast<WORD>(local.tm_min);
    time->wSecond = static_cast<WORD>(local.tm_sec);
    time->wMilliseconds = static_cast<WORD>(now.tv_nsec / 1'000'000);
}

namespace posix_layer {

RealTime DeadlineAfter(DWORD milliseconds)
{
    const std::lock_guard lock(clockLock);
    const Milliseconds real(milliseconds * tickClock.scale);
    return Clock::now() + std::chrono::duration_cast<Clock::duration>(real);
}

void SetTimeScale(double scale)
{
    const std::lock_guard lock(clockLock);
    const auto now = Clock::now();
    tickClock = {now, tickClock.TicksAt(now), scale};
}

void SetTickCount(DWORD tick)
{
    const std::lock_guard lock(clockLock);
    tickClock = {Clock::now(), static_cast<double>(tick), tickClock.scale};
}

void ResetTime()
{
    const std::lock_guard lock(clockLock);
    tickClock = {};
}

}  // namespace posix_layer
