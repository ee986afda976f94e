#pragma once

#include <string>
#include <string_view>
#include <vector>

// All that the tool says to people. Names come from outside, and a terminal obeys control characters, so a
// line and a table show '?' in place of each; line feeds and tabs stay in a line. Used by one thread.
namespace farlink {

// To standard output, as it is and at once. What can't be written is remembered for OutputIsBroken: a
// document under way is more than a line about it.
void PrintText(std::string_view text);
void PrintLine(const std::string& line);

// Rows under headings, each column as wide as its widest cell. Nothing for no rows.
void PrintTable(std::vector<std::vector<std::string>> rows);

// True when something for standard output could not be written. OutputError tells why.
bool OutputIsBroken();
std::string OutputError();

// One line on standard error, after the tool's name.
void Complain(const std::string& text);

}  // namespace farlink
