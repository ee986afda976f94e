#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "platform/platform.h"

namespace spooler {

// The document of a job that is being taken in. Its file is locked while it is open, so that another
// process can tell a document under way from one that a killed process left. Throws SpoolerError.
class DocumentWriter {
public:
    // Makes the file anew. Runs within the change of the database that makes the job's row, so that nobody
    // else can mean the same file.
    explicit DocumentWriter(std::string path);
    // Without a Finish the file stays, unlocked.
    ~DocumentWriter();
    DocumentWriter(const DocumentWriter&) = delete;
    DocumentWriter& operator=(const DocumentWriter&) = delete;

    void Write(std::span<const BYTE> bytes);
    // Makes the bytes and the file's name safe on disk. The file stays locked.
    void Finish();
    std::uint64_t Size() const { return size; }

private:
    std::string path;
    int file;
    std::uint64_t size = 0;
};

// The document of a job that runs. Throws SpoolerError.
class DocumentReader {
public:
    explicit DocumentReader(const std::string& path);
    ~DocumentReader();
    DocumentReader(const DocumentReader&) = delete;
    DocumentReader& operator=(const DocumentReader&) = delete;

    // The next bytes, at most as many as `buffer` holds; 0 at the end.
    std::size_t Read(std::span<BYTE> buffer);

private:
    int file;
};

// True unless a DocumentWriter of some process has the file open.
bool IsAbandoned(const std::string& path);
void RemoveDocument(const std::string& path);

}  // namespace spooler
