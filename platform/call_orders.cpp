#include "platform/call_orders.h"

#include <algorithm>
#include <cctype>
#include <functional>
#include <map>
#include <mutex>

#include "platform/platform.h"
#include "platform/test_switches.h"

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
        return std::lexicographical_compare(
            left.begin(), left.end(), right.begin(), right.end(),
            [](unsigned char a, unsigned char b) { return std::tolower(a) < std::tolower(b); });
    }
};

struct Orders {
    std::mutex lock;
    std::map<std::string, Watch, std::less<>> watches;  // a look costs no memory
    std::map<std::string, std::vector<std::string>, IgnoringCase> resolutions;
};

// Never destroyed: calls are made while the process ends.
Orders& AllOrders()
{
    static Orders& orders = *new Orders;
    return orders;
}

}  // namespace

namespace call_orders {

std::atomic<bool> callsAreWatched{false};

bool WatchedCallFails(const char* name)
{
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

std::optional<std::vector<std::string>> Resolution(const char* name)
{
    Orders& orders = AllOrders();
    const std::lock_guard lock(orders.lock);
    const auto found = orders.resolutions.find(name);
    if (found == orders.resolutions.end())
        return std::nullopt;
    return found->second;
}

void Forget()
{
    Orders& orders = AllOrders();
    const std::lock_guard lock(orders.lock);
    callsAreWatched = false;
    orders.watches.clear();
    orders.resolutions.clear();
}

}  // namespace call_orders

namespace test_switches {

void FailCall(const char* name, DWORD error, int skip, int times)
{
    Orders& orders = AllOrders();
    const std::lock_guard lock(orders.lock);
    Watch& watch = orders.watches[name];
    watch.error = error;
    watch.skip = skip;
    watch.failures = times;
    call_orders::callsAreWatched = true;
}

void CountCalls(const char* name)
{
    Orders& orders = AllOrders();
    const std::lock_guard lock(orders.lock);
    orders.watches[name].calls = 0;
    call_orders::callsAreWatched = true;
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

}  // namespace test_switches
