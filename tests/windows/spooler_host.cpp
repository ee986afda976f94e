// Checks of the monitor through the system's own spooler, by its client's calls alone.
//
//   spooler_host install LIBRARY     the monitor is installed by a library's full path
//   spooler_host uninstall
//   spooler_host unaided             the registry callbacks refuse: no ports, none can be added
//   spooler_host ports               ports are added, asked, changed, listed, deleted; one is kept
//   spooler_host restarted           a process later: it is there as it was left
//   spooler_host print PORT FILE     FILE is printed to a print server at 127.0.0.1 and PORT
//   spooler_host add-driver NAME     a printer driver in name only
//   spooler_host add-printer PORT    a printer on a port that is there
//   spooler_host delete-printer
//   spooler_host loads COUNT         the spooler loads and unloads the monitor
#include <map>

#include "tests/windows/checks.h"
#include "tests/windows/spooler_checks.h"

int main(int count, char** words)
{
    using Action = void (*)(const std::vector<std::string>&);
    const std::map<std::string, Action> actions = {
        {"install", Install},      {"uninstall", Uninstall},         {"unaided", CheckUnaided},
        {"ports", CheckPorts},     {"restarted", CheckRestarted},    {"print", CheckPrinting},
        {"add-driver", AddDriver}, {"add-printer", AddCheckPrinter}, {"delete-printer", DeleteCheckPrinter},
        {"loads", CheckLoads}};
    const auto found = actions.find(count > 1 ? words[1] : "");
    if (checks::Check(found != actions.end(), "known action", "no such action"))
        found->second({words + 2, words + count});
    return checks::Finish();
}
