// The configuration file beside the library.

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>

#include "platform/platform.h"
#include "ports/display_names.h"

namespace {

const std::string& Library()
{
    static const std::string& path = *new std::string([] {  // outlives the handler of the exit
        const auto folder =
            std::filesystem::temp_directory_path() / ("farlink_fuzz_" + std::to_string(getpid()));
        std::filesystem::create_directories(folder);
        std::atexit([] { std::filesystem::remove_all(std::filesystem::path(Library()).parent_path()); });
        return folder.string() + "/Farlink.dll";
    }());
    return path;
}

}  // namespace

// This binary's own: the library lies where the file does.
DWORD GetModuleFileNameW(HMODULE, LPWSTR name, DWORD size)
{
    const std::string& path = Library();
    const auto length = std::min<std::size_t>(path.size(), size - 1);
    std::copy_n(path.begin(), length, name);
    name[length] = 0;
    return static_cast<DWORD>(length);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static std::FILE* const file =
        std::fopen(std::filesystem::path(Library()).replace_extension(".ini").c_str(), "w+");
    std::rewind(file);
    if (std::fwrite(data, 1, size, file) != size || std::fflush(file) != 0 ||
        ftruncate(fileno(file), static_cast<off_t>(size)) != 0)
        __builtin_trap();
    ReadDisplayNames();
    if (Name == nullptr || Description == nullptr || PortNameFormat == nullptr)
        __builtin_trap();
    FreeDisplayNames();
    return 0;
}
