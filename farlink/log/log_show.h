#pragma once

#include "farlink/commands.h"

namespace farlink {

// Makes "farlink log" itself, without a command behind it, show the log file.
void AddLogShowing(CLI::App& log, Run& run);

}  // namespace farlink
