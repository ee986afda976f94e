#pragma once

#include <cstdint>
#include <memory>

#include "diagnostics/diagnostic_log.h"
#include "diagnostics/event_types.h"
#include "diagnostics/format_text.h"
#include "platform/platform.h"

extern DWORD gTraceDepthSlot;

// The scope that nearly every method opens as its first statement. Writes an entry and an exit line,
// indented by the number of scopes open on the thread, and holds the method's failure text: a method
// says in its result only that it failed, and why stands in the log.
//
// Lives on the stack of its method and is never shared; several may be open per thread. Leaves the
// thread's last error as it is. With no sink on it only counts: nothing is formatted or locked.
class CFunctionTrace {
public:
    // `scopeName` is a literal of the form Class::Method.
    explicit CFunctionTrace(const char* scopeName) : functionName(scopeName)
    {
        Count();
        if (EventIsLogged(krelpmEventTrace))
            WriteEntry(nullptr, {});
    }

    // With the arguments of the call as text: "port = %S, server = %S".
    template <class... Args>
    CFunctionTrace(const char* scopeName, const char* format, const Args&... args) : functionName(scopeName)
    {
        Count();
        if (EventIsLogged(krelpmEventTrace))
            WriteEntry(format, {FormatArgument(args)...});
    }

    // Writes the exit line, with the failure text if there is one; also when an exception passes.
    ~CFunctionTrace()
    {
        if (counted && gTraceDepthSlot != TLS_OUT_OF_INDEXES)
            (void)TlsSetValue(gTraceDepthSlot,
                              AsSlotValue(depth));  // scopes end in the reverse of their order
        if (AnySinkOn())
            WriteExit();
    }
    CFunctionTrace(const CFunctionTrace&) = delete;
    CFunctionTrace& operator=(const CFunctionTrace&) = delete;

    // The scope has failed, and this is why. Replaces an earlier text; an empty one takes it back. Without
    // memory for the text, the exit line says that instead.
    template <class... Args>
    void Fail(const char* format, const Args&... args)
    {
        if (AnySinkOn())
            StoreFailure(format, {FormatArgument(args)...});
    }

    // One message of type krelpmEventWarning or krelpmEventInfo, at the left margin.
    template <class... Args>
    void Log(DWORD eventType, const char* format, const Args&... args)
    {
        if (EventIsLogged(eventType))
            WriteMessage(format, {FormatArgument(args)...});
    }

private:
    // The thread's number of open scopes lies in a slot. Reading it sets the last error even when it
    // succeeds, writing only when it fails.
    void Count()
    {
        if (!EventIsOn(krelpmEventTrace) || gTraceDepthSlot == TLS_OUT_OF_INDEXES)
            return;
        const DWORD lastError = GetLastError();
        depth = static_cast<int>(reinterpret_cast<std::intptr_t>(TlsGetValue(gTraceDepthSlot)));
        counted = TlsSetValue(gTraceDepthSlot, AsSlotValue(depth + 1)) != FALSE;
        SetLastError(lastError);
    }
    static LPVOID AsSlotValue(int count)
    {
        return reinterpret_cast<LPVOID>(static_cast<std::intptr_t>(count));
    }

    void StoreFailure(const char* format, FormatArguments arguments);
    static void WriteMessage(const char* format, FormatArguments arguments);
    void WriteEntry(const char* format, FormatArguments arguments) const;
    void WriteExit() const;

    int depth = 0;
    bool counted = false;  // this scope is in the thread's count, whatever the event bits say later
    const char* const functionName;
    bool failed = false;
    std::unique_ptr<char[]> failureText;  // null in a failed scope: no memory for it
};

// The slot of the thread's count of open scopes; made at attach, freed at detach.
void CreateTraceDepthSlot();
void ResetTraceDepth();
void FreeTraceDepthSlot();
