#pragma once

// The print spooler's side: what it asks of a monitor (MONITOR2, MONITORINIT, MONITORREG) and what it
// offers to monitors and tools. Structures have the platform's 64-bit layouts. The calls are defined
// by the embedded spooler (spooler/), or by a host that has functions of these names.

#include "win32_kernel.h"
#include "win32_security.h"
#include "win32_types.h"

extern "C" {

constexpr DWORD SERVER_ACCESS_ADMINISTER = 1;

constexpr DWORD JOB_CONTROL_PAUSE = 1;
constexpr DWORD JOB_CONTROL_RESUME = 2;
constexpr DWORD JOB_CONTROL_CANCEL = 3;
constexpr DWORD JOB_CONTROL_RESTART = 4;
constexpr DWORD JOB_CONTROL_DELETE = 5;
constexpr DWORD JOB_CONTROL_SENT_TO_PRINTER = 6;

constexpr DWORD JOB_STATUS_DELETING = 0x4;
constexpr DWORD JOB_STATUS_PRINTING = 0x10;
constexpr DWORD JOB_STATUS_PRINTED = 0x80;
constexpr DWORD JOB_STATUS_DELETED = 0x100;
constexpr DWORD JOB_STATUS_RESTART = 0x800;

constexpr DWORD PORT_TYPE_WRITE = 1;
constexpr DWORD DI_CHANNEL = 1;

constexpr DWORD REG_SZ = 1;
constexpr DWORD REG_BINARY = 3;
constexpr DWORD REG_DWORD = 4;
constexpr REGSAM KEY_ALL_ACCESS = 0xF003F;

struct PORT_INFO_1W {
    LPWSTR pName;
};
static_assert(sizeof(PORT_INFO_1W) == 8);

struct PORT_INFO_2W {
    LPWSTR pPortName;
    LPWSTR pMonitorName;
    LPWSTR pDescription;
    DWORD fPortType;
    DWORD Reserved;
};
static_assert(sizeof(PORT_INFO_2W) == 32);

struct DOC_INFO_1W {
    LPWSTR pDocName;
    LPWSTR pOutputFile;
    LPWSTR pDatatype;
};
struct DOC_INFO_2W {
    LPWSTR pDocName;
    LPWSTR pOutputFile;
    LPWSTR pDatatype;
    DWORD dwMode;
    DWORD JobId;
};
static_assert(sizeof(DOC_INFO_2W) == 32 && offsetof(DOC_INFO_2W, dwMode) == 24);

struct DEVMODEW;
struct PRINTER_DEFAULTSW {
    LPWSTR pDatatype;
    DEVMODEW* pDevMode;
    ACCESS_MASK DesiredAccess;
};

struct JOB_INFO_2W {
    DWORD JobId;
    LPWSTR pPrinterName;
    LPWSTR pMachineName;
    LPWSTR pUserName;
    LPWSTR pDocument;
    LPWSTR pNotifyName;
    LPWSTR pDatatype;
    LPWSTR pPrintProcessor;
    LPWSTR pParameters;
    LPWSTR pDriverName;
    DEVMODEW* pDevMode;
    LPWSTR pStatus;
    PSECURITY_DESCRIPTOR pSecurityDescriptor;
    DWORD Status;
    DWORD Priority;
    DWORD Position;
    DWORD StartTime;
    DWORD UntilTime;
    DWORD TotalPages;
    DWORD Size;
    SYSTEMTIME Submitted;
    DWORD Time;
    DWORD PagesPrinted;
};
static_assert(sizeof(JOB_INFO_2W) == 160 && offsetof(JOB_INFO_2W, Status) == 104);

struct MONITOR_INFO_2W {
    LPWSTR pName;
    LPWSTR pEnvironment;
    LPWSTR pDLLName;
};

static_assert(sizeof(MONITOR_INFO_2W) == 24);

// What the spooler hands a monitor for its persistent settings. Every function gives 0 or a platform
// error word; the last argument is MONITORINIT's hSpooler.
struct MONITORREG {
    DWORD cbSize;
    LONG(*fpCreateKey)
    (HKEYMONITOR parent, LPCWSTR name, DWORD options, REGSAM access, SECURITY_ATTRIBUTES* security,
     HKEYMONITOR* key, DWORD* disposition, HANDLE spooler);
    LONG (*fpOpenKey)(HKEYMONITOR parent, LPCWSTR name, REGSAM access, HKEYMONITOR* key, HANDLE spooler);
    LONG (*fpCloseKey)(HKEYMONITOR key, HANDLE spooler);
    LONG (*fpDeleteKey)(HKEYMONITOR parent, LPCWSTR name, HANDLE spooler);
    LONG(*fpEnumKey)
    (HKEYMONITOR key, DWORD index, LPWSTR name, DWORD* nameLength, FILETIME* lastWrite, HANDLE spooler);
    LONG(*fpQueryInfoKey)
    (HKEYMONITOR key, DWORD* subkeys, DWORD* maxSubkey, DWORD* values, DWORD* maxValueName, DWORD* maxValue,
     DWORD* securityDescriptor, FILETIME* lastWrite, HANDLE spooler);
    LONG(*fpSetValue)
    (HKEYMONITOR key, LPCWSTR name, DWORD type, const BYTE* data, DWORD size, HANDLE spooler);
    LONG (*fpDeleteValue)(HKEYMONITOR key, LPCWSTR name, HANDLE spooler);
    LONG(*fpEnumValue)
    (HKEYMONITOR key, DWORD index, LPWSTR name, DWORD* nameLength, DWORD* type, BYTE* data, DWORD* size,
     HANDLE spooler);
    LONG (*fpQueryValue)(HKEYMONITOR key, LPCWSTR name, DWORD* type, BYTE* data, DWORD* size, HANDLE spooler);
};
static_assert(sizeof(MONITORREG) == 88 && offsetof(MONITORREG, fpQueryValue) == 80);

struct MONITORINIT {
    DWORD cbSize;
    HANDLE hSpooler;
    HKEYMONITOR hckRegistryRoot;
    MONITORREG* pMonitorReg;
    BOOL bLocal;
    LPCWSTR pszServerName;
};
static_assert(sizeof(MONITORINIT) == 48 && offsetof(MONITORINIT, pMonitorReg) == 24);

struct BIDI_REQUEST_CONTAINER;
struct BIDI_RESPONSE_CONTAINER;
struct COMMTIMEOUTS;
struct HWND__;
using HWND = HWND__*;

struct MONITOR2 {
    DWORD cbSize;
    BOOL(*pfnEnumPorts)
    (HANDLE hMonitor, LPWSTR pName, DWORD Level, LPBYTE pPorts, DWORD cbBuf, LPDWORD pcbNeeded,
     LPDWORD pcReturned);
    BOOL (*pfnOpenPort)(HANDLE hMonitor, LPWSTR pName, PHANDLE pHandle);
    BOOL(*pfnOpenPortEx)
    (HANDLE hMonitor, HANDLE hMonitorPort, LPWSTR pPortName, LPWSTR pPrinterName, PHANDLE pHandle,
     MONITOR2* pMonitor2);
    BOOL (*pfnStartDocPort)(HANDLE hPort, LPWSTR pPrinterName, DWORD JobId, DWORD Level, LPBYTE pDocInfo);
    BOOL (*pfnWritePort)(HANDLE hPort, LPBYTE pBuffer, DWORD cbBuf, LPDWORD pcbWritten);
    BOOL (*pfnReadPort)(HANDLE hPort, LPBYTE pBuffer, DWORD cbBuffer, LPDWORD pcbRead);
    BOOL (*pfnEndDocPort)(HANDLE hPort);
    BOOL (*pfnClosePort)(HANDLE hPort);
    BOOL (*pfnAddPort)(HANDLE hMonitor, LPWSTR pName, HWND hWnd, LPWSTR pMonitorName);
    BOOL (*pfnAddPortEx)(HANDLE hMonitor, LPWSTR pName, DWORD Level, LPBYTE lpBuffer, LPWSTR lpMonitorName);
    BOOL (*pfnConfigurePort)(HANDLE hMonitor, LPWSTR pName, HWND hWnd, LPWSTR pPortName);
    BOOL (*pfnDeletePort)(HANDLE hMonitor, LPWSTR pName, HWND hWnd, LPWSTR pPortName);
    BOOL(*pfnGetPrinterDataFromPort)
    (HANDLE hPort, DWORD ControlID, LPWSTR pValueName, LPWSTR lpInBuffer, DWORD cbInBuffer,
     LPWSTR lpOutBuffer, DWORD cbOutBuffer, LPDWORD lpcbReturned);
    BOOL (*pfnSetPortTimeOuts)(HANDLE hPort, COMMTIMEOUTS* lpCTO, DWORD reserved);
    BOOL (*pfnXcvOpenPort)(HANDLE hMonitor, LPCWSTR pszObject, ACCESS_MASK GrantedAccess, PHANDLE phXcv);
    DWORD(*pfnXcvDataPort)
    (HANDLE hXcv, LPCWSTR pszDataName, PBYTE pInputData, DWORD cbInputData, PBYTE pOutputData,
     DWORD cbOutputData, PDWORD pcbOutputNeeded);
    BOOL (*pfnXcvClosePort)(HANDLE hXcv);
    void (*pfnShutdown)(HANDLE hMonitor);
    DWORD(*pfnSendRecvBidiDataFromPort)
    (HANDLE hPort, DWORD dwAccessBit, LPCWSTR pAction, BIDI_REQUEST_CONTAINER* pReqData,
     BIDI_RESPONSE_CONTAINER** ppResData);
};
static_assert(sizeof(MONITOR2) == 160);

// --- called by monitors and tools -------------------------------------------------------------------
//
// Any thread. A failed call leaves its reason in the thread's last error. Where a buffer is filled,
// `needed` takes the size in bytes that the records want with their strings, and too small a buffer
// is ERROR_INSUFFICIENT_BUFFER: the caller asks again, as often as the answer grows.

// Names: null (the print server itself), a printer's name in any letter case, ",XcvMonitor <monitor>" or
// ",XcvPort <port>". Unknown printers are ERROR_INVALID_PRINTER_NAME, unknown monitors and ports
// ERROR_UNKNOWN_PORT. Asking for SERVER_ACCESS_ADMINISTER in `defaults` takes the right to it.
BOOL OpenPrinterW(LPWSTR name, LPHANDLE printer, PRINTER_DEFAULTSW* defaults);
BOOL ClosePrinter(HANDLE printer);
// Level 2 only. A job id that is none of this printer's is ERROR_INVALID_PARAMETER, `needed` 0.
BOOL GetJobW(HANDLE printer, DWORD jobId, DWORD level, LPBYTE job, DWORD size, LPDWORD needed);
// Level 0 with a null record only: RESTART, DELETE, CANCEL or SENT_TO_PRINTER. Pausing isn't
// supported: ERROR_NOT_SUPPORTED.
BOOL SetJobW(HANDLE printer, DWORD jobId, DWORD level, LPBYTE job, DWORD command);
// Levels 1 and 2, the ports of all monitors. `name` isn't used.
BOOL EnumPortsW(LPWSTR name, DWORD level, LPBYTE ports, DWORD size, LPDWORD needed, LPDWORD returned);

// Found by name in "spoolss.dll". The embedded spooler and its client are one process under one user, so
// no identity changes here: the pair only keeps count, per thread, that every revert is given back in
// the reverse order. FALSE with ERROR_INVALID_HANDLE for a token that is null, another thread's, or
// not the thread's latest.
HANDLE RevertToPrinterSelf();
BOOL ImpersonatePrinterClient(HANDLE token);

// --- called by tools --------------------------------------------------------------------------------

// TRUE whenever the monitor was asked; its answer is in `status`. `outputNeeded` reads 0 unless the
// monitor wrote it.
BOOL XcvDataW(HANDLE xcv, LPCWSTR dataName, PBYTE input, DWORD inputSize, PBYTE output, DWORD outputSize,
              PDWORD outputNeeded, PDWORD status);

// Level 2. Loads the library at once, so that a broken one is refused: ERROR_MOD_NOT_FOUND, or
// ERROR_PROC_NOT_FOUND when the export is missing or the monitor doesn't start.
BOOL AddMonitorW(LPWSTR name, DWORD level, LPBYTE monitors);
// Removes the monitor and its settings, with its ports. ERROR_UNKNOWN_PRINT_MONITOR.
BOOL DeleteMonitorW(LPWSTR name, LPWSTR environment, LPWSTR monitorName);
// Level 2 only (MONITOR_INFO_2W).
BOOL EnumMonitorsW(LPWSTR name, DWORD level, LPBYTE monitors, DWORD size, LPDWORD needed, LPDWORD returned);

// The monitor's one export.
MONITOR2* InitializePrintMonitor2(MONITORINIT* pMonitorInit, PHANDLE phMonitor);

}  // extern "C"
