#pragma once

// The system's own headers, in the one order in which they can be taken in.

// clang-format off
#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>
#include <winspool.h>
#include <winsplp.h>
#include <aclapi.h>
#include <winver.h>
// clang-format on
