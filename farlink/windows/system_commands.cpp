#include "farlink/system_commands.h"

namespace farlink {

const char* const kStateHelp =
    "Ports, jobs and settings are those of the Windows print spooler. Changing them takes a command\n"
    "prompt that was opened with 'Run as administrator'.";

namespace {

// A command that other systems have: who types it is told where to go, whatever words follow.
void AddAbsent(CLI::App& farlink, const char* name, const char* instead)
{
    CLI::App* command = farlink.add_subcommand(name, "Not on Windows")->group("")->prefix_command();
    command->callback([name, instead] {
        throw Failure(std::string("There is no 'farlink ") + name + "' on Windows: " + instead,
                      ExitStatus::Usage);
    });
}

}  // namespace

void AddSystemCommands(CLI::App& farlink, Run& run)
{
    AddMonitorCommands(farlink, run);
    AddPrintCommand(farlink, run);
    AddAbsent(farlink, "read", "its spooler reads from a port for a driver only");
    AddAbsent(farlink, "query", "its spooler passes no questions of programs on to a port");
}

}  // namespace farlink
