#pragma once

// The embedded spooler's own calls, beside those that it shares with the platform (OpenPrinterW,
// StartDocPrinterW, SetJobW ... in win32_spooler.h). The library is libspoolss.so.
//
// Ports and settings lie in one folder: $FARLINK_STATE, else $XDG_STATE_HOME/farlink, else
// ~/.local/state/farlink. The first call that needs it opens it; nothing has to be started. Several
// processes may use one folder at a time. Documents are printed by spooler/printing.h.
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

// Closes open sessions, and shuts down and unloads the monitors of the state folder; each is gone when its
// last user is out. The spooler may then be used anew. Not from inside a monitor.
BOOL ShutdownSpooler();

// --- asking a port -------------------------------------------------------------------------------------

// Asks the printer for what `controlId` stands for, with `input` as it is, and stores at most
// `outputSize` bytes of the reply. Works on the calling thread, in a monitor of its own and without a job, so
// that it goes on beside documents; waits for the reply as long as the print server lives. `port` is a
// port's name: ERROR_UNKNOWN_PORT. When the monitor fails, the word is the one that it left, as a rule of
// its sockets, or ERROR_GEN_FAILURE.
BOOL QueryPort(LPCWSTR port, DWORD controlId, const void* input, DWORD inputSize, void* output,
               DWORD outputSize, DWORD* returned);

// Reads what the printer sends by itself, at most `outputSize` bytes, until so many have come or none came
// for `waitMs`; so 0 bytes is a success too. Below the same conditions as QueryPort, and with the same
// errors.
BOOL ReadFromPort(LPCWSTR port, void* output, DWORD outputSize, DWORD waitMs, DWORD* returned);

// --- a monitor's settings --------------------------------------------------------------------------------

// Reads or writes a 32-bit value in key `key` below the monitor's root (the monitor's log settings lie
// in "Ports"); the monitor reads them when it is loaded. Writing makes the key if need be. FALSE:
// ERROR_UNKNOWN_PRINT_MONITOR, ERROR_FILE_NOT_FOUND.
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
