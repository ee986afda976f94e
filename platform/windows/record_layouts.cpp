// The layouts that the spooler and this monitor must agree on, held against the system's headers. The
// Linux layer's own declarations hold themselves to the same numbers.

#include <cstddef>

#include "platform/platform.h"

static_assert(sizeof(MONITOR2) == 160);
static_assert(offsetof(MONITOR2, cbSize) == 0);
static_assert(offsetof(MONITOR2, pfnEnumPorts) == 8);
static_assert(offsetof(MONITOR2, pfnOpenPort) == 16);
static_assert(offsetof(MONITOR2, pfnOpenPortEx) == 24);
static_assert(offsetof(MONITOR2, pfnStartDocPort) == 32);
static_assert(offsetof(MONITOR2, pfnWritePort) == 40);
static_assert(offsetof(MONITOR2, pfnReadPort) == 48);
static_assert(offsetof(MONITOR2, pfnEndDocPort) == 56);
static_assert(offsetof(MONITOR2, pfnClosePort) == 64);
static_assert(offsetof(MONITOR2, pfnAddPort) == 72);
static_assert(offsetof(MONITOR2, pfnAddPortEx) == 80);
static_assert(offsetof(MONITOR2, pfnConfigurePort) == 88);
static_assert(offsetof(MONITOR2, pfnDeletePort) == 96);
static_assert(offsetof(MONITOR2, pfnGetPrinterDataFromPort) == 104);
static_assert(offsetof(MONITOR2, pfnSetPortTimeOuts) == 112);
static_assert(offsetof(MONITOR2, pfnXcvOpenPort) == 120);
static_assert(offsetof(MONITOR2, pfnXcvDataPort) == 128);
static_assert(offsetof(MONITOR2, pfnXcvClosePort) == 136);
static_assert(offsetof(MONITOR2, pfnShutdown) == 144);
static_assert(offsetof(MONITOR2, pfnSendRecvBidiDataFromPort) == 152);

static_assert(sizeof(MONITORINIT) == 48);
static_assert(offsetof(MONITORINIT, hSpooler) == 8);
static_assert(offsetof(MONITORINIT, hckRegistryRoot) == 16);
static_assert(offsetof(MONITORINIT, pMonitorReg) == 24);
static_assert(offsetof(MONITORINIT, bLocal) == 32);
static_assert(offsetof(MONITORINIT, pszServerName) == 40);

static_assert(sizeof(MONITORREG) == 88);
static_assert(offsetof(MONITORREG, fpCreateKey) == 8);
static_assert(offsetof(MONITORREG, fpOpenKey) == 16);
static_assert(offsetof(MONITORREG, fpCloseKey) == 24);
static_assert(offsetof(MONITORREG, fpDeleteKey) == 32);
static_assert(offsetof(MONITORREG, fpEnumKey) == 40);
static_assert(offsetof(MONITORREG, fpQueryInfoKey) == 48);
static_assert(offsetof(MONITORREG, fpSetValue) == 56);
static_assert(offsetof(MONITORREG, fpDeleteValue) == 64);
static_assert(offsetof(MONITORREG, fpEnumValue) == 72);
static_assert(offsetof(MONITORREG, fpQueryValue) == 80);

static_assert(sizeof(JOB_INFO_2W) == 160 && offsetof(JOB_INFO_2W, Status) == 104);
static_assert(sizeof(DOC_INFO_2W) == 32 && offsetof(DOC_INFO_2W, dwMode) == 24);
static_assert(sizeof(PORT_INFO_1W) == 8);
static_assert(sizeof(PORT_INFO_2W) == 32 && offsetof(PORT_INFO_2W, pMonitorName) == 8);
static_assert(offsetof(PORT_INFO_2W, pDescription) == 16 && offsetof(PORT_INFO_2W, fPortType) == 24);
static_assert(sizeof(OSVERSIONINFOEXW) == 284);

static_assert(sizeof(SOCKET) == 8 && sizeof(WCHAR) == 2 && sizeof(LONG) == 4 && sizeof(DWORD) == 4);
