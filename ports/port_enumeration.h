#pragma once

#include "platform/platform.h"

class krelIniPort;

// Packs a record per port into the spooler's buffer: records from its start, their strings from its very
// end towards them, newest port first. Level 1 and 2 give PORT_INFO_1W and PORT_INFO_2W, level 0 only counts.
// False with ERROR_INVALID_LEVEL, or with ERROR_INSUFFICIENT_BUFFER and the size in `pcbNeeded`; the
// buffer is untouched then. The caller holds the section of the monitor that owns the list.
bool enumPorts(const krelIniPort* head, DWORD Level, BYTE* pPorts, DWORD cbBuf, DWORD* pcbNeeded,
               DWORD* pcReturned);

// Fills one record, copies its strings in front of `stringEnd` and gives the new string end. Neither address
// need be aligned.
BYTE* packPortRecord(const krelIniPort& port, DWORD Level, BYTE* record, BYTE* stringEnd);
