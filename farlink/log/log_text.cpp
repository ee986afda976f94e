#include "farlink/log/log_text.h"

#include <algorithm>

namespace farlink {

namespace {

constexpr std::string_view kTimeShape = "00:00:00.000 ";
constexpr int kHalfDay = 12 * 3600;

// The first line of `text` with its line end, which is taken off `text`.
std::string_view TakeLine(std::string_view& text)
{
    const std::size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end == std::string_view::npos ? end : end + 1);
    text.remove_prefix(line.size());
    return line;
}

void CutLineEnd(std::string_view& record)
{
    while (record.ends_with('\n') || record.ends_with('\r'))
        record.remove_suffix(1);
}

// `text` has no marker in it. Behind a marker all that comes before the first time is torn.
void AppendRecords(std::string_view text, bool behindMarker, std::vector<std::string_view>& records)
{
    while (behindMarker && !text.empty() && !BeginsRecord(text))
        TakeLine(text);
    while (!text.empty()) {
        const char* const begin = text.data();
        std::size_t size = TakeLine(text).size();
        while (!text.empty() && !BeginsRecord(text))
            size += TakeLine(text).size();
        std::string_view record(begin, size);
        CutLineEnd(record);
        if (!record.empty())
            records.push_back(record);
    }
}

std::string_view TakeField(std::string_view& text, char separator)
{
    const std::string_view field = text.substr(0, text.find(separator));
    text.remove_prefix(std::min(text.size(), field.size() + 1));
    return field;
}

// Of a text that begins with "HH:MM:SS".
int SecondsOf(std::string_view time)
{
    const auto number = [&](std::size_t at) { return (time[at] - '0') * 10 + time[at + 1] - '0'; };
    return number(0) * 3600 + number(3) * 60 + number(6);
}

}  // namespace

bool BeginsRecord(std::string_view line)
{
    if (line.size() < kTimeShape.size())
        return false;
    return std::equal(kTimeShape.begin(), kTimeShape.end(), line.begin(), [](char shape, char letter) {
        return shape == '0' ? letter >= '0' && letter <= '9' : letter == shape;
    });
}

std::size_t FindWrapMarker(std::string_view text)
{
    std::size_t at = text.find(kWrapMarker);
    while (at != std::string_view::npos && at != 0 && text[at - 1] != '\n')
        at = text.find(kWrapMarker, at + 1);
    return at;
}

std::vector<std::string_view> RecordsOf(std::string_view stretch)
{
    std::vector<std::string_view> records;
    bool behindMarker = false;
    for (;;) {
        const std::size_t marker = FindWrapMarker(stretch);
        AppendRecords(stretch.substr(0, marker), behindMarker, records);
        if (marker == std::string_view::npos)
            return records;
        stretch.remove_prefix(marker + kWrapMarker.size());
        behindMarker = true;
    }
}

LogFields FieldsOf(std::string_view record)
{
    LogFields fields;
    if (!BeginsRecord(record)) {
        fields.message = record;
        return fields;
    }
    fields.time = TakeField(record, ' ');
    fields.tag = TakeField(record, ' ');
    fields.thread = TakeField(record, '\t');
    fields.message = record;
    return fields;
}

bool IsBefore(std::string_view record, std::string_view other)
{
    constexpr int kDisorderMs = 100;
    if (!BeginsRecord(record) || !BeginsRecord(other))
        return false;
    const auto milliseconds = [](std::string_view time) {
        return SecondsOf(time) * 1000 + (time[9] - '0') * 100 + (time[10] - '0') * 10 + time[11] - '0';
    };
    const int later = milliseconds(other) - milliseconds(record);
    return later > kDisorderMs && later < kHalfDay * 1000;
}

void DropBefore(std::string_view time, std::vector<std::string_view>& records)
{
    const int wanted = SecondsOf(time);
    int day = 0;     // of the record, counted back from the last one's
    int after = -1;  // time of the record behind it
    int wantedDay = 0;
    auto first = records.end();
    for (; first != records.begin(); --first) {
        const std::string_view record = first[-1];
        if (!BeginsRecord(record))
            continue;
        const int now = SecondsOf(record);
        if (after < 0)
            wantedDay = now < wanted ? -1 : 0;
        else if (now > after + kHalfDay)  // threads may write a little out of order
            --day;
        if (day < wantedDay || (day == wantedDay && now < wanted))
            break;
        after = now;
    }
    // A time of day that is still to come.
    if (day > wantedDay)
        first = records.end();
    records.erase(records.begin(), first);
}

}  // namespace farlink
