#pragma once

#include <optional>
#include <string>

#include "platform/platform.h"

// The library that the spooler loads.
namespace farlink {

inline constexpr LPCWSTR kLibrary = TEXT("Farlink.dll");

// The folder that the spooler loads monitors from, with a backslash behind it.
WideString SystemFolder();

// What the library there says of itself in its version resource, "1.0.0 (6328e23ff418)"; nothing when it is
// missing or says nothing.
std::optional<std::string> BuildOfSystemLibrary();

// Throws Failure that tells how to put the library there.
void RequireSystemLibrary();

}  // namespace farlink
