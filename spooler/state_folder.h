#pragma once

#include <string>

#include "platform/platform.h"

namespace spooler {

// The folder that holds everything the spooler keeps: the database, the documents of accepted jobs,
// the lock file. File names in it come from job numbers and literals alone, never from outside.
class StateFolder {
public:
    // Finds the folder by the environment and makes what is missing of it, for this user alone.
    // Throws SpoolerError.
    StateFolder();

    std::string DatabasePath() const { return path + "/spooler.db"; }
    std::string LockPath() const { return path + "/ports.lock"; }
    std::string DocumentFolder() const { return path + "/documents"; }
    std::string DocumentPath(DWORD jobId) const;

    bool HasDocuments() const;

    // True when this process may change monitors and ports: it runs as the folder's owner or as root.
    bool MayAdminister() const;

    const std::string& Path() const { return path; }

private:
    std::string path;
};

}  // namespace spooler
