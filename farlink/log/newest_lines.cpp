#include "farlink/log/newest_lines.h"

#include <algorithm>
#include <optional>

#include "farlink/log/log_text.h"

namespace farlink {

namespace {

constexpr std::uint64_t kPiece = std::uint64_t{1} << 20;

// The first marker, at the start of a line.
std::optional<std::uint64_t> FindMarker(LogBytes& file, std::uint64_t size)
{
    for (std::uint64_t at = 0; at < size; at += kPiece) {
        const std::uint64_t from = at - std::min<std::uint64_t>(at, kWrapMarker.size());
        const std::string piece = file.Read(from, std::min(size, at + kPiece));
        for (std::size_t found = piece.find(kWrapMarker); found != std::string::npos;
             found = piece.find(kWrapMarker, found + 1))
            if (from + found == 0 || (found > 0 && piece[found - 1] == '\n'))
                return from + found;
    }
    return std::nullopt;
}

// A line that is still being written is left for the next look.
void CutToWholeLines(std::string& lines)
{
    lines.resize(lines.rfind('\n') + 1);  // npos + 1 is 0
}

}  // namespace

// A wrap cuts the file off where it was, so a marker at the very end means that its writer has not wrapped
// yet. Otherwise the writer goes through the file from its start, and the first marker is its own.
NewestLines ReadNewestLines(LogBytes& file, std::uint64_t most)
{
    const std::uint64_t size = file.Size();
    const std::uint64_t lastMarker = size - std::min<std::uint64_t>(size, kWrapMarker.size());
    const bool atEnd = size > 0 && file.Read(lastMarker, size) == kWrapMarker;
    const std::optional<std::uint64_t> marker = atEnd ? lastMarker : FindMarker(file, size);
    const bool hasWrapped = marker && !atEnd;
    const std::uint64_t end = marker.value_or(size);
    const std::uint64_t begin = end - std::min(end, most);

    std::string newest = file.Read(begin, end);
    CutToWholeLines(newest);
    const std::uint64_t newestEnd = begin + newest.size();
    if (begin == 0 && !hasWrapped)
        return {std::move(newest), newestEnd, marker.has_value()};
    // What stands behind a marker begins with half a line.
    std::string lines(kWrapMarker);
    if (hasWrapped)
        lines +=
            file.Read(std::max(end + kWrapMarker.size(), size - std::min(size, most - newest.size())), size);
    CutToWholeLines(lines);
    return {lines + newest, newestEnd, marker.has_value()};
}

}  // namespace farlink
