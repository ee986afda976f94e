#pragma once

#include "platform/platform.h"
#include "spooler/handles.h"
#include "spooler/instance.h"
#include "spooler/spooler_error.h"

// Marks the definition of a call that the library exports.
#define SPOOLER_EXPORT extern "C" __attribute__((visibility("default")))

namespace spooler {

// The frames of the entry functions: `action` works with exceptions, the caller gets FALSE (or null)
// with the last error and its text.
template <typename Action>
BOOL BoolCall(Action&& action)
{
    return AtTheDoor<BOOL>(FALSE, [&] {
        action();
        return TRUE;
    });
}

template <typename Kind>
std::shared_ptr<Kind> Opened(HANDLE handle)
{
    return HandleTable::Instance().Get<Kind>(handle);
}

// The platform's answers for what a caller left out or asked too much of.
template <typename Pointer>
void RequireReference(const Pointer* pointer)
{
    if (pointer == nullptr)
        Throw(RPC_X_NULL_REF_POINTER, "A required pointer is null.");
}

inline void RequireLevel(bool known)
{
    if (!known)
        Throw(ERROR_INVALID_LEVEL, "The call doesn't know this level.");
}

inline void RequireParameter(bool valid, const char* what)
{
    if (!valid)
        Throw(ERROR_INVALID_PARAMETER, what);
}

inline WideString TextOrEmpty(LPCWSTR text)
{
    return text == nullptr ? WideString() : WideString(text);
}

}  // namespace spooler
