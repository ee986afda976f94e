#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

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

// Gives the records of a log that is being written, each once and in the order of time, over wraps and
// restarts of the writer. One look must come per pass of the writer through the file; with fewer, lines
// are overwritten unread, and as a rule the news say so.
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
    struct Place {
        std::uint64_t end;
        std::string_view lines;  // whole ones that end there, as far as they are at hand
    };

    News LookAtAll(std::uint64_t size);
    News LookBehind(std::uint64_t size, bool wrapped);
    News LookAround(std::uint64_t size);
    Place TakeBegin(std::string_view begin, News& news);
    void MoveTo(const Place& reached, std::uint64_t size);
    void FindMarkers();
    bool IsNewMarker(std::uint64_t place, std::string_view before) const;
    bool IsUnchanged(std::uint64_t size);
    bool StartIsUnchanged();
    bool LastLineIsThere();
    bool OldEndIsThere();

    LogBytes& file;
    bool begun = false;
    std::uint64_t position = 0;  // behind the last record given, where the writer goes on
    std::string lastLine;        // before `position`: gone when the writer has passed it anew
    std::string start;           // of the file: another one after a wrap
    std::uint64_t knownSize = 0;
    std::map<std::uint64_t, std::string> markers;  // all in the file, with the line before each
    std::string oldEnd;  // before `knownSize`: still there when another writer wrapped, one that began there
};

}  // namespace farlink
