#pragma once

#include "platform/platform.h"

// A record as text, for the log; no memory is asked for.
struct LPQInfoText {
    char text[160];
};

// The print server's last word on its queue, the job and the printer. All fields are -1 until the
// first notification; each notification replaces all four.
struct LPQInfo {
    static constexpr DWORD kWireSize = 10;

    SHORT queuePosition = -1;  // above 0: the job waits in the server's queue
    LONG boundJobState = -1;   // 7, 8 and 9 are final; 9 means cancelled
    LONG activeJobState = -1;
    LONG printerState = -1;

    // Reads the record of kWireSize bytes at the payload's start. False, with nothing changed, when the
    // payload is shorter; what follows the record is ignored.
    bool Decode(const BYTE* payload, DWORD size);

    LPQInfoText ToString() const;
};
