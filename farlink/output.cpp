#include "farlink/output.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace farlink {

namespace {

int outputError = 0;  // errno of the first failure

bool BeginsCharacter(char byte)
{
    return (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
}

// Characters, not bytes: good enough to align names in most scripts.
std::size_t WidthOf(const std::string& text)
{
    return static_cast<std::size_t>(std::ranges::count_if(text, BeginsCharacter));
}

// Control characters are below the blank, the one at 7F, and U+0080 to U+009F: C2 80 to C2 9F.
std::string Harmless(std::string_view text, std::string_view allowed)
{
    std::string shown;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const auto next = static_cast<unsigned char>(i + 1 < text.size() ? text[i + 1] : '\0');
        const bool isLong = byte == 0xC2 && next >= 0x80 && next <= 0x9F;
        const bool isShort = (byte < ' ' && allowed.find(text[i]) == std::string_view::npos) || byte == 0x7F;
        shown += isLong || isShort ? '?' : text[i];
        i += isLong ? 1 : 0;
    }
    return shown;
}

}  // namespace

void PrintText(std::string_view text)
{
    const bool written = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
    if ((std::fflush(stdout) != 0 || !written) && outputError == 0)
        outputError = errno;
}

void PrintLine(const std::string& line)
{
    PrintText(Harmless(line, "\t\n") + "\n");
}

void PrintTable(std::vector<std::vector<std::string>> rows)
{
    std::vector<std::size_t> widths;
    for (auto& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t column = 0; column < row.size(); ++column) {
            row[column] = Harmless(row[column], "");
            widths[column] = std::max(widths[column], WidthOf(row[column]));
        }
    }
    for (const auto& row : rows) {
        std::string line;
        for (std::size_t column = 0; column < row.size(); ++column)
            line += row[column] + std::string(widths[column] + 2 - WidthOf(row[column]), ' ');
        line.erase(line.find_last_not_of(' ') + 1);
        PrintLine(line);
    }
}

bool OutputIsBroken()
{
    return outputError != 0;
}

std::string OutputError()
{
    return std::strerror(outputError);
}

void Complain(const std::string& text)
{
    std::string line = text;
    std::ranges::replace_if(
        line, [](char letter) { return letter == '\n' || letter == '\r'; }, ' ');
    std::fprintf(stderr, "farlink: %s\n", Harmless(line, "").c_str());
}

}  // namespace farlink
