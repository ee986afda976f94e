#include "farlink/windows/system_library.h"

#include <array>
#include <filesystem>
#include <vector>

#include "farlink/failure.h"

namespace farlink {

WideString SystemFolder()
{
    std::array<WCHAR, MAX_PATH> folder{};
    GetSystemDirectoryW(folder.data(), static_cast<UINT>(folder.size()));
    return folder.data() + WideString(TEXT("\\"));
}

std::optional<std::string> BuildOfSystemLibrary()
{
    const WideString path = SystemFolder() + kLibrary;
    std::vector<BYTE> resource(GetFileVersionInfoSizeW(path.c_str(), nullptr));
    if (resource.empty() ||
        !GetFileVersionInfoW(path.c_str(), 0, static_cast<DWORD>(resource.size()), resource.data()))
        return std::nullopt;
    void* text = nullptr;
    UINT length = 0;
    if (!VerQueryValueW(resource.data(), TEXT("\\StringFileInfo\\040904B0\\ProductVersion"), &text, &length))
        return std::nullopt;
    return ToUtf8(static_cast<LPCWSTR>(text));
}

// The spooler loads monitors from its system folder alone, and whoever can put a file there can run code in
// the spooler: so that is left to the administrator's own hands.
void RequireSystemLibrary()
{
    const WideString place = SystemFolder() + kLibrary;
    if (!std::filesystem::is_regular_file(place))
        throw Failure("'" + ToUtf8(place) +
                      "' is missing, and the spooler looks for it there; copy it first, as administrator: "
                      "copy Farlink.dll \"" +
                      ToUtf8(SystemFolder()) + "\"");
}

}  // namespace farlink
