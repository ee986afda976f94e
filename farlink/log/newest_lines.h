#pragma once

#include <cstdint>
#include <string>

namespace farlink {

// A file that another process writes to.
class LogBytes {
public:
    virtual ~LogBytes() = default;
    // 0 for a file that isn't there.
    virtual std::uint64_t Size() = 0;
    // Fewer when the file has become shorter.
    virtual std::string Read(std::uint64_t from, std::uint64_t to) = 0;
};

struct NewestLines {
    std::string lines;       // whole ones in the order of time, for RecordsOf
    std::uint64_t end = 0;   // the place in the file behind the newest of them, where the next one goes
    bool hasMarker = false;  // as any log with a limit
};

// At most so many bytes of a log, the newest. Only of the last process that wrote is the order sure. The file
// is never in memory as a whole.
NewestLines ReadNewestLines(LogBytes& file, std::uint64_t most);

}  // namespace farlink
