#include "farlink/commands.h"

namespace farlink {

const char* const kExitStatusHelp =
    "Exit status: 0 done (documents: the print server said that they are through), 1 failed,\n"
    "2 wrong command line, 3 a document was cancelled, 4 the print server never said what became\n"
    "of a document, 5 a document stays queued, 130 left by a second Ctrl-C.";

void AddJsonFlag(CLI::App& command, Run& run)
{
    command.add_flag("--json", run.json, "Answer in JSON");
}

void AddExamples(CLI::App& command, const std::string& lines)
{
    std::string footer = "Examples:\n  ";
    for (const char letter : lines)
        footer += letter == '\n' ? std::string("\n  ") : std::string(1, letter);
    command.footer(footer);
}

}  // namespace farlink
