#include "tests/support/windows/ordered_system.h"

#include <cmath>
#include <mutex>

#include "platform/call_orders.h"
#include "platform/test_switches.h"
#include "platform/tick_clock.h"
#include "tests/support/real_calls.h"

namespace {

struct Orders {
    std::mutex lock;
    std::optional<ordered_system::Version> version;
    TickClock clock;
    WideString tempFolder;
};

// Never destroyed: calls are made while the process ends.
Orders& AllOrders()
{
    static Orders& orders = *new Orders;
    return orders;
}

}  // namespace

namespace ordered_system {

std::optional<Version> ReportedVersion()
{
    const std::lock_guard lock(AllOrders().lock);
    return AllOrders().version;
}

DWORD RealWait(DWORD milliseconds)
{
    const std::lock_guard lock(AllOrders().lock);
    return milliseconds == INFINITE ? INFINITE
                                    : static_cast<DWORD>(std::lround(milliseconds * AllOrders().clock.scale));
}

DWORD TickCount()
{
    const std::lock_guard lock(AllOrders().lock);
    return AllOrders().clock.Now();
}

const WideString& TempFolder()
{
    return AllOrders().tempFolder;
}

}  // namespace ordered_system

void SetTempFolder(const std::filesystem::path& folder)
{
    AllOrders().tempFolder = folder.native();
}

namespace test_switches {

void SetReportedVersion(DWORD major, DWORD minor)
{
    const std::lock_guard lock(AllOrders().lock);
    AllOrders().version = {major, minor};
}

void SetTimeScale(double scale)
{
    const std::lock_guard lock(AllOrders().lock);
    AllOrders().clock.SetScale(scale);
}

void SetTickCount(DWORD tick)
{
    const std::lock_guard lock(AllOrders().lock);
    AllOrders().clock.SetTicks(tick);
}

void Reset()
{
    call_orders::Forget();
    const std::lock_guard lock(AllOrders().lock);
    AllOrders().version.reset();
    AllOrders().clock = {};
}

}  // namespace test_switches
