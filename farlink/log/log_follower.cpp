#include "farlink/log/log_follower.h"

#include <algorithm>

#include "farlink/log/log_text.h"

namespace farlink {

namespace {

constexpr std::uint64_t kEverything = ~std::uint64_t{0};
constexpr std::uint64_t kNear = 64;
constexpr int kLooksForMarker = 10;

std::string_view FirstLineOf(std::string_view record)
{
    return record.substr(0, record.find_first_of("\r\n"));
}

}  // namespace

LogFollower::News LogFollower::Look()
{
    const std::uint64_t sizeNow =
        file.Size();  // both before the lines: what is written meanwhile shows next time
    const std::string marksNow = Marks();
    if (isSettled && sizeNow == size && marksNow == marks)
        return {};
    News news;
    if (HasGrown(sizeNow)) {
        std::string added = file.Read(end, sizeNow);
        added.resize(added.rfind('\n') + 1);
        for (const std::string_view record : RecordsOf(added))
            news.records.emplace_back(record);
        size = sizeNow;
        end += added.size();
        marks = Marks();
    } else {
        const NewestLines newest = ReadNewestLines(file, kEverything);
        if (hasMarker && !newest.hasMarker && ++looksWithoutMarker < kLooksForMarker)
            return {};  // most likely the writer is between a line and the marker behind it
        hasMarker = newest.hasMarker;
        looksWithoutMarker = 0;
        news = LookBehind(RecordsOf(newest.lines));
        begun = true;
        size = sizeNow;
        marks = newest.end == end ? marksNow : std::string();  // of another place: another look takes them
        end = newest.end;
    }
    if (!news.records.empty())
        last = FirstLineOf(news.records.back());
    return news;
}

// A log without a limit, which may be large, has no marker and grows at its end alone.
bool LogFollower::HasGrown(std::uint64_t sizeNow)
{
    return begun && !hasMarker && end == size && sizeNow > size &&
           marks.starts_with(file.Read(end - std::min(end, kNear), end));
}

// The order of time is sure for the lines of one process only, and between a line and the marker behind it an
// older marker may be taken for its own: so what is older than the last line is passed over, wherever it
// stands. A process that is started on a full file may write over the last line: then all that is not older
// is new.
LogFollower::News LogFollower::LookBehind(const std::vector<std::string_view>& records)
{
    const auto found = std::find_if(records.rbegin(), records.rend(),
                                    [&](std::string_view record) { return FirstLineOf(record) == last; });
    const auto behind = found == records.rend() ? records.begin() : found.base();
    News news;
    for (auto record = behind; record != records.end(); ++record)
        if (!IsBefore(*record, last))
            news.records.emplace_back(*record);
    const auto passedOver = static_cast<std::size_t>(records.end() - behind) - news.records.size();
    news.incomplete = found == records.rend() && !last.empty() && passedOver == 0;
    isSettled = records.empty() || !IsBefore(records.back(), last);
    if (!isSettled && !news.records.empty())
        news.records.back() = FirstLineOf(news.records.back());  // with half a line behind it
    return news;
}

std::string LogFollower::Marks()
{
    return file.Read(end - std::min(end, kNear), end + kNear) + file.Read(0, kNear);
}

}  // namespace farlink
