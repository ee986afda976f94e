#pragma once

// The modules of the process as the loader knows them, and their absolute paths.

#include <string>

#include "platform/posix/win32_kernel.h"

namespace posix_layer {

// The module that contains an address, or null.
HMODULE ModuleAt(const void* address);

// True for the handle of a module that is loaded now.
bool IsModule(HMODULE module);

// The program that runs.
HMODULE ExecutableModule();

// This layer's own module, and the folder it lies in with a closing slash.
HMODULE LayerModule();
std::string LayerFolder();

// The absolute path of a loaded module. The loader may know it by a relative name only, so that it is
// determined at the first question, against the folder the process is in then, and remembered.
// Symbolic links are kept: a module goes by the name under which it was loaded.
std::string ModulePath(HMODULE module);

// Called when a module comes or goes: the path of the next one at this address is its own.
void ForgetModulePath(HMODULE module);

// Opens a loaded module once more for the C library's loader calls, with further flags of dlopen.
void* ReopenModule(HMODULE module, int flags);

}  // namespace posix_layer
