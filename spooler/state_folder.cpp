#include "spooler/state_folder.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <vector>

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
    if (std::string home = Environment("HOME"); !home.empty())
        return home;
    std::vector<char> buffer(std::size_t{16} * 1024);
    passwd entry = {};
    passwd* found = nullptr;
    if (getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr)
        return found->pw_dir;
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

// In a folder of this account, or of root's: a folder that root made in somebody's home would lock the owner
// out of it.
void MakeFolder(const std::string& path)
{
    const std::string folder = "The spooler's state folder " + path;
    struct stat found = {};
    if (stat(path.c_str(), &found) == 0 && S_ISDIR(found.st_mode))
        return;
    const std::string parent = path.substr(0, std::max<std::size_t>(1, path.rfind('/')));
    if (stat(parent.c_str(), &found) == 0 && found.st_uid != geteuid() && found.st_uid != 0)
        Throw(ERROR_ACCESS_DENIED, folder + " would lie in " + parent +
                                       ", which belongs to another account. Run this as that account, or "
                                       "choose another folder with FARLINK_STATE.");
    if (mkdir(path.c_str(), 0700) != 0 && errno != EEXIST)
        ThrowErrno(folder + " can't be made (choose another with FARLINK_STATE)", errno);
    if (stat(path.c_str(), &found) != 0 || !S_ISDIR(found.st_mode))
        ThrowErrno(folder + " can't be made (choose another with FARLINK_STATE)", ENOTDIR);
}

// Root too has no business in another account's folder: that account would choose what root runs.
void RequireOwn(const std::string& path)
{
    const std::string folder = "The spooler's state folder " + path;
    struct stat found = {};
    if (lstat(path.c_str(), &found) != 0)
        ThrowErrno(folder + " can't be looked at", errno);
    if (S_ISLNK(found.st_mode))
        Throw(ERROR_ACCESS_DENIED, folder + " is a link. Name the folder itself with FARLINK_STATE.");
    if (found.st_uid != geteuid())
        Throw(ERROR_ACCESS_DENIED, folder +
                                       " belongs to another account. Run this as that account, or "
                                       "choose another folder with FARLINK_STATE.");
    if ((found.st_mode & (S_IWGRP | S_IWOTH)) != 0)
        Throw(ERROR_ACCESS_DENIED, folder +
                                       " can be written to by other accounts. If nobody has changed it, "
                                       "take that away with 'chmod 700 " +
                                       path + "'.");
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
    RequireOwn(path);
}

}  // namespace spooler
