#pragma once

#include "farlink/commands.h"

namespace farlink {

// 'farlink monitor check'.
void AddCheckCommand(CLI::App& monitor, Run& run);

}  // namespace farlink
