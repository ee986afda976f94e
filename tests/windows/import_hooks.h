#pragma once

#include "platform/platform.h"

// Puts `replacement` in place of what `module` imports as `function` from `library`. False if it imports no
// such function.
bool ReplaceImport(HMODULE module, const char* library, const char* function, void* replacement);
