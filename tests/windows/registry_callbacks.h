#pragma once

#include "platform/platform.h"

// The spooler's registry callbacks as calls of the system's registry. Wine's spooler refuses every one of its
// own with ERROR_CALL_NOT_IMPLEMENTED.
extern MONITORREG registryCallbacks;
