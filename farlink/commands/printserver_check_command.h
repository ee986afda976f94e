#pragma once

#include "farlink/commands.h"

namespace farlink {

// Below `farlink printserver`.
void AddPrintServerCheckCommand(CLI::App& printServer, Run& run);

}  // namespace farlink
