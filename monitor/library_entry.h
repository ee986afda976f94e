#pragma once

#include "platform/platform.h"

// Called by the loader, once per attach and detach and, until the library has asked not to be told, at
// the start of threads. `reserved` is not null at the end of the process: other threads may still run then,
// or be gone with locks held, so nothing is waited for and nothing freed. Always 1.
int DllEntryPoint(HMODULE module, DWORD reason, LPVOID reserved);

// False before the attach, after the detach, and when the attach ran out of memory: no monitor can be started
// then. Any thread.
bool IsLibraryAttached();
