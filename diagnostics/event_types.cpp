#include "diagnostics/event_types.h"

std::atomic<DWORD> gEventTypesToLog{0x3F};
