#include "farlink/log/log_findings.h"

#include <algorithm>
#include <map>

#include "farlink/log/hex_text.h"
#include "farlink/log/log_text.h"

namespace farlink {

namespace {

constexpr std::string_view kNote = "LPQInfo notification: ";
constexpr std::string_view kError = ": ERROR: ";
constexpr std::string_view kVersionScope = "{CCommProtocolVersion::Initialize";
constexpr std::string_view kDefaultVersion = "Defaulting communication protocol version to 1.0";

bool IsVersion(std::string_view text)
{
    return !text.empty() && text.find_first_not_of("0123456789.") == std::string_view::npos;
}

std::string Sentence(std::string_view text)
{
    return std::string(text.substr(0, text.find_last_not_of('.') + 1));
}

class Finder {
public:
    void Take(const LogFields& fields)
    {
        std::string_view message = fields.message;
        message.remove_prefix(std::min(message.find_first_not_of(' '), message.size()));
        const std::string time(fields.time);
        std::string& dump = lastDump[fields.thread];
        if (message.starts_with(':'))
            dump = BytesOfHex(message).value_or("");
        else if (message.starts_with(kVersionScope) && IsVersion(dump))
            found.version = {time, dump};
        else if (message.starts_with(kDefaultVersion))
            found.version = {time, "1.0"};
        else if (const std::size_t note = message.find(kNote); note != std::string_view::npos)
            found.lastNote = {time, Sentence(message.substr(note + kNote.size()))};
        TakeFailure(fields, message);
    }
    LogFindings found;

private:
    // A fault prints one line for each level on its way out, on one thread and next to at once.
    void TakeFailure(const LogFields& fields, std::string_view message)
    {
        const std::size_t error = message.find(kError);
        if (error == std::string_view::npos)
            return;
        const std::string_view second = fields.time.substr(0, sizeof "HH:MM:SS" - 1);
        const std::string_view thread = fields.thread;
        if (second != failedSecond || thread != failedThread)
            found.failures.push_back(
                {std::string(fields.time), std::string(message.substr(error + kError.size()))});
        failedSecond = second;
        failedThread = thread;
    }

    std::map<std::string_view, std::string> lastDump;  // by thread
    std::string_view failedSecond;
    std::string_view failedThread;
};

}  // namespace

LogFindings FindInLog(const std::vector<std::string_view>& records, std::string_view tag)
{
    Finder finder;
    for (const std::string_view record : records)
        if (const LogFields fields = FieldsOf(record); fields.tag == tag)
            finder.Take(fields);
    return std::move(finder.found);
}

}  // namespace farlink
