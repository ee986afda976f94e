#include "tests/windows/registry_callbacks.h"

namespace {

HKEY Key(HANDLE key)
{
    return static_cast<HKEY>(key);
}

LONG WINAPI CreateKey(HANDLE parent, LPCWSTR name, DWORD options, REGSAM access,
                      PSECURITY_ATTRIBUTES security, PHANDLE key, PDWORD disposition, HANDLE)
{
    return RegCreateKeyExW(Key(parent), name, 0, nullptr, options, access, security,
                           reinterpret_cast<PHKEY>(key), disposition);
}

LONG WINAPI OpenKey(HANDLE parent, LPCWSTR name, REGSAM access, PHANDLE key, HANDLE)
{
    return RegOpenKeyExW(Key(parent), name, 0, access, reinterpret_cast<PHKEY>(key));
}

LONG WINAPI CloseKey(HANDLE key, HANDLE)
{
    return RegCloseKey(Key(key));
}

LONG WINAPI DeleteKey(HANDLE parent, LPCWSTR name, HANDLE)
{
    return RegDeleteKeyW(Key(parent), name);
}

LONG WINAPI EnumKey(HANDLE key, DWORD index, LPWSTR name, PDWORD length, PFILETIME lastWrite, HANDLE)
{
    return RegEnumKeyExW(Key(key), index, name, length, nullptr, nullptr, nullptr, lastWrite);
}

LONG WINAPI QueryInfoKey(HANDLE key, PDWORD subkeys, PDWORD maxSubkey, PDWORD values, PDWORD maxValueName,
                         PDWORD maxValue, PDWORD security, PFILETIME lastWrite, HANDLE)
{
    return RegQueryInfoKeyW(Key(key), nullptr, nullptr, nullptr, subkeys, maxSubkey, nullptr, values,
                            maxValueName, maxValue, security, lastWrite);
}

LONG WINAPI SetValue(HANDLE key, LPCWSTR name, DWORD type, const BYTE* data, DWORD size, HANDLE)
{
    return RegSetValueExW(Key(key), name, 0, type, data, size);
}

LONG WINAPI DeleteValue(HANDLE key, LPCWSTR name, HANDLE)
{
    return RegDeleteValueW(Key(key), name);
}

LONG WINAPI EnumValue(HANDLE key, DWORD index, LPWSTR name, PDWORD length, PDWORD type, PBYTE data,
                      PDWORD size, HANDLE)
{
    return RegEnumValueW(Key(key), index, name, length, nullptr, type, data, size);
}

LONG WINAPI QueryValue(HANDLE key, LPCWSTR name, PDWORD type, PBYTE data, PDWORD size, HANDLE)
{
    return RegQueryValueExW(Key(key), name, nullptr, type, data, size);
}

}  // namespace

MONITORREG registryCallbacks = {sizeof(MONITORREG), CreateKey, OpenKey,     CloseKey,  DeleteKey, EnumKey,
                                QueryInfoKey,       SetValue,  DeleteValue, EnumValue, QueryValue};
