#include "tests/support/log_lines.h"

#include <algorithm>
#include <cctype>

LogLines& LogLines::Captured()
{
    static LogLines* const lines = new LogLines;  // lines may come to the very end of the process
    return *lines;
}

namespace {

// True when the text has the form: '#' stands for a decimal digit, 'X' for an upper-case hexadecimal one,
// every other character for itself.
bool HasForm(const std::string& text, const std::string& form)
{
    const auto fits = [](char character, char wanted) {
        const bool isDigit = std::isdigit(static_cast<unsigned char>(character)) != 0;
        if (wanted == '#')
            return isDigit;
        if (wanted == 'X')
            return isDigit || (character >= 'A' && character <= 'F');
        return character == wanted;
    };
    return text.size() == form.size() && std::equal(text.begin(), text.end(), form.begin(), fits);
}

}  // namespace

LogLine ParseLogLine(const std::string& text)
{
    LogLine line;
    line.message = text;
    const std::size_t tab = text.find('\t');
    const std::size_t tagEnd = text.find(' ', 13);
    if (tab == std::string::npos || tagEnd > tab || !text.ends_with("\r\n") ||
        !HasForm(text.substr(0, 13), "##:##:##.### ") ||
        !HasForm(text.substr(tagEnd, tab - tagEnd), " 0xXXXXXXXX"))
        return line;
    line.time = text.substr(0, 12);
    line.tag = text.substr(13, tagEnd - 13);
    line.threadId = static_cast<DWORD>(std::stoul(text.substr(tagEnd + 3, 8), nullptr, 16));
    line.message = text.substr(tab + 1, text.size() - tab - 3);
    line.wellFormed = true;
    return line;
}

void LogLines::Clear()
{
    std::lock_guard held(lock);
    lines.clear();
    hook = nullptr;
}

void LogLines::AtLine(const std::string& text, std::function<void()> newHook)
{
    std::lock_guard held(lock);
    hookedText = text;
    hook = std::move(newHook);
}

void LogLines::Add(const char* text)
{
    std::function<void()> due;
    {
        std::lock_guard held(lock);
        lines.push_back(ParseLogLine(text));
        added.notify_all();
        if (hook && lines.back().message.find(hookedText) != std::string::npos)
            due.swap(hook);
    }
    if (due)
        due();
}

std::vector<LogLine> LogLines::All() const
{
    std::lock_guard held(lock);
    return lines;
}

std::vector<std::string> LogLines::Messages() const
{
    std::vector<std::string> messages;
    for (const LogLine& line : All())
        messages.push_back(line.message);
    return messages;
}

std::vector<std::string> LogLines::MessagesOfThread(DWORD threadId) const
{
    std::vector<std::string> messages;
    for (const LogLine& line : All()) {
        if (line.threadId == threadId)
            messages.push_back(line.message);
    }
    return messages;
}

int LogLines::Count(const std::string& text) const
{
    std::lock_guard held(lock);
    return static_cast<int>(std::count_if(lines.begin(), lines.end(), [&](const LogLine& line) {
        return line.message.find(text) != std::string::npos;
    }));
}

std::vector<std::string> LogLines::Failures() const
{
    const std::string mark = ": ERROR: ";
    std::vector<std::string> failures;
    for (const std::string& message : Messages()) {
        const std::size_t end = message.find(mark);
        if (end == std::string::npos)
            continue;
        const std::size_t start = message.find_first_not_of(" }");
        failures.push_back(message.substr(start, end - start) + ": " + message.substr(end + mark.size()));
    }
    return failures;
}

bool LogLines::WaitFor(const std::string& text, std::chrono::seconds limit) const
{
    std::unique_lock held(lock);
    return added.wait_for(held, limit, [&] {
        return std::any_of(lines.begin(), lines.end(),
                           [&](const LogLine& line) { return line.message.find(text) != std::string::npos; });
    });
}
