#pragma once

#include <string>
#include <utility>

#include "platform/platform.h"
#include "spooler/api_visibility.h"

namespace spooler {

// A failure on its way to one of the entry functions, where it becomes the thread's last error and
// text. Nothing else is thrown in the spooler, and nothing leaves an entry function.
struct SPOOLER_API SpoolerError {
    DWORD word;
    std::string text;  // UTF-8: what is wrong and, where the user can mend it, what to do
};

[[noreturn]] void Throw(DWORD word, std::string text);

// The word of the platform for an errno value, and a failure made of it: "<what>: <system's text>".
DWORD WordOfErrno(int error);
[[noreturn]] void ThrowErrno(const std::string& what, int error);

// The calling thread's text of its last failed call.
const std::string& LastErrorText();
void SetLastErrorText(std::string text);

// The word and text of the exception that is being handled; only inside a catch clause.
SpoolerError CurrentError();

// Runs `action` and gives its result. A failure becomes the thread's last error and text, and the
// result is `failed`.
template <typename Result, typename Action>
Result AtTheDoor(Result failed, Action&& action)
{
    try {
        return std::forward<Action>(action)();
    } catch (...) {
        SpoolerError error = CurrentError();
        SetLastErrorText(std::move(error.text));
        SetLastError(error.word);
        return failed;
    }
}

}  // namespace spooler
