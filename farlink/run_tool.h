#pragma once

namespace farlink {

// Runs one command line, in UTF-8, and gives the status that the process ends with. Complaints go to standard
// error, in one line.
int RunTool(int argc, const char* const* argv);

}  // namespace farlink
