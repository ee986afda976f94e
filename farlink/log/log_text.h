#pragma once

#include <string>
#include <string_view>
#include <vector>

// What stands in a log file of the monitor, as text. A file with a size limit is a ring: behind the newest
// line stands the marker, behind that half a line, and then what is left of the pass before. A process
// starts at the end of the file, whatever marker the last one left in it.
//
// A record is a line with a time, and what follows it up to the next one; its line end is cut off. All
// views point into the text that is handed in, which may be anything.
namespace farlink {

inline constexpr std::string_view kWrapMarker = "===wrap===\r\n";

// At the start of a line of `text`, which itself starts with one; npos if there is none.
std::size_t FindWrapMarker(std::string_view text);

// True for a line with a time.
bool BeginsRecord(std::string_view line);

// The records of a stretch of a file that is in order. Markers in it are dropped, each with the half line
// behind it.
std::vector<std::string_view> RecordsOf(std::string_view stretch);

// --- one record --------------------------------------------------------------------------------------

struct LogFields {
    std::string_view time;     // "22:12:45.751"
    std::string_view tag;      // "10.0.0.7:9100", or "N/A"
    std::string_view thread;   // "0x00002E2E"
    std::string_view message;  // its indentation too
};
// Empty fields for what isn't there.
LogFields FieldsOf(std::string_view record);

// Whether a record is older than another one, as far as times without a date tell; threads may write a tenth
// of a second out of order. False without two times.
bool IsBefore(std::string_view record, std::string_view other);

// Drops what is before `time` ("HH:MM:SS"), as it came last: the log has no dates. In a log that ends
// before that time of day, the time of the day before is meant.
void DropBefore(std::string_view time, std::vector<std::string_view>& records);

}  // namespace farlink
