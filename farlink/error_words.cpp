#include "farlink/error_words.h"

#include <algorithm>
#include <iterator>

namespace farlink {

namespace {

#ifdef _WIN32
constexpr const char* kRightsRemedy =
    "type it in a command prompt that was opened with 'Run as administrator'";
constexpr const char* kLibraryRemedy =
    "it belongs in the system folder: 'farlink monitor install' tells where";
#else
constexpr const char* kRightsRemedy = "run it as the owner of the state folder";
constexpr const char* kLibraryRemedy = "it belongs beside farlink";
#endif

#define WORD_AND_NAME(word) word, #word

constexpr ErrorWord kErrorWords[] = {
    {WORD_AND_NAME(ERROR_FILE_NOT_FOUND), "there is no such port", "'farlink port list' shows all"},
    {WORD_AND_NAME(ERROR_PATH_NOT_FOUND), "there is no such folder"},
    {WORD_AND_NAME(ERROR_TOO_MANY_OPEN_FILES), "too many files are open"},
    {WORD_AND_NAME(ERROR_ACCESS_DENIED), "not permitted, or the settings could not be stored", kRightsRemedy},
    {WORD_AND_NAME(ERROR_INVALID_HANDLE), "the handle is not valid"},
    {WORD_AND_NAME(ERROR_NOT_ENOUGH_MEMORY), "out of memory"},
    {WORD_AND_NAME(ERROR_WRITE_PROTECT), "the state folder can't be written to"},
    {WORD_AND_NAME(ERROR_GEN_FAILURE), "the port could not deliver the job",
     "the monitor's log tells why ('farlink log level --file on --limit 10240')"},
    {WORD_AND_NAME(ERROR_SHARING_VIOLATION), "another process uses the file"},
    {WORD_AND_NAME(ERROR_NOT_SUPPORTED), "not supported"},
    {WORD_AND_NAME(ERROR_PRINT_CANCELLED), "the job was cancelled"},
    {WORD_AND_NAME(ERROR_FILE_EXISTS), "the file exists already"},
    {WORD_AND_NAME(ERROR_INVALID_PARAMETER), "a value is not valid"},
    {WORD_AND_NAME(ERROR_DISK_FULL), "the disk is full"},
    {WORD_AND_NAME(ERROR_INSUFFICIENT_BUFFER), "the answer is longer than expected"},
    {WORD_AND_NAME(ERROR_INVALID_LEVEL), "the record level is not served"},
    {WORD_AND_NAME(ERROR_MOD_NOT_FOUND), "the monitor's library can't be loaded", kLibraryRemedy},
    {WORD_AND_NAME(ERROR_PROC_NOT_FOUND), "the monitor did not start"},
    {WORD_AND_NAME(ERROR_BAD_ARGUMENTS), "the arguments are not valid"},
    {WORD_AND_NAME(ERROR_BUSY), "a document prints on it", "try again when it is through"},
    {WORD_AND_NAME(ERROR_ALREADY_EXISTS), "there is a port of this name already", "choose another name"},
    {WORD_AND_NAME(ERROR_FILENAME_EXCED_RANGE), "the name is too long"},
    {WORD_AND_NAME(ERROR_KEY_DELETED), "the settings are being deleted"},
    {WORD_AND_NAME(ERROR_IO_DEVICE), "the disk failed"},
    {WORD_AND_NAME(ERROR_REVISION_MISMATCH), "the state folder is of another version"},
    {WORD_AND_NAME(ERROR_FILE_CORRUPT), "the state folder's database is damaged"},
    {WORD_AND_NAME(ERROR_TIMEOUT), "it took too long"},
    {WORD_AND_NAME(ERROR_UNKNOWN_PORT), "there is no such port", "'farlink port list' shows all"},
    {WORD_AND_NAME(ERROR_INVALID_PRINTER_NAME), "there is no port or printer of this name",
     "'farlink port list' shows the ports"},
    {WORD_AND_NAME(ERROR_PRINTER_ALREADY_EXISTS), "a printer of this name exists on another port",
     "print to that printer, or name the port otherwise"},
    {WORD_AND_NAME(ERROR_INVALID_DATATYPE), "the data type is not served"},
    {WORD_AND_NAME(ERROR_INVALID_PRINTER_STATE), "the printer is in the wrong state"},
    {WORD_AND_NAME(ERROR_UNKNOWN_PRINT_MONITOR), "the monitor is not installed"},
    {WORD_AND_NAME(ERROR_SPL_NO_STARTDOC), "no document was begun"},
    {WORD_AND_NAME(ERROR_PRINTER_HAS_JOBS_QUEUED), "it has jobs"},
#ifdef _WIN32
    {WORD_AND_NAME(ERROR_PRIVILEGE_NOT_HELD), "not permitted", kRightsRemedy},
    {WORD_AND_NAME(RPC_S_SERVER_UNAVAILABLE), "the print spooler is not running",
     "'net start spooler' starts it"},
    {WORD_AND_NAME(ERROR_PRINT_MONITOR_ALREADY_INSTALLED), "a monitor of this name is installed already",
     "there is nothing to do if 'farlink monitor status' shows it"},
    {WORD_AND_NAME(ERROR_PRINT_MONITOR_IN_USE), "printers still use its ports",
     "delete them, or give them another port"},
#endif
    // Of the sockets to the print server.
    {WORD_AND_NAME(WSA_OPERATION_ABORTED), "the connection was given up here",
     "the print server was silent for too long, or the port was deleted"},
    {WORD_AND_NAME(WSAEACCES), "the system does not allow the connection"},
    {WORD_AND_NAME(WSAEADDRNOTAVAIL), "the print server's address can't be used from here"},
    {WORD_AND_NAME(WSAENETDOWN), "the network is down"},
    {WORD_AND_NAME(WSAENETUNREACH), "the print server's network can't be reached"},
    {WORD_AND_NAME(WSAECONNABORTED), "the connection was broken off"},
    {WORD_AND_NAME(WSAECONNRESET), "the print server broke the connection off"},
    {WORD_AND_NAME(WSAENOTCONN), "the connection is gone"},
    {WORD_AND_NAME(WSAESHUTDOWN), "the connection was given up"},
    {WORD_AND_NAME(WSAETIMEDOUT), "the print server does not answer"},
    {WORD_AND_NAME(WSAECONNREFUSED), "nothing listens at the port's server and number"},
    {WORD_AND_NAME(WSAEHOSTUNREACH), "the print server can't be reached"},
    {WORD_AND_NAME(WSAHOST_NOT_FOUND), "the print server's name is not known"},
};

#undef WORD_AND_NAME

}  // namespace

const ErrorWord* FindErrorWord(DWORD word)
{
    const auto* found = std::ranges::find(kErrorWords, word, &ErrorWord::word);
    return found == std::end(kErrorWords) ? nullptr : found;
}

std::string NameOfWord(DWORD word)
{
    const ErrorWord* known = FindErrorWord(word);
    return known == nullptr ? "platform error " + std::to_string(word)
                            : std::string(known->name) + ", " + std::to_string(word);
}

}  // namespace farlink
