#pragma once

#include <string_view>

#include "platform/platform.h"

// Puts `replacement` in place of what `module` imports as `function`, from whichever library. False if it
// imports no such function.
bool ReplaceImport(HMODULE module, std::string_view function, const void* replacement);
