#include "farlink/run_tool.h"

#include <cstdio>
#include <exception>

#include "farlink/commands.h"
#include "farlink/system_commands.h"
#include "version/build.h"

namespace farlink {

namespace {

// "farlink port add" for a command line that came so far.
std::string CommandOf(const CLI::App& app)
{
    std::string name = app.get_name();
    for (const CLI::App* inner = &app; !inner->get_subcommands().empty();) {
        inner = inner->get_subcommands().front();
        name += " " + inner->get_name();
    }
    return name;
}

// What the parser says, put so that it names the word that is wrong.
std::string TextOf(const CLI::App& app, const CLI::ParseError& error)
{
    const std::vector<std::string> strangers = app.remaining(true);
    const std::string what = strangers.empty()
                                 ? error.what()
                                 : "'" + strangers.front() + "' is not known in '" + CommandOf(app) + "'";
    return what + "; see '" + CommandOf(app) + " --help'";
}

int Complain(std::string text, ExitStatus status)
{
    for (char& letter : text)
        if (letter == '\n' || letter == '\r')
            letter = ' ';
    std::fprintf(stderr, "farlink: %s\n", text.c_str());
    return static_cast<int>(status);
}

void Describe(CLI::App& app)
{
    app.set_version_flag("--version", std::string("farlink ") + FarlinkBuild());
    app.require_subcommand(1);
    app.footer(
        "Examples:\n"
        "  farlink port add front-desk --server 10.0.0.7 --port 9100\n"
        "  farlink print --to front-desk badge.prn\n"
        "  farlink COMMAND --help\n\n" +
        std::string(kStateHelp) + "\n\n" + kExitStatusHelp);
}

}  // namespace

int RunTool(int argc, const char* const* argv)
{
    CLI::App app("Print to network card printers and look after their ports", "farlink");
    Run run;
    Describe(app);
    AddPortCommands(app, run);
    AddSystemCommands(app, run);
    AddKeepAliveCommands(app, run);
    AddStatusCommand(app, run);
    AddLogCommands(app, run);
    AddAboutCommand(app, run);
    AddPrintServerCommand(app, run);
    AddSampleCommand(app);
    AddCompletionCommand(app);
    AddManCommand(app);
    try {
        app.parse(argc, argv);
        return static_cast<int>(run.status);
    } catch (const CLI::Success& asked) {
        return app.exit(asked);
    } catch (const CLI::ParseError& error) {
        return Complain(TextOf(app, error), ExitStatus::Usage);
    } catch (const Failure& failure) {
        return Complain(failure.what(), failure.Status());
    } catch (const std::exception& error) {
        return Complain(error.what(), ExitStatus::Failed);
    }
}

}  // namespace farlink
