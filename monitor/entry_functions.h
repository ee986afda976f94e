#pragma once

#include "platform/platform.h"

// The functions of the MONITOR2 table, called by the spooler on threads of its own, several at a time.
// They hold no logic: each writes its name to the log, tests its handle and forwards. Functions on a port tag
// the thread first, and keep the port from being cleaned up under them. No exception leaves: the result is
// FALSE then, or 8 (ERROR_NOT_ENOUGH_MEMORY) from gXcvDataPort.

BOOL gEnumPorts(HANDLE hMonitor, LPWSTR pName, DWORD Level, LPBYTE pPorts, DWORD cbBuf, LPDWORD pcbNeeded,
                LPDWORD pcReturned);
BOOL gOpenPort(HANDLE hMonitor, LPWSTR pName, PHANDLE pHandle);
BOOL gXcvOpenPort(HANDLE hMonitor, LPCWSTR pszObject, ACCESS_MASK GrantedAccess, PHANDLE phXcv);
void gShutdown(HANDLE hMonitor);

BOOL gStartDocPort(HANDLE hPort, LPWSTR pPrinterName, DWORD JobId, DWORD Level, LPBYTE pDocInfo);
BOOL gWritePort(HANDLE hPort, LPBYTE pBuffer, DWORD cbBuf, LPDWORD pcbWritten);
BOOL gReadPort(HANDLE hPort, LPBYTE pBuffer, DWORD cbBuffer, LPDWORD pcbRead);
BOOL gEndDocPort(HANDLE hPort);
// Changes nothing: a port stays as it is, with its document.
BOOL gClosePort(HANDLE hPort);
BOOL gGetPrinterDataFromPort(HANDLE hPort, DWORD ControlID, LPWSTR pValueName, LPWSTR lpInBuffer,
                             DWORD cbInBuffer, LPWSTR lpOutBuffer, DWORD cbOutBuffer, LPDWORD lpcbReturned);

DWORD gXcvDataPort(HANDLE hXcv, LPCWSTR pszDataName, PBYTE pInputData, DWORD cbInputData, PBYTE pOutputData,
                   DWORD cbOutputData, PDWORD pcbOutputNeeded);
BOOL gXcvClosePort(HANDLE hXcv);
