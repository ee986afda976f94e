#include <time.h>

#include <mutex>
#include <thread>

#include "platform/posix/call_switch.h"
#include "platform/posix/steady_time.h"
#include "platform/tick_clock.h"

namespace {

constinit std::mutex clockLock;
constinit TickClock tickClock;

// The lines of a busy log share their second, and working it out costs more than the rest of a line.
const tm& LocalSecond(time_t second)
{
    thread_local time_t known = -1;
    thread_local tm local{};
    if (second != known && localtime_r(&second, &local) != nullptr)
        known = second;
    return local;
}

}  // namespace

DWORD GetTickCount()
{
    posix_layer::CountCall("GetTickCount");
    const std::lock_guard lock(clockLock);
    return tickClock.Now();
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
    const tm& local = LocalSecond(now.tv_sec);
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
    const TickClock::Milliseconds real(milliseconds * tickClock.scale);
    return TickClock::Clock::now() + std::chrono::duration_cast<TickClock::Clock::duration>(real);
}

void SetTimeScale(double scale)
{
    const std::lock_guard lock(clockLock);
    tickClock.SetScale(scale);
}

void SetTickCount(DWORD tick)
{
    const std::lock_guard lock(clockLock);
    tickClock.SetTicks(tick);
}

void ResetTime()
{
    const std::lock_guard lock(clockLock);
    tickClock = {};
}

}  // namespace posix_layer
