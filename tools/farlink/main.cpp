#include <unistd.h>

#include <cstdio>
#include <exception>

#include "spooler/spooler.h"
#include "tools/farlink/commands.h"

namespace farlink {

namespace {

// A document on its way out is seen through to the print server's word, which takes half a minute at most.
constexpr DWORD kShutdownMs = 60000;

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
    app.set_version_flag("--version", "farlink 1.0");
    app.require_subcommand(1);
    app.footer(
        "Examples:\n"
        "  farlink port add front-desk --server 10.0.0.7 --port 9100\n"
        "  farlink print --to front-desk badge.prn\n"
        "  farlink COMMAND --help\n\n"
        "Ports, jobs and settings lie in $FARLINK_STATE, else $XDG_STATE_HOME/farlink, else\n"
        "~/.local/state/farlink.\n\n" +
        std::string(kExitStatusHelp));
}

int RunTool(int argc, char** argv)
{
    CLI::App app("Print to network card printers and look after their ports", "farlink");
    Run run;
    Describe(app);
    AddPortCommands(app, run);
    AddPrintCommand(app, run);
    AddJobsCommands(app, run);
    AddKeepAliveCommands(app, run);
    AddQueryCommand(app, run);
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

}  // namespace

}  // namespace farlink

int main(int argc, char** argv)
{
    const int status = farlink::RunTool(argc, argv);
    if (!ShutdownSpooler(farlink::kShutdownMs))
        _exit(status);  // threads still run, so nothing may be taken down under them
    return status;
}
