#pragma once

#include "platform/platform.h"

// The monitor's texts from the configuration file beside the library: section "Farlink", in the file of the
// library's own base name with ".ini". Read once at attach, and constant until detach; null outside it.

extern LPCWSTR Name;         // of the monitor, in records of level 2 and for sessions on the monitor
extern LPCWSTR Description;  // in records of level 2
extern LPCWSTR PortNameFormat;

// Where the file, or a key in it, is missing, the default stands.
void ReadDisplayNames();
void FreeDisplayNames();
