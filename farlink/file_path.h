#pragma once

#include <filesystem>
#include <string>

namespace farlink {

// A file name as it was given on the command line, in UTF-8; on Linux its bytes, whatever they mean.
inline std::filesystem::path PathOf(const std::string& name)
{
    return std::u8string(name.begin(), name.end());
}

}  // namespace farlink
