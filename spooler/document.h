#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <stop_token>
#include <string>

#include "platform/platform.h"
#include "spooler/api_visibility.h"

namespace spooler {

// A document that is to be printed, as often as need be. Used by one thread at a time. What can't be read
// throws SpoolerError with a sentence for people: ERROR_INVALID_PARAMETER for an empty one,
// ERROR_PRINT_CANCELLED when a stop was asked while it was taken in, ERROR_FILE_CORRUPT when it changed since
// it was opened, and else the system's word.
class SPOOLER_API Document {
public:
    // A regular file is read where it lies, without a copy, whatever becomes of its name. Anything else (a
    // pipe, a FIFO, a terminal) is opened once, which doesn't wait for a writer, and taken in whole into a
    // temporary file without a name ($TMPDIR, else /var/tmp). A stop ends the wait for input at once.
    static std::unique_ptr<Document> OpenFile(const std::string& path, std::stop_token stop);
    // The same of an open descriptor, 0 for standard input. A regular file is read from where it stands. The
    // descriptor stays the caller's and open.
    static std::unique_ptr<Document> OpenDescriptor(int descriptor, const std::string& name,
                                                    std::stop_token stop);

    ~Document();
    Document(const Document&) = delete;
    Document& operator=(const Document&) = delete;

    std::uint64_t Size() const { return end - begin; }  // in bytes, never 0
    // All `buffer` from `offset` on, which lie within the document.
    void Read(std::uint64_t offset, std::span<BYTE> buffer) const;
    // Throws when the file has another length or time of change than when it was opened.
    void RequireUnchanged() const;

private:
    // Takes the file over.
    Document(int opened, std::string documentName, std::uint64_t from);

    const int file;
    const std::string name;
    const std::uint64_t begin;
    std::uint64_t end = 0;
    std::int64_t changedAt = 0;  // ns
};

}  // namespace spooler
