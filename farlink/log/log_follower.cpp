#include "farlink/log/log_follower.h"

#include <algorithm>

#include "farlink/log/log_text.h"

namespace farlink {

namespace {

constexpr std::size_t kStartSize = 64;
constexpr std::size_t kEndSize = 64;
constexpr int kLooksForMarker = 3;

void Append(LogFollower::News& news, std::string_view stretch)
{
    for (const std::string_view record : RecordsOf(stretch))
        news.records.emplace_back(record);
}

std::string_view LastLineOf(std::string_view lines)
{
    const std::size_t end =
        lines.substr(0, lines.size() - std::min<std::size_t>(lines.size(), 1)).rfind('\n');
    return lines.substr(end + 1);  // npos + 1 is 0
}

// A line that is still being written waits for the next look.
std::string_view WholeLines(std::string_view text)
{
    return text.substr(0, text.rfind('\n') + 1);
}

// The whole lines of `text` from `from` on, up to the marker at its end if there is one.
std::string_view NewLines(std::string_view text, std::uint64_t from)
{
    text.remove_prefix(std::min<std::uint64_t>(from, text.size()));
    if (text.ends_with(kWrapMarker))
        text.remove_suffix(kWrapMarker.size());
    return WholeLines(text);
}

}  // namespace

LogFollower::News LogFollower::Look()
{
    const std::uint64_t size = file.Size();
    if (!begun)
        return LookAtAll(size);
    const bool wrapped = !StartIsUnchanged();
    if (!wrapped && IsUnchanged(size))
        return {};
    if (!wrapped || LastLineIsThere())
        return LookBehind(size, wrapped);
    if (OldEndIsThere())
        return LookAround(size);
    const std::uint64_t unreadFrom = position;
    News all = LookAtAll(size);
    all.incomplete = position + kWrapMarker.size() > unreadFrom;
    return all;
}

// A line and the marker behind it are two writes. A look between them takes a wrapped file for one that
// has no limit, so a file without a marker is looked at again.
LogFollower::News LogFollower::LookAtAll(std::uint64_t size)
{
    std::string content = file.Read(0, size);
    for (int look = 1; look < kLooksForMarker && FindWrapMarker(content) == std::string::npos; ++look)
        content = file.Read(0, size);
    News news;
    const std::size_t end = EndOfNewestLine(content);
    if (FindWrapMarker(content) == std::string::npos)
        content.resize(end);
    for (const std::string_view record : RecordsInOrderOfTime(content))
        news.records.emplace_back(record);
    begun = true;
    start.clear();
    MoveTo({end, std::string_view(content).substr(0, end)}, content.size());
    return news;
}

// What the writer has added goes up to its marker; what a writer that was started meanwhile has added
// begins at the old end of the file. After a wrap there is no marker, and the rest is at the start.
LogFollower::News LogFollower::LookBehind(std::uint64_t size, bool wrapped)
{
    const std::string behind = file.Read(position, size);
    const std::string_view text = behind;
    const std::size_t marker = FindWrapMarker(text);
    const bool isOwn = marker != std::string::npos
                           ? marker == 0 || IsNewMarker(position + marker, text.substr(0, marker))
                           : position + kWrapMarker.size() >= knownSize;
    if (!wrapped && !isOwn)
        return {};  // the writer is between a line in old text and its marker

    const std::string begin = wrapped ? file.Read(0, position) : std::string();
    if (const std::size_t own = FindWrapMarker(begin);
        wrapped && (own == std::string::npos || !IsNewMarker(own, std::string_view(begin).substr(0, own))))
        return {};

    News news;
    const std::string_view added = marker == std::string::npos ? WholeLines(text) : text.substr(0, marker);
    Append(news, added);
    Place reached{position + added.size(), added};
    if (marker != std::string::npos) {
        const std::uint64_t known = knownSize > position ? knownSize - position : 0;
        const std::uint64_t from = std::max<std::uint64_t>(known, marker + kWrapMarker.size());
        if (const std::string_view restarted = NewLines(text, from); !restarted.empty()) {
            Append(news, restarted);
            reached = {position + from + restarted.size(), restarted};
        }
    }
    if (wrapped)
        reached = TakeBegin(begin, news);
    MoveTo(reached, position + behind.size());
    return news;
}

// A writer that was started on a file beyond its limit wraps with its first line, wherever the one before
// it was, and may have written over our last line.
LogFollower::News LogFollower::LookAround(std::uint64_t size)
{
    const std::string content = file.Read(0, size);
    const std::size_t marker = FindWrapMarker(content);
    if (marker == std::string::npos || !IsNewMarker(marker, std::string_view(content).substr(0, marker)))
        return {};  // its own is still to come
    News news;
    Append(news, NewLines(content, knownSize));
    MoveTo(TakeBegin(content, news), content.size());
    return news;
}

LogFollower::Place LogFollower::TakeBegin(std::string_view begin, News& news)
{
    const std::string_view newest = begin.substr(0, FindWrapMarker(begin));
    Append(news, newest);
    start.clear();
    return {newest.size(), newest};
}

void LogFollower::MoveTo(const Place& reached, std::uint64_t size)
{
    if (reached.end != position || !reached.lines.empty())
        lastLine = LastLineOf(reached.lines);
    const std::uint64_t startSize = std::min<std::uint64_t>(reached.end, kStartSize);
    if (start.empty())
        start = reached.lines.size() == reached.end ? reached.lines.substr(0, startSize)
                                                    : file.Read(0, startSize);
    position = reached.end;
    knownSize = size;
    FindMarkers();
    oldEnd = file.Read(size - std::min<std::uint64_t>(size, kEndSize), size);
}

// A file that grows without limit gets no markers: it needn't be read again.
void LogFollower::FindMarkers()
{
    if (position == knownSize && markers.empty())
        return;
    markers.clear();
    const std::string content = file.Read(0, knownSize);
    const std::string_view text = content;
    std::size_t from = 0;
    for (;;) {
        const std::size_t next = FindWrapMarker(text.substr(from));
        if (next == std::string::npos)
            return;
        markers.emplace(from + next, LastLineOf(text.substr(from, next)));
        from += next + kWrapMarker.size();
    }
}

// A writer that is between a line and its marker leaves the old ones to be found, the next one with what
// the line has left of the text before it. Its own may come to the place of an old one, behind a new line.
bool LogFollower::IsNewMarker(std::uint64_t place, std::string_view before) const
{
    const auto known = markers.find(place);
    if (known == markers.end())
        return true;
    const std::string_view line = LastLineOf(before);
    return line != known->second && BeginsRecord(line);
}

bool LogFollower::IsUnchanged(std::uint64_t size)
{
    if (size != knownSize)
        return false;
    const std::string next =
        file.Read(position, std::min<std::uint64_t>(size, position + kWrapMarker.size()));
    return next.empty() || next == kWrapMarker;
}

bool LogFollower::StartIsUnchanged()
{
    return file.Read(0, start.size()) == start;
}

bool LogFollower::LastLineIsThere()
{
    return file.Read(position - lastLine.size(), position) == lastLine;
}

bool LogFollower::OldEndIsThere()
{
    return file.Read(knownSize - oldEnd.size(), knownSize) == oldEnd;
}

}  // namespace farlink
