#include "farlink/system_commands.h"

namespace farlink {

const char* const kStateHelp =
    "Ports and settings lie in $FARLINK_STATE, else $XDG_STATE_HOME/farlink, else\n"
    "~/.local/state/farlink.";

void AddSystemCommands(CLI::App& farlink, Run& run)
{
    AddPrintCommand(farlink, run);
    AddQueryCommand(farlink, run);
    AddReadCommand(farlink, run);
}

}  // namespace farlink
