#pragma once

#include "platform/platform.h"

// What this process holds, to be compared before and after something.
DWORD ThreadCount();

// Handles are numbered from the lowest that is free: what leaks, raises the next one.
ULONG_PTR NextHandle();
