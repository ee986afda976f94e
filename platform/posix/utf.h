#pragma once

// UTF-16 and UTF-8. What is no character in the one (a lone surrogate, an overlong or broken sequence)
// becomes U+FFFD in the other. For the layer, the spooler and the tools; the monitor has its own way.

#include <string>
#include <string_view>

#include "platform/posix/win32_types.h"

std::string ToUtf8(std::u16string_view text);
std::u16string ToUtf16(std::string_view text);
