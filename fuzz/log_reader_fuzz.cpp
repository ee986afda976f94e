// A log file that anybody may have written, read whole, and followed while it changes.

#include <algorithm>
#include <cstdint>
#include <string>

#include "farlink/log/log_findings.h"
#include "farlink/log/log_follower.h"
#include "farlink/log/log_text.h"
#include "fuzz/input_reader.h"

namespace {

class MemoryFile final : public farlink::LogBytes {
public:
    std::uint64_t Size() override { return content.size(); }
    std::string Read(std::uint64_t from, std::uint64_t to) override
    {
        const std::uint64_t start = std::min<std::uint64_t>(from, content.size());
        return content.substr(start, to - std::min(start, to));
    }
    std::string content;
};

void ReadWhole(std::string text)
{
    MemoryFile file;
    file.content = std::move(text);
    const farlink::NewestLines newest = farlink::ReadNewestLines(file, ~std::uint64_t{0});
    auto records = farlink::RecordsOf(newest.lines);
    for (const auto record : records)
        (void)farlink::FieldsOf(record);
    (void)farlink::FindInLog(records, "127.0.0.1:9100");
    farlink::DropBefore("12:00:00", records);
    if (newest.end > file.content.size() || farlink::ReadNewestLines(file, 40).lines.size() > 40 + 24)
        __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    MemoryFile file;
    farlink::LogFollower follower(file);
    InputReader input(data, size);
    while (!input.IsEmpty()) {
        const std::size_t place = std::min<std::size_t>(input.Byte() * 4u, file.content.size());
        const std::vector<BYTE> bytes = input.Bytes();
        file.content.resize(std::max(file.content.size(), place + bytes.size()));
        std::copy(bytes.begin(), bytes.end(), file.content.begin() + static_cast<std::ptrdiff_t>(place));
        if (bytes.empty())
            file.content.resize(place);
        (void)follower.Look();
    }
    ReadWhole(file.content);
    ReadWhole({reinterpret_cast<const char*>(data), size});
    return 0;
}
