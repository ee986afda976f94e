// An imported function is called through a pointer that the linker names after it. The build makes the
// objects of the monitor and of the tests look for these here instead.

#include "tests/support/windows/switched_calls.h"

#define DEFINE_IMPORT_POINTER(call)                             \
    extern "C" decltype(call)* const switched_import_of_##call; \
    decltype(call)* const switched_import_of_##call = &switched_##call;
SWITCHED_CALLS(DEFINE_IMPORT_POINTER)
