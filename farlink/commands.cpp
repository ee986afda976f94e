#include "farlink/commands.h"

#include <algorithm>

namespace farlink {

const char* const kExitStatusHelp =
    "Exit status: 0 done (documents: the print server said that they are through), 1 failed,\n"
    "2 wrong command line, 3 a document was cancelled, 4 the print server never said what became\n"
    "of a document.";

void AddJsonFlag(CLI::App& command, Run& run)
{
    command.add_flag("-j,--json", run.json, "Answer in JSON");
}

CLI::Validator WithoutLeadingZeros()
{
    return CLI::Validator(
        [](std::string& number) {
            if (std::ranges::all_of(number, [](char letter) { return letter >= '0' && letter <= '9'; }))
                number.erase(
                    0, std::min(number.find_first_not_of('0'), std::max<std::size_t>(number.size(), 1) - 1));
            return std::string();
        },
        "");
}

void ForEach(Run& run, const std::vector<std::string>& names,
             const std::function<void(const std::string& name)>& action)
{
    for (const std::string& name : names) {
        try {
            action(name);
        } catch (const Failure& failure) {
            Complain(failure.what());
            run.status = std::max(run.status, failure.Status());
        }
    }
}

void AddExamples(CLI::App& command, const std::string& lines)
{
    std::string footer = "Examples:\n  ";
    for (const char letter : lines)
        footer += letter == '\n' ? std::string("\n  ") : std::string(1, letter);
    command.footer(footer);
}

}  // namespace farlink
