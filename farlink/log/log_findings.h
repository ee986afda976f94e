#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace farlink {

// What a log tells of one port's print server. Texts are the monitor's own words.
struct LogFindings {
    struct Word {
        std::string time;  // "22:12:45.751"
        std::string text;
    };
    std::optional<Word> version;   // "1.10"
    std::optional<Word> lastNote;  // the last status: "queue position = 0, ... printer state = 3"
    std::vector<Word> failures;    // each fault's cause, the newest last
};

// `tag` is the print server and port number, as in the log. For the version the log needs its entry and
// data events, for the status its information.
LogFindings FindInLog(const std::vector<std::string_view>& records, std::string_view tag);

}  // namespace farlink
