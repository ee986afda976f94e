#pragma once

#include <cstddef>
#include <functional>

#include "platform/platform.h"

namespace simulated {

std::size_t OpenFiles();
bool CloseFile(HANDLE handle);
// Where the lines go that the process prints for a debugger.
void SetDebugOutput(std::function<void(LPCSTR)> sink);

}  // namespace simulated
