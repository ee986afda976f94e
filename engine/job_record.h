#pragma once

#include <memory>

#include "platform/platform.h"

// The spooler's record of a job, level 2. One thread uses it; the calls go to the spooler and may block
// or come back into the monitor.
class CJobRecord {
public:
    // Asks for the size, then for the record. False when the spooler gives either of them up, as it does
    // for a null printer, and when there is no memory for it: a job's end can't fail for want of its record.
    bool Read(HANDLE printer, DWORD jobId);

    // Reads the job anew into a buffer of the first read's size: a record that has grown since fails.
    bool ReadAgain(HANDLE printer, DWORD jobId);

    DWORD Status() const;

    // The job is on its way out: leave it alone.
    bool IsGoing() const { return (Status() & (JOB_STATUS_DELETING | JOB_STATUS_DELETED)) != 0; }

private:
    std::unique_ptr<BYTE[]> buffer;  // as large as the fields that are read, whatever the spooler says
    DWORD size = 0;
};
