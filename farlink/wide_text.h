#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "platform/platform.h"

// The tool speaks UTF-8 with people, the spooler UTF-16. What is no character in the one becomes U+FFFD in
// the other.
namespace farlink {

std::string ToUtf8(WideStringView text);
WideString ToUtf16(std::string_view text);

// A file name as it was given on the command line.
std::filesystem::path PathOf(const std::string& name);

}  // namespace farlink
