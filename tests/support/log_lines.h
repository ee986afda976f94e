#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "platform/platform.h"

// One line of the log as it reached the debugger output, taken apart.
struct LogLine {
    std::string time;  // "hh:mm:ss.mmm"
    std::string tag;   // "server:port" or "N/A"
    DWORD threadId = 0;
    std::string message;
    bool wellFormed = false;  // the whole line was of the one form
};

// What the monitor wrote to OutputDebugStringA, which MonitorFixture turns on. Any thread.
class LogLines {
public:
    static LogLines& Captured();

    void Clear();
    void Add(const char* text);

    std::vector<LogLine> All() const;
    std::vector<std::string> Messages() const;
    std::vector<std::string> MessagesOfThread(DWORD threadId) const;
    // Lines whose message contains the text.
    bool Has(const std::string& text) const { return Count(text) > 0; }
    int Count(const std::string& text) const;
    // The failure texts in the order of the exit lines: "Class::Method: text".
    std::vector<std::string> Failures() const;
    // Waits for such a line; false after the limit.
    bool WaitFor(const std::string& text, std::chrono::seconds limit = std::chrono::seconds(30)) const;

    // Runs the hook once: at the next line that contains the text, on the thread that writes it and before
    // that thread goes on. One at a time; Clear forgets it.
    void AtLine(const std::string& text, std::function<void()> hook);

private:
    mutable std::mutex lock;
    mutable std::condition_variable added;
    std::vector<LogLine> lines;
    std::string hookedText;
    std::function<void()> hook;
};

LogLine ParseLogLine(const std::string& text);
