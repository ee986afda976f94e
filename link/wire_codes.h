#pragma once

#include "platform/platform.h"

// Message types of the command channel.
constexpr DWORD COMMAND_TYPE_PRINTER_DATA = 1;
constexpr DWORD COMMAND_TYPE_IOCTL = 2;

// Kinds of request of type COMMAND_TYPE_IOCTL. A reply carries the number of its request.
constexpr DWORD IOCTL_KREL_BIND_SESSION = 1;
constexpr DWORD IOCTL_KREL_PARA_START_READ = 2;
constexpr DWORD IOCTL_KREL_LPQINFO = 4;
constexpr DWORD IOCTL_KREL_SUPPRESS_SYSLOG = 7;
constexpr DWORD IOCTL_KREL_START_KEEP_ALIVES = 16;
constexpr DWORD IOCTL_KREL_KEEP_ALIVE = 18;
constexpr DWORD IOCTL_KREL_GET_COMM_PROTOCOL_VERSION = 33;
