#pragma once

// The embedded spooler's own calls, beside those that it shares with the platform (OpenPrinterW,
// StartDocPrinterW, SetJobW ... in win32_spooler.h). The library is libspoolss.so.
//
// All state lies in one folder: $FARLINK_STATE, else $XDG_STATE_HOME/farlink, else
// ~/.local/state/farlink. The first call that needs it opens it; nothing has to be started. Several
// processes may use one folder at a time; the jobs of one port are run by one process at a time.
//
// A job is run by the process that accepted it, on a thread of its own per port, together with
// whatever else waits on that port. Jobs that a killed process left are run by the next process that
// runs their port: one that prints to it, or one that calls RunPendingJobs.
//
// Any call may be made from any thread. Failed calls leave a platform error word (GetLastError) and one
// line of text for people (GetSpoolerErrorText).

#include "platform/platform.h"

extern "C" {

// --- errors ------------------------------------------------------------------------------------------

// Copies the text of the calling thread's last failed spooler call, in UTF-8: what is wrong and, where
// the user can mend it, what to do. Empty if there was none. Cut to `size` bytes with its NUL; gives
// the bytes that the whole text takes with its NUL. `buffer` may be null with size 0.
DWORD GetSpoolerErrorText(LPSTR buffer, DWORD size);

// --- running jobs ------------------------------------------------------------------------------------

struct SPOOLER_OPTIONS {
    DWORD cbSize;
    BOOL runAcceptedJobs;  // at first TRUE; FALSE only accepts, for another process to run
    DWORD attemptLimit;    // failed attempts after which a job stays in error; at first 10, at least 1
};
// Process-wide, from the next job on. FALSE with ERROR_INVALID_PARAMETER.
BOOL SetSpoolerOptions(const SPOOLER_OPTIONS* options);

// Starts running all ports that have jobs waiting, leftovers of killed processes included, and gives
// their number (`ports` may be null). Returns at once. Ports that another process runs are its own.
BOOL RunPendingJobs(DWORD* ports);

// How many ports this process has a thread on: 0 when all its work is done.
DWORD CountActivePorts();

// Stops politely: jobs that run are ended through the port's EndDocPort and stay queued (a job all of
// whose bytes are with the port is seen through to its outcome), then open handles are closed and the
// monitors are shut down and unloaded. FALSE with ERROR_TIMEOUT when a port isn't done in `waitMs`
// milliseconds (INFINITE is allowed): then nothing has been unloaded, no further job is run, and
// the process may end as it is or call again. After success the spooler may be used anew. Not from
// inside a monitor.
BOOL ShutdownSpooler(DWORD waitMs);

// --- following a job -----------------------------------------------------------------------------------

enum JOB_PHASE : DWORD {
    JOB_PHASE_SPOOLING = 0,  // the document is being taken in; not accepted yet
    JOB_PHASE_QUEUED = 1,    // waits for its turn on the port
    JOB_PHASE_STARTING = 2,  // the port opens its link to the print server
    JOB_PHASE_WRITING = 3,
    JOB_PHASE_WAITING = 4,   // the print server has the job in its queue and takes no bytes yet
    JOB_PHASE_ENDING = 5,    // all bytes are out; the port waits for the card
    JOB_PHASE_RETRYING = 6,  // an attempt failed, and the pause before the next one runs
    JOB_PHASE_DONE = 7,      // see the outcome
    JOB_PHASE_KEEPING = 8    // the run is over, and its outcome waits for room on the state folder's disk
};

enum JOB_OUTCOME : DWORD {
    JOB_OUTCOME_NONE = 0,     // not done yet
    JOB_OUTCOME_SENT = 1,     // the print server said that the job is through
    JOB_OUTCOME_DELETED = 2,  // by the user, or cancelled at the print server
    JOB_OUTCOME_ERROR = 3,    // given up after too many attempts; kept
    // The port took every byte and ended well, but the print server never said what became of the job.
    // Repeating it unasked could print a card twice, dropping it could lose one: it is kept.
    JOB_OUTCOME_UNCONFIRMED = 4
};
// A job in error or unconfirmed keeps its document until the user runs it again (SetJobW with
// JOB_CONTROL_RESTART, then RunPendingJobs) or deletes it (JOB_CONTROL_DELETE). Jobs that were sent
// or deleted stay listed for a week, without their documents.

struct JOB_PROGRESS {
    DWORD cbSize;
    DWORD phase;    // JOB_PHASE
    DWORD outcome;  // JOB_OUTCOME
    DWORD attempt;  // 1 in the first run, 0 before it
    ULONGLONG bytesTotal;
    ULONGLONG bytesWritten;  // taken by the port in this attempt
    DWORD lastError;         // platform word of the last failed attempt, 0 if the port gave none
    CHAR reason[260];        // why, in UTF-8 for people; empty if there is nothing to say
};
// The printer's handle, or a print server's (OpenPrinterW with a null name) for any printer's job.
// Of a job that another process runs, phase and bytes may be a second old. `cbSize` is the caller's.
// FALSE with ERROR_INVALID_PARAMETER when there is no such job; with another word when this process has given
// its port up, as the state folder is out of reach: the job waits for the next RunPendingJobs.
BOOL GetJobProgress(HANDLE printer, DWORD jobId, JOB_PROGRESS* progress);
// To wait, ask again after a Sleep. GetJobW, SetJobW and EnumJobsW take a print server's handle too.

// --- asking a port -------------------------------------------------------------------------------------

// Both work on the calling thread, through a document in channel mode of its own (no job is behind it),
// and give way to printing: FALSE with ERROR_BUSY while a job or another of these calls has the port, in
// whatever process. Jobs of the port wait meanwhile. `port` is a port's name: ERROR_UNKNOWN_PORT. When
// the monitor fails, the word is the one that it left, as a rule of its sockets, or ERROR_GEN_FAILURE.

// Asks the printer for what `controlId` stands for, with `input` as it is, and stores at most
// `outputSize` bytes of the reply. Waits for the reply as long as the print server lives.
BOOL QueryPort(LPCWSTR port, DWORD controlId, const void* input, DWORD inputSize, void* output,
               DWORD outputSize, DWORD* returned);

// TRUE if a document could be sent now: the print server let the port open both its connections. They are
// closed again without a byte on the data connection.
BOOL CheckPort(LPCWSTR port);

// --- a monitor's settings --------------------------------------------------------------------------------

// Reads or writes a 32-bit value in key `key` below the monitor's root (the monitor's log settings lie
// in "Ports"); the monitor reads them when it is loaded. Writing makes the key if need be and takes
// the administrator's right. FALSE: ERROR_UNKNOWN_PRINT_MONITOR, ERROR_FILE_NOT_FOUND.
BOOL GetMonitorSetting(LPCWSTR monitor, LPCWSTR key, LPCWSTR name, DWORD* value);
BOOL SetMonitorSetting(LPCWSTR monitor, LPCWSTR key, LPCWSTR name, DWORD value);
BOOL DeleteMonitorSetting(LPCWSTR monitor, LPCWSTR key, LPCWSTR name);

// Between the two, all that the calling thread changes in the monitors' settings, through Xcv commands too,
// is one change: it takes effect at the end, and not at all when `keep` is FALSE or the process ends before.
// Other threads and processes wait with the settings meanwhile. A monitor that is loaded keeps in memory what
// was not kept, so the process should end after that. FALSE with ERROR_INVALID_PARAMETER for a second begin,
// or an end without one.
BOOL BeginSettingsChange();
BOOL EndSettingsChange(BOOL keep);

}  // extern "C"
