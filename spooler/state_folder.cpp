#include "spooler/state_folder.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include "spooler/account.h"
#include "spooler/spooler_error.h"

namespace spooler {

namespace {

std::string Environment(const char* name)
{
    const char* value = std::getenv(name);
    return value == nullptr ? std::string() : std::string(value);
}

std::string HomeFolder()
{
    std::string home = Environment("HOME");
    if (!home.empty())
        return home;
    home = CurrentAccount().home;
    if (!home.empty())
        return home;
    Throw(ERROR_PATH_NOT_FOUND, "There is no home folder for the spooler's state. Set FARLINK_STATE.");
}

std::string ChosenPath()
{
    if (std::string own = Environment("FARLINK_STATE"); !own.empty())
        return own;
    // A relative XDG_STATE_HOME is to be ignored (XDG base directories).
    if (std::string state = Environment("XDG_STATE_HOME"); state.starts_with('/'))
        return state + "/farlink";
    return HomeFolder() + "/.local/state/farlink";
}

void MakeFolder(const std::string& path)
{
    if (mkdir(path.c_str(), 0700) == 0)
        return;
    const int error = errno;
    struct stat found = {};
    if (error == EEXIST && stat(path.c_str(), &found) == 0 && S_ISDIR(found.st_mode))
        return;
    ThrowErrno("The spooler's state folder " + path + " can't be made (choose another with FARLINK_STATE)",
               error == EEXIST ? ENOTDIR : error);
}

}  // namespace

StateFolder::StateFolder()
{
    std::error_code unknown;
    path = std::filesystem::absolute(ChosenPath(), unknown).lexically_normal().string();
    while (path.size() > 1 && path.ends_with('/'))
        path.pop_back();
    for (std::size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1))
        MakeFolder(path.substr(0, slash));
    MakeFolder(path);
    MakeFolder(DocumentFolder());
}

std::string StateFolder::DocumentPath(DWORD jobId) const
{
    return DocumentFolder() + "/" + std::to_string(jobId) + ".spl";
}

bool StateFolder::HasDocuments() const
{
    std::error_code unreadable;
    return !std::filesystem::is_empty(DocumentFolder(), unreadable) && !unreadable;
}

bool StateFolder::MayAdminister() const
{
    struct stat found = {};
    if (stat(path.c_str(), &found) != 0)
        return false;
    return geteuid() == 0 || geteuid() == found.st_uid;
}

}  // namespace spooler
