#pragma once

#include <string>

#include "platform/platform.h"

namespace farlink {

// The port of this name as the spooler has it, letter case apart. Throws Failure, with a name that may be
// meant.
WideString FindPortByName(const std::string& name);

// The port that a person means: the port of this name, or the one of the printer of this name. Throws
// Failure.
WideString FindPort(const std::string& name);

}  // namespace farlink
