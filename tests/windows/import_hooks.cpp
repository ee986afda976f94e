#include "tests/windows/import_hooks.h"

namespace {

// The module's data at an address that its headers give.
template <typename Data>
Data* At(HMODULE module, ULONGLONG address)
{
    return reinterpret_cast<Data*>(reinterpret_cast<BYTE*>(module) + address);
}

void Overwrite(ULONGLONG& entry, const void* replacement)
{
    DWORD protection = 0;
    VirtualProtect(&entry, sizeof entry, PAGE_READWRITE, &protection);
    entry = reinterpret_cast<ULONGLONG>(replacement);
    VirtualProtect(&entry, sizeof entry, protection, &protection);
}

bool ReplaceIn(HMODULE module, const IMAGE_IMPORT_DESCRIPTOR& imports, std::string_view function,
               const void* replacement)
{
    const auto* names = At<IMAGE_THUNK_DATA>(module, imports.OriginalFirstThunk);
    auto* entries = At<IMAGE_THUNK_DATA>(module, imports.FirstThunk);
    for (; names->u1.AddressOfData != 0; ++names, ++entries) {
        const bool isNumber = (names->u1.Ordinal & IMAGE_ORDINAL_FLAG) != 0;
        if (isNumber || At<IMAGE_IMPORT_BY_NAME>(module, names->u1.AddressOfData)->Name != function)
            continue;
        Overwrite(entries->u1.Function, replacement);
        return true;
    }
    return false;
}

}  // namespace

bool ReplaceImport(HMODULE module, std::string_view function, const void* replacement)
{
    const auto offset = static_cast<ULONGLONG>(At<IMAGE_DOS_HEADER>(module, 0)->e_lfanew);
    const auto* headers = At<IMAGE_NT_HEADERS>(module, offset);
    const IMAGE_DATA_DIRECTORY& directory =
        headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    for (const auto* imports = At<IMAGE_IMPORT_DESCRIPTOR>(module, directory.VirtualAddress);
         imports->Name != 0; ++imports)
        if (ReplaceIn(module, *imports, function, replacement))
            return true;
    return false;
}
