#include "tests/support/windows/call_orders.h"

#include <chrono>
#include <cmath>
#include <map>
#include <mutex>

#include "platform/test_switches.h"
#include "tests/support/failing_new.h"
#include "tests/support/real_calls.h"

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

struct Watch {
    DWORD error = ERROR_SUCCESS;
    int skip = 0;
    int failures = 0;  // still to come
    int calls = 0;
};

// The tick count read `anchorTicks` at the real moment `anchor`, and advances by one in each `scale`
// milliseconds since.
struct TickClock {
    Clock::time_point anchor;
    double anchorTicks = 0;
    double scale = 1;

    double TicksAt(Clock::time_point now) const
    {
        return anchorTicks + Milliseconds(now - anchor).count() / scale;
    }
};

struct IgnoringCase {
    bool operator()(const std::string& left, const std::string& right) const
    {
        return _stricmp(left.c_str(), right.c_str()) < 0;
    }
};

struct Orders {
    std::mutex lock;
    std::map<std::string, Watch> watches;
    std::map<std::string, std::vector<std::string>, IgnoringCase> resolutions;
    std::optional<call_orders::Version> version;
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

namespace call_orders {

bool CallFails(const char* name)
{
    const UntouchedNew untouched;
    Orders& orders = AllOrders();
    const std::lock_guard lock(orders.lock);
    const auto found = orders.watches.find(name);
    if (found == orders.watches.end())
        return false;
    Watch& watch = found->second;
    ++watch.calls;
    if (watch.failures == 0)
        return false;
    if (watch.skip > 0) {
        --watch.skip;
        return false;
    }
    --watch.failures;
    SetLastError(watch.error);
    return true;
}

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
    return static_cast<DWORD>(static_cast<std::uint64_t>(AllOrders().clock.TicksAt(Clock::now())));
}

std::optional<std::vector<std::string>> Resolution(const char* name)
{
    Orders& orders = AllOrders();
    const std::lock_guard lock(orders.lock);
    const auto found = orders.resolutions.find(name);
    if (found == orders.resolutions.end())
        return std::nullopt;
    return found->second;
}

const WideString& TempFolder()
{
    return AllOrders().tempFolder;
}

}  // namespace call_orders

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
    TickClock& clock = AllOrders().clock;
    const auto now = Clock::now();
    clock = {now, clock.TicksAt(now), scale};
}

void SetTickCount(DWORD tick)
{
    const std::lock_guard lock(AllOrders().lock);
    TickClock& clock = AllOrders().clock;
    clock = {Clock::now(), static_cast<double>(tick), clock.scale};
}

void FailCall(const char* name, DWORD error, int skip, int times)
{
    const std::lock_guard lock(AllOrders().lock);
    Watch& watch = AllOrders().watches[name];
    watch.error = error;
    watch.skip = skip;
    watch.failures = times;
}

void CountCalls(const char* name)
{
    const std::lock_guard lock(AllOrders().lock);
    AllOrders().watches[name].calls = 0;
}

int CallsCounted(const char* name)
{
    const std::lock_guard lock(AllOrders().lock);
    const auto found = AllOrders().watches.find(name);
    return found == AllOrders().watches.end() ? 0 : found->second.calls;
}

void SetResolution(const std::string& name, const std::vector<std::string>& addresses)
{
    const std::lock_guard lock(AllOrders().lock);
    AllOrders().resolutions[name] = addresses;
}

void Reset()
{
    Orders& orders = AllOrders();
    const std::lock_guard lock(orders.lock);
    orders.watches.clear();
    orders.resolutions.clear();
    orders.version.reset();
    orders.clock = {};
}

}  // namespace test_switches
