#include <sstream>

#include "farlink/commands.h"
#include "farlink/ports/port_administration.h"
#include "version/build.h"

namespace farlink {

namespace {

void About(const Run& run)
{
    const std::string text = ToUtf8(GetAboutText());
    const std::string library = ToUtf8(GetUserInterfaceLibrary());
    if (!run.json) {
        PrintLine(text);
        PrintLine("User interface: " + library);
        PrintLine(std::string("This build: ") + FarlinkBuild());
        return;
    }
    Json lines = Json::array();
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    PrintJson({{"about", lines}, {"userInterface", library}, {"build", FarlinkBuild()}});
}

}  // namespace

void AddAboutCommand(CLI::App& farlink, Run& run)
{
    CLI::App* about = farlink.add_subcommand(
        "about", "Tell the monitor's version and name, as the monitor says them, and which build this is");
    AddJsonFlag(*about, run);
    AddExamples(*about, "farlink about\nfarlink about --json");
    about->callback([&run] { About(run); });
}

}  // namespace farlink
