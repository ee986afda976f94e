#include "platform/posix/handles.h"

#include <mutex>
#include <unordered_map>

#include "platform/posix/call_switch.h"

namespace {

using Objects = std::unordered_map<HANDLE, std::shared_ptr<posix_layer::KernelObject>>;

constinit std::mutex tableLock;

// Never destroyed: libraries close handles while the process ends.
Objects& Table()
{
    static Objects& table = *new Objects;
    return table;
}

}  // namespace

namespace posix_layer {

HANDLE AddHandle(std::shared_ptr<KernelObject> object)
{
    // Values are multiples of 4 as on the platform, and are not used again.
    static std::uintptr_t lastValue = 0;
    const std::lock_guard lock(tableLock);
    const auto handle = reinterpret_cast<HANDLE>(lastValue + 4);
    Table().emplace(handle, std::move(object));
    lastValue += 4;
    return handle;
}

std::shared_ptr<KernelObject> FindObject(HANDLE handle)
{
    const std::lock_guard lock(tableLock);
    const auto found = Table().find(handle);
    if (found == Table().end()) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    return found->second;
}

}  // namespace posix_layer

BOOL CloseHandle(HANDLE handle)
{
    if (posix_layer::CallFails("CloseHandle"))
        return FALSE;
    Objects::node_type closed;  // destroyed outside the lock
    {
        const std::lock_guard lock(tableLock);
        closed = Table().extract(handle);
    }
    if (closed.empty()) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    return TRUE;
}
