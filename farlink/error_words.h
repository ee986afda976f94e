#pragma once

#include <string>

#include "platform/platform.h"

namespace farlink {

// What a platform error word means in the mouth of this tool.
struct ErrorWord {
    DWORD word;
    const char* name;
    const char* meaning;
    const char* remedy = nullptr;  // what to do about it, if there is anything
};

// Null for a word that has no name here.
const ErrorWord* FindErrorWord(DWORD word);

// "ERROR_BUSY, 170"; "platform error 4711" without a name.
std::string NameOfWord(DWORD word);

}  // namespace farlink
