#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "farlink/log/newest_lines.h"

namespace farlink {

// Gives the records of a log that is being written, each once and in the order of time, over wraps and
// restarts of the writer. One look must come per pass of the writer through the file; with fewer, lines
// are overwritten unread, and the news say so.
class LogFollower {
public:
    explicit LogFollower(LogBytes& followed) : file(followed) {}

    struct News {
        std::vector<std::string> records;
        bool incomplete = false;  // the writer was faster
    };
    // What came since the last look; in the first, all that is there.
    News Look();

private:
    bool HasGrown(std::uint64_t size);
    News LookBehind(const std::vector<std::string_view>& records);
    // What stands around the newest line's end and at the start of the file: where a writer goes on.
    std::string Marks();

    LogBytes& file;
    bool begun = false;
    bool isSettled = false;  // nothing new until the file changes
    bool hasMarker = false;
    int looksWithoutMarker = 0;  // that had one before
    std::string last;            // the first line of the newest record given
    std::uint64_t size = 0;      // of the file
    std::uint64_t end = 0;       // behind the newest line
    std::string marks;
};

}  // namespace farlink
