#include "platform/test_switches.h"

#include <strings.h>

#include <map>
#include <mutex>

#include "platform/posix/call_switch.h"
#include "platform/posix/ordered_resolutions.h"
#include "platform/posix/reported_version.h"
#include "platform/posix/steady_time.h"

namespace {

struct Watch {
    DWORD error = ERROR_SUCCESS;
    int skip = 0;
    int failures = 0;  // still to come
    int calls = 0;
};

struct IgnoringCase {
    bool operator()(const std::string& left, const std::string& right) const
    {
        return strcasecmp(left.c_str(), right.c_str()) < 0;
    }
};

struct Orders {
    std::mutex lock;
    std::map<std::string, Watch> watches;
    std::map<std::string, std::vector<std::string>, IgnoringCase> resolutions;
};

// The watch on a call that is under way, which is now counted; null when nobody watches. The lock is held.
Watch* Count(Orders& orders, const char* name)
{
    const auto found = orders.watches.find(name);
    if (found == orders.watches.end())
        return nullptr;
    ++found->second.calls;
    return &found->second;
}

// Never destroyed: calls are made while the process ends.
Orders& AllOrders()
{
    static Orders& orders = *new Orders;
    return orders;
}

}  // namespace

namespace posix_layer {

std::atomic<bool> callsAreWatched{false};

void CountWatchedCall(const char* name)
{
    Orders& orders = AllOrders();
    const std::lock_guard lock(orders.lock);
    (void)Count(orders, name);
}

bool WatchedCallFails(const char* name)
{
    Orders& orders = AllOrders();
    const std::lock_guard lock(orders.lock);
    Watch* watch = Count(orders, name);
    if (watch == nullptr || watch->failures == 0)
        return false;
    if (watch->skip > 0) {
        --watch->skip;
        return false;
    }
    --watch->failures;
    SetLastError(watch->error);
    return true;
}

std::optional<std::vector<std::string>> OrderedResolution(const char* name)
{
    Orders& orders = AllOrders();
    const std::lock_guard lock(orders.lock);
    const auto found = orders.resolutions.find(name);
    if (found == orders.resolutions.end())
        return std::nullopt;
    return found->second;
}

}  // namespace posix_layer

namespace test_switches {

void SetReportedVersion(DWORD major, DWORD minor)
{
    posix_layer::SetReportedVersion(major, minor);
}

void SetTimeScale(double scale)
{
    posix_layer::SetTimeScale(scale);
}

void SetTickCount(DWORD tick)
{
    posix_layer::SetTickCount(tick);
}

void FailCall(const char* name, DWORD error, int skip, int times)
{
    Orders& orders = AllOrders();
    const std::lock_guard lock(orders.lock);
    Watch& watch = orders.watches[name];
    watch.error = error;
    watch.skip = skip;
    watch.failures = times;
    posix_layer::callsAreWatched = true;
}

void CountCalls(const char* name)
{
    Orders& orders = AllOrders();
    const std::lock_guard lock(orders.lock);
    orders.watches[name].calls = 0;
    posix_layer::callsAreWatched = true;
}

int CallsCounted(const char* name)
{
    Orders& orders = AllOrders();
    const std::lock_guard lock(orders.lock);
    const auto found = orders.watches.find(name);
    return found == orders.watches.end() ? 0 : found->second.calls;
}

void SetResolution(const std::string& name, const std::vector<std::string>& addresses)
{
    Orders& orders = AllOrders();
    const std::lock_guard lock(orders.lock);
    orders.resolutions[name] = addresses;
}

void Reset()
{
    posix_layer::ResetReportedVersion();
    posix_layer::ResetTime();
    Orders& orders = AllOrders();
    const std::lock_guard lock(orders.lock);
    posix_layer::callsAreWatched = false;
    orders.watches.clear();
    orders.resolutions.clear();
}

}  // namespace test_switches
