#include "simulate/registry.h"

#include <algorithm>

#include "platform/simulated/scheduler.h"

namespace {

const HKEYMONITOR kRoot = reinterpret_cast<HKEYMONITOR>(1);

}  // namespace

struct Registry::Callbacks {
    static Registry& Begin(HANDLE spooler)
    {
        simulated::Scheduler::Current().Point("the spooler's registry");
        return *static_cast<Registry*>(spooler);
    }
    // The path of a key's subkey. A handle that is not open is the monitor's fault.
    static WideString Path(Registry& registry, HKEYMONITOR key, LPCWSTR name)
    {
        if (key == kRoot)
            return name;
        const auto found = registry.handles.find(key);
        if (found == registry.handles.end())
            simulated::Scheduler::Current().Fail("a registry key is used that is not open");
        return *name == 0 ? found->second : found->second + TEXT("\\") + name;
    }

    static LONG Create(HKEYMONITOR parent, LPCWSTR name, DWORD, REGSAM, SECURITY_ATTRIBUTES*,
                       HKEYMONITOR* key, DWORD*, HANDLE spooler)
    {
        Registry& registry = Begin(spooler);
        const WideString path = Path(registry, parent, name);
        (void)registry.keys[path];
        *key = registry.Open(path);
        return ERROR_SUCCESS;
    }
    static LONG Open(HKEYMONITOR parent, LPCWSTR name, REGSAM, HKEYMONITOR* key, HANDLE spooler)
    {
        Registry& registry = Begin(spooler);
        const WideString path = Path(registry, parent, name);
        if (!registry.keys.contains(path))
            return ERROR_FILE_NOT_FOUND;
        *key = registry.Open(path);
        return ERROR_SUCCESS;
    }
    static LONG Close(HKEYMONITOR key, HANDLE spooler)
    {
        Registry& registry = Begin(spooler);
        (void)Path(registry, key, TEXT(""));
        registry.handles.erase(key);
        return ERROR_SUCCESS;
    }
    static LONG Delete(HKEYMONITOR parent, LPCWSTR name, HANDLE spooler)
    {
        Registry& registry = Begin(spooler);
        return registry.keys.erase(Path(registry, parent, name)) > 0 ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
    }
    static LONG Enum(HKEYMONITOR key, DWORD index, LPWSTR name, DWORD* length, FILETIME*, HANDLE spooler)
    {
        Registry& registry = Begin(spooler);
        const WideString front = Path(registry, key, TEXT("")) + TEXT("\\");
        for (const auto& [path, values] : registry.keys) {
            if (path.starts_with(front) && index-- == 0) {
                *length = static_cast<DWORD>(path.copy(name, *length - 1, front.size()));
                name[*length] = 0;
                return ERROR_SUCCESS;
            }
        }
        return ERROR_NO_MORE_ITEMS;
    }
    static LONG SetValue(HKEYMONITOR key, LPCWSTR name, DWORD, const BYTE* data, DWORD size, HANDLE spooler)
    {
        Registry& registry = Begin(spooler);
        registry.keys[Path(registry, key, TEXT(""))][name] = {data, data + size};
        return ERROR_SUCCESS;
    }
    static LONG QueryValue(HKEYMONITOR key, LPCWSTR name, DWORD*, BYTE* data, DWORD* size, HANDLE spooler)
    {
        Registry& registry = Begin(spooler);
        const Values& values = registry.keys[Path(registry, key, TEXT(""))];
        const auto found = values.find(name);
        if (found == values.end())
            return ERROR_FILE_NOT_FOUND;
        const DWORD room = *size;
        *size = static_cast<DWORD>(found->second.size());
        if (*size > room)
            return ERROR_MORE_DATA;
        std::copy(found->second.begin(), found->second.end(), data);
        return ERROR_SUCCESS;
    }
};

Registry::Registry()
{
    table.cbSize = sizeof table;
    table.fpCreateKey = &Callbacks::Create;
    table.fpOpenKey = &Callbacks::Open;
    table.fpCloseKey = &Callbacks::Close;
    table.fpDeleteKey = &Callbacks::Delete;
    table.fpEnumKey = &Callbacks::Enum;
    table.fpSetValue = &Callbacks::SetValue;
    table.fpQueryValue = &Callbacks::QueryValue;
}

MONITORINIT Registry::Init()
{
    MONITORINIT init{};
    init.cbSize = sizeof init;
    init.hSpooler = this;
    init.hckRegistryRoot = kRoot;
    init.pMonitorReg = &table;
    init.bLocal = TRUE;
    return init;
}

void Registry::Set(const WideString& key, const WideString& name, DWORD value)
{
    const auto* bytes = reinterpret_cast<const BYTE*>(&value);
    keys[key][name] = {bytes, bytes + sizeof value};
}

HKEYMONITOR Registry::Open(const WideString& path)
{
    const HKEYMONITOR handle = reinterpret_cast<HKEYMONITOR>(++handlesMade);
    handles[handle] = path;
    return handle;
}
