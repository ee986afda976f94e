#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

#include "farlink/failure.h"
#include "farlink/json_output.h"
#include "farlink/output.h"

// Each command lies in a file of its own, adds itself to the command line, and runs inside the parse.
namespace farlink {

// One run of the tool: options that more than one command has, and the exit status if none fails.
struct Run {
    bool json = false;
    ExitStatus status = ExitStatus::Done;
};

void AddPortCommands(CLI::App& farlink, Run& run);
void AddPortImport(CLI::App& port, Run& run);  // below the former
void AddKeepAliveCommands(CLI::App& farlink, Run& run);
void AddStatusCommand(CLI::App& farlink, Run& run);
void AddLogCommands(CLI::App& farlink, Run& run);
void AddAboutCommand(CLI::App& farlink, Run& run);
void AddPrintServerCommand(CLI::App& farlink, Run& run);
void AddSampleCommand(CLI::App& farlink);
void AddCompletionCommand(CLI::App& farlink);
void AddManCommand(CLI::App& farlink);
void AddHelpCommand(CLI::App& farlink);

// Those that one system's spooler has: see system_commands.h.
void AddPrintCommand(CLI::App& farlink, Run& run);
void AddReadCommand(CLI::App& farlink, Run& run);      // the embedded spooler's
void AddQueryCommand(CLI::App& farlink, Run& run);     // the embedded spooler's
void AddMonitorCommands(CLI::App& farlink, Run& run);  // Windows

// --- pieces that the commands share ------------------------------------------------------------------

void AddJsonFlag(CLI::App& command, Run& run);
// For an option that is a number: "010" is ten, and not eight.
CLI::Validator WithoutLeadingZeros();

// Does it for each name, also behind one that fails. A failure is told at once; the status is that of the
// worst.
void ForEach(Run& run, const std::vector<std::string>& names,
             const std::function<void(const std::string& name)>& action);

// The end of a command's --help: each line of `lines` is one command line.
void AddExamples(CLI::App& command, const std::string& lines);
extern const char* const kExitStatusHelp;

}  // namespace farlink
