#include "ports/display_names.h"

#include "diagnostics/module_file.h"

LPCWSTR Name = nullptr;
LPCWSTR Description = nullptr;
LPCWSTR PortNameFormat = nullptr;

namespace {

constexpr DWORD kPathSize = 256;
constexpr DWORD kValueSize = 2048;
constexpr WideStringView kExtension = TEXT(".ini");

// The configuration file's path. Left empty when the library's own doesn't fit: a cut path would name
// some other file.
void FindConfigurationFile(WCHAR (&path)[kPathSize])
{
    path[0] = 0;
    if (!GetModuleFilePath(path, kPathSize) || WideStringView(path).size() < kExtension.size())
        path[0] = 0;
    else
        kExtension.copy(path + WideStringView(path).size() - kExtension.size(), kExtension.size());
}

// Allocated with new[].
LPCWSTR ReadSetting(LPCWSTR key, LPCWSTR defaultValue)
{
    WCHAR path[kPathSize];
    FindConfigurationFile(path);
    WCHAR buffer[kValueSize];
    WideStringView value = defaultValue;
    if (path[0] != 0)
        value = {buffer,
                 GetPrivateProfileStringW(TEXT("Farlink"), key, defaultValue, buffer, kValueSize, path)};
    WCHAR* text = new WCHAR[value.size() + 1];
    value.copy(text, value.size());
    text[value.size()] = 0;
    return text;
}

void FreeSetting(LPCWSTR& text)
{
    delete[] text;
    text = nullptr;
}

}  // namespace

void ReadDisplayNames()
{
    FreeDisplayNames();  // those of an attach that came before
    Name = ReadSetting(TEXT("Name"), TEXT("Remote TCP/IP Card Printer Port"));
    Description = ReadSetting(TEXT("Description"), TEXT("Card Printer TCP/IP Port"));
    PortNameFormat = ReadSetting(TEXT("PortNameFormat"), TEXT("CRDPTR::%s"));
}

void FreeDisplayNames()
{
    FreeSetting(Name);
    FreeSetting(Description);
    FreeSetting(PortNameFormat);
}
