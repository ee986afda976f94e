#pragma once

// What stands behind a HANDLE of the layer. A handle is a number in one table of the process, never an
// address: a stale or foreign handle is found out instead of being followed, and an object lives
// until the last call on it is over, even when another thread closes the handle meanwhile.

#include <memory>

#include "platform/posix/win32_kernel.h"

namespace posix_layer {

// Base of all that has a handle.
class KernelObject {
public:
    KernelObject() = default;
    KernelObject(const KernelObject&) = delete;
    KernelObject& operator=(const KernelObject&) = delete;
    virtual ~KernelObject() = default;
};

// Enters an object under a new handle. Throws std::bad_alloc. Any thread.
HANDLE AddHandle(std::shared_ptr<KernelObject> object);

// The object of a handle; null with ERROR_INVALID_HANDLE when there is none. Any thread.
std::shared_ptr<KernelObject> FindObject(HANDLE handle);

// The same for one class of objects.
template <class Object>
std::shared_ptr<Object> Find(HANDLE handle)
{
    auto object = std::dynamic_pointer_cast<Object>(FindObject(handle));
    if (!object)
        SetLastError(ERROR_INVALID_HANDLE);
    return object;
}

}  // namespace posix_layer
