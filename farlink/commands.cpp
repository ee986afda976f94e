#include "farlink/commands.h"

#include <algorithm>
#include <cstdio>

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

void PrintText(const std::string& text)
{
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

void PrintLine(const std::string& line)
{
    PrintText(line + "\n");
}

void PrintJson(const Json& value)
{
    PrintLine(value.dump(2, ' ', false, Json::error_handler_t::replace));
}

void PrintJsonLine(const Json& value)
{
    PrintLine(value.dump(-1, ' ', false, Json::error_handler_t::replace));
}

namespace {

// Characters, not bytes: good enough to align names in most scripts.
std::size_t WidthOf(const std::string& text)
{
    return static_cast<std::size_t>(std::ranges::count_if(
        text, [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0) != 0x80; }));
}

}  // namespace

void PrintTable(const std::vector<std::vector<std::string>>& rows)
{
    std::vector<std::size_t> widths;
    for (const auto& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t column = 0; column < row.size(); ++column)
            widths[column] = std::max(widths[column], WidthOf(row[column]));
    }
    for (const auto& row : rows) {
        std::string line;
        for (std::size_t column = 0; column < row.size(); ++column)
            line += row[column] + std::string(widths[column] + 2 - WidthOf(row[column]), ' ');
        line.erase(line.find_last_not_of(' ') + 1);
        PrintLine(line);
    }
}

}  // namespace farlink
