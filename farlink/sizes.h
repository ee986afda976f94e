#pragma once

#include <cstdint>
#include <string>

namespace farlink {

// "812 B", "3.4 kB", "2.7 MB": decimal units, as print servers count.
inline std::string SizeText(std::uint64_t bytes)
{
    constexpr const char* kUnits[] = {"B", "kB", "MB", "GB", "TB"};
    std::size_t unit = 0;
    std::uint64_t tenths = bytes * 10;
    for (; tenths >= 10000 && unit + 1 < std::size(kUnits); ++unit)
        tenths = (tenths + 500) / 1000;
    std::string text = std::to_string(tenths / 10);
    if (unit > 0)
        text += "." + std::to_string(tenths % 10);
    return text + " " + kUnits[unit];
}

}  // namespace farlink
