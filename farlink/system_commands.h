#pragma once

#include "farlink/commands.h"

namespace farlink {

// The commands that work with what only this system's spooler has.
void AddSystemCommands(CLI::App& farlink, Run& run);

// Where ports, jobs and settings lie, for --help.
extern const char* const kStateHelp;

}  // namespace farlink
