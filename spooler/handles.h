#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/platform.h"
#include "spooler/spooler_error.h"

namespace spooler {

// What a handle stands for: a printer, an Xcv session, a settings key, or the spooler itself towards
// a monitor. A call that is inside keeps its object alive when another thread closes the handle.
class HandleObject {
public:
    virtual ~HandleObject() = default;
};

// All open handles of the process. A handle is a number that is never given twice, so a stale or
// foreign one is refused with ERROR_INVALID_HANDLE instead of being followed. Any thread; the lock is
// never held while an object is destroyed, which may call into a monitor.
class HandleTable {
public:
    static HandleTable& Instance();

    HANDLE Add(std::shared_ptr<HandleObject> object);
    // Throws SpoolerError with ERROR_INVALID_HANDLE for a handle that isn't open, or of another kind.
    template <typename Kind>
    std::shared_ptr<Kind> Get(HANDLE handle)
    {
        std::shared_ptr<Kind> object = std::dynamic_pointer_cast<Kind>(Find(handle));
        if (object == nullptr)
            Throw(ERROR_INVALID_HANDLE, "The handle is not open, or of another kind.");
        return object;
    }
    // Closes a handle of this kind; the same refusals.
    template <typename Kind>
    void Close(HANDLE handle)
    {
        const std::shared_ptr<Kind> object = Get<Kind>(handle);
        if (Take(handle) == nullptr)
            Throw(ERROR_INVALID_HANDLE, "The handle is not open.");
    }
    // Closes all handles for which `chosen(handle, object)` is true.
    template <typename Predicate>
    void CloseIf(Predicate chosen)
    {
        std::vector<std::shared_ptr<HandleObject>> closed;  // destroyed behind the lock
        const std::lock_guard<std::mutex> guard(lock);
        for (auto entry = objects.begin(); entry != objects.end();) {
            if (chosen(reinterpret_cast<HANDLE>(entry->first), std::as_const(*entry->second))) {
                closed.push_back(std::move(entry->second));
                entry = objects.erase(entry);
            } else {
                ++entry;
            }
        }
    }

private:
    std::shared_ptr<HandleObject> Find(HANDLE handle);
    std::shared_ptr<HandleObject> Take(HANDLE handle);

    std::mutex lock;
    std::map<std::uintptr_t, std::shared_ptr<HandleObject>> objects;
    // Far from the numbers that the platform layer gives its own handles, and from any address.
    std::uintptr_t last = std::uintptr_t{0x5350} << 48;
};

}  // namespace spooler
