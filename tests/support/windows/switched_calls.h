#pragma once

#include "platform/platform.h"
#include "tests/support/windows/switched_call_list.h"

// The definitions that stand for the system's calls. Those of the spooler's calls, of the loader's and of
// WriteFile are with the doubles and tests that need them, under the system's names: the build renames them.
#define DECLARE_SWITCHED_CALL(call) extern "C" decltype(call) switched_##call;
SWITCHED_CALLS(DECLARE_SWITCHED_CALL)
#undef DECLARE_SWITCHED_CALL

// Not called by name, but found in the socket library.
extern "C" decltype(getaddrinfo) switched_getaddrinfo;
extern "C" decltype(getnameinfo) switched_getnameinfo;
extern "C" decltype(freeaddrinfo) switched_freeaddrinfo;
