#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Bytes as people write and read them.
namespace farlink {

// "01 02 ff", "0102FF", "01:02:ff": pairs of digits, with blanks, colons or nothing between them. Nothing
// for a text that is none of these.
std::optional<std::string> BytesOfHex(std::string_view text);

std::string HexOf(std::string_view bytes);

// One line for every 16 bytes: offset, the bytes, and what of them is printable ASCII.
std::vector<std::string> HexDump(std::string_view bytes);

}  // namespace farlink
