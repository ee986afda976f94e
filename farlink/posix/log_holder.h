#pragma once

#include <string>

namespace farlink {

// Whether a process writes the log file at `path`, and so keeps all others from it: a look at the system's
// locks, proc_locks(5), which takes none itself.
bool LogIsHeld(const std::string& path);

}  // namespace farlink
