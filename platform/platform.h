#pragma once

// The one door to the operating system. The build files choose the folder that win32.h comes from:
// platform/posix/ (this project's own layer of the Win32 calls that the monitor makes) or
// platform/windows/ (the system's headers). Nothing outside platform/, printserver/ and farlink/ asks which
// of the two it got.

#include <string>
#include <string_view>

#include "win32.h"

using WideString = std::basic_string<WCHAR>;
using WideStringView = std::basic_string_view<WCHAR>;

// What is no character in the one encoding (a lone surrogate, an overlong or broken sequence) becomes U+FFFD
// in the other. Any thread.
std::string ToUtf8(WideStringView text);
WideString ToUtf16(std::string_view text);

// Ends every call that is blocked on the socket: both directions are shut down, and pending
// operations are cancelled where the system can do that. Calls that begin later don't block: a send
// fails, a recv may first give what had come, then 0 or a failure. A connect that has not yet reached the
// system may miss it, so whoever wants to be sure repeats the call. Doesn't close the socket; the last thread
// inside a call on it does that. Any thread.
void WakeBlockedCalls(SOCKET socket);

// True when a send of a few bytes on the socket would not block. Any thread.
bool IsWritable(SOCKET socket);

// Keeps the library that contains `address` loaded until the process ends. For a thread that can't
// be waited for any longer but will still return into the library's code. Any thread.
void PinModule(const void* address);

// While it lives, the thread acts as its process does, and not as the client that it may stand for: what it
// opens then is the process's own. On one thread, to the end of a block. Keeps the last error. On Linux
// nothing, since there no thread stands for another user.
class CProcessIdentity {
public:
    CProcessIdentity();
    ~CProcessIdentity();
    CProcessIdentity(const CProcessIdentity&) = delete;
    CProcessIdentity& operator=(const CProcessIdentity&) = delete;

private:
    [[maybe_unused]] HANDLE client = nullptr;  // the token to go back to
};

// A function under another type, as GetProcAddress makes necessary: FARPROC has a signature of its own. The
// type is the caller's word.
template <class To, class From>
To FunctionCast(From* function)
{
    return reinterpret_cast<To>(reinterpret_cast<void*>(function));
}
