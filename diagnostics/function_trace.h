#pragma once

#include <memory>

#include "diagnostics/event_types.h"
#include "diagnostics/format_text.h"
#include "platform/platform.h"

// The scope that nearly every method opens as its first statement. Writes an entry and an exit line,
// indented by the number of scopes open on the thread, and holds the method's failure text: a method
// says in its result only that it failed, and why stands in the log.
//
// Lives on the stack of its method and is never shared; several may be open per thread. Leaves the
// thread's last error as it is. With no sink on it only counts: nothing is formatted or locked.
class CFunctionTrace {
public:
    // `scopeName` is a literal of the form Class::Method.
    explicit CFunctionTrace(const char* scopeName) : functionName(scopeName) { Enter(nullptr, {}); }

    // With the arguments of the call as text: "port = %S, server = %S".
    template <class... Args>
    CFunctionTrace(const char* scopeName, const char* format, const Args&... args) : functionName(scopeName)
    {
        Enter(format, {FormatArgument(args)...});
    }

    // Writes the exit line, with the failure text if there is one; also when an exception passes.
    ~CFunctionTrace();
    CFunctionTrace(const CFunctionTrace&) = delete;
    CFunctionTrace& operator=(const CFunctionTrace&) = delete;

    // The scope has failed, and this is why. Replaces an earlier text; an empty one takes it back. Without
    // memory for the text, the exit line says that instead.
    template <class... Args>
    void Fail(const char* format, const Args&... args)
    {
        StoreFailure(format, {FormatArgument(args)...});
    }

    // One message of type krelpmEventWarning or krelpmEventInfo, at the left margin.
    template <class... Args>
    void Log(DWORD eventType, const char* format, const Args&... args)
    {
        WriteMessage(eventType, format, {FormatArgument(args)...});
    }

private:
    void Enter(const char* format, FormatArguments arguments);
    void StoreFailure(const char* format, FormatArguments arguments);
    static void WriteMessage(DWORD eventType, const char* format, FormatArguments arguments);
    void WriteEntry(const char* format, FormatArguments arguments) const;
    void WriteExit() const;

    int depth = 0;
    bool counted = false;  // this scope is in the thread's count, whatever the event bits say later
    const char* const functionName;
    bool failed = false;
    std::unique_ptr<char[]> failureText;  // null in a failed scope: no memory for it
};

// The thread-local count of open scopes; made at attach, freed at detach.
void CreateTraceDepthSlot();
void ResetTraceDepth();
void FreeTraceDepthSlot();
