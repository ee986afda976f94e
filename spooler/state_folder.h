#pragma once

#include <string>

namespace spooler {

// The folder that holds everything the spooler keeps. It belongs to the account that this process runs as,
// and to it alone: who may write to it decides which library is loaded.
class StateFolder {
public:
    // Finds the folder by the environment and makes what is missing of it. Throws SpoolerError for one that
    // is a link, belongs to another account, or can be written to by others.
    StateFolder();

    std::string DatabasePath() const { return path + "/spooler.db"; }
    const std::string& Path() const { return path; }

private:
    std::string path;
};

}  // namespace spooler
