#include "tests/support/registry_double.h"

#include <algorithm>
#include <cctype>
#include <cstring>

#include "tests/support/failing_new.h"
#include "tests/support/text.h"

// The C functions of the table; the spooler handle is the double's address.
struct RegistryCallbacks {
    using Key = RegistryDouble::Key;

    // Finds the double and the key, and does the call's work on them, unless it is to fail. The double's own
    // memory never runs out.
    template <class Work>
    static LONG Run(HANDLE spooler, Registry callback, HKEYMONITOR handle, LPCWSTR name, Work work)
    {
        const UntouchedNew untouched;
        RegistryDouble& registry = *static_cast<RegistryDouble*>(spooler);
        registry.RunHook(callback);
        const std::lock_guard held(registry.lock);
        const LONG error = registry.Begin(callback, handle, name);
        return error != ERROR_SUCCESS ? error : static_cast<LONG>(work(registry, *registry.handles[handle]));
    }

    static LONG CreateKey(HKEYMONITOR parent, LPCWSTR name, DWORD, REGSAM, SECURITY_ATTRIBUTES*,
                          HKEYMONITOR* key, DWORD*, HANDLE spooler)
    {
        return Run(spooler, Registry::CreateKey, parent, name, [&](RegistryDouble& registry, Key& in) {
            *key = registry.NewHandle(RegistryDouble::MakeSubkey(in, Narrow(name)));
            return ERROR_SUCCESS;
        });
    }

    static LONG OpenKey(HKEYMONITOR parent, LPCWSTR name, REGSAM, HKEYMONITOR* key, HANDLE spooler)
    {
        return Run(spooler, Registry::OpenKey, parent, name, [&](RegistryDouble& registry, Key& in) -> LONG {
            const auto found = RegistryDouble::Subkey(in, Narrow(name));
            if (found == nullptr)
                return ERROR_FILE_NOT_FOUND;
            *key = registry.NewHandle(found);
            return ERROR_SUCCESS;
        });
    }

    static LONG CloseKey(HKEYMONITOR key, HANDLE spooler)
    {
        return Run(spooler, Registry::CloseKey, key, nullptr, [&](RegistryDouble& registry, Key&) {
            if (key == registry.rootHandle)
                registry.faults.push_back("the spooler's root key was closed");
            registry.handles.erase(key);
            return ERROR_SUCCESS;
        });
    }

    static LONG DeleteKey(HKEYMONITOR parent, LPCWSTR name, HANDLE spooler)
    {
        return Run(spooler, Registry::DeleteKey, parent, name, [&](RegistryDouble&, Key& in) -> LONG {
            const auto found = RegistryDouble::Subkey(in, Narrow(name));
            if (found == nullptr)
                return ERROR_FILE_NOT_FOUND;
            if (!found->subkeys.empty())
                return ERROR_ACCESS_DENIED;
            in.subkeys.erase(RegistryDouble::PlaceOf(in, Narrow(name)));
            return ERROR_SUCCESS;
        });
    }

    static LONG EnumKey(HKEYMONITOR key, DWORD index, LPWSTR name, DWORD* length, FILETIME*, HANDLE spooler)
    {
        return Run(spooler, Registry::EnumKey, key, nullptr, [&](RegistryDouble&, Key& in) -> LONG {
            if (index >= in.subkeys.size())
                return ERROR_NO_MORE_ITEMS;
            const WideString found = Wide(in.subkeys[index]->name);
            if (found.size() >= *length)
                return ERROR_MORE_DATA;
            std::memcpy(name, found.c_str(), (found.size() + 1) * sizeof(WCHAR));
            *length = static_cast<DWORD>(found.size());
            return ERROR_SUCCESS;
        });
    }

    static LONG SetValue(HKEYMONITOR key, LPCWSTR name, DWORD type, const BYTE* data, DWORD size,
                         HANDLE spooler)
    {
        return Run(spooler, Registry::SetValue, key, name, [&](RegistryDouble&, Key& in) {
            in.values[Narrow(name)] = {type, {data, data + size}};
            return ERROR_SUCCESS;
        });
    }

    static LONG QueryValue(HKEYMONITOR key, LPCWSTR name, DWORD* type, BYTE* data, DWORD* size,
                           HANDLE spooler)
    {
        return Run(spooler, Registry::QueryValue, key, name, [&](RegistryDouble&, Key& in) -> LONG {
            const auto found = in.values.find(Narrow(name));
            if (found == in.values.end())
                return ERROR_FILE_NOT_FOUND;
            const DWORD room = *size;
            *size = static_cast<DWORD>(found->second.bytes.size());
            if (*size > room)
                return ERROR_MORE_DATA;
            *type = found->second.type;
            std::copy(found->second.bytes.begin(), found->second.bytes.end(), data);
            return ERROR_SUCCESS;
        });
    }
};

bool RegistryDouble::IgnoringCase::operator()(const std::string& left, const std::string& right) const
{
    return std::lexicographical_compare(
        left.begin(), left.end(), right.begin(), right.end(),
        [](unsigned char a, unsigned char b) { return std::tolower(a) < std::tolower(b); });
}

RegistryDouble::RegistryDouble() : callbacks{}, root(std::make_shared<Key>())
{
    callbacks.cbSize = sizeof(callbacks);
    callbacks.fpCreateKey = RegistryCallbacks::CreateKey;
    callbacks.fpOpenKey = RegistryCallbacks::OpenKey;
    callbacks.fpCloseKey = RegistryCallbacks::CloseKey;
    callbacks.fpDeleteKey = RegistryCallbacks::DeleteKey;
    callbacks.fpEnumKey = RegistryCallbacks::EnumKey;
    callbacks.fpSetValue = RegistryCallbacks::SetValue;
    callbacks.fpQueryValue = RegistryCallbacks::QueryValue;
    rootHandle = NewHandle(root);
}

RegistryDouble::~RegistryDouble() = default;

MONITORINIT RegistryDouble::Init()
{
    MONITORINIT init{};
    init.cbSize = sizeof(init);
    init.hSpooler = this;
    init.hckRegistryRoot = rootHandle;
    init.pMonitorReg = &callbacks;
    init.bLocal = TRUE;
    return init;
}

void RegistryDouble::SetDword(const std::string& path, const std::string& name, DWORD value)
{
    Set(path, name, REG_DWORD, &value, sizeof(value));
}

void RegistryDouble::SetText(const std::string& path, const std::string& name, const WideString& value)
{
    Set(path, name, REG_SZ, value.c_str(), (value.size() + 1) * sizeof(WCHAR));
}

void RegistryDouble::SetBytes(const std::string& path, const std::string& name,
                              const std::vector<BYTE>& bytes)
{
    Set(path, name, REG_BINARY, bytes.data(), bytes.size());
}

void RegistryDouble::Set(const std::string& path, const std::string& name, DWORD type, const void* data,
                         std::size_t size)
{
    const auto* bytes = static_cast<const BYTE*>(data);
    Locked([&] { Make(path)->values[name] = {type, {bytes, bytes + size}}; });
}

void RegistryDouble::AddPort(const std::string& name, const WideString& server, DWORD number)
{
    SetText("Ports/" + name, "Print Server", server);
    SetDword("Ports/" + name, "Port Number", number);
}

std::vector<std::string> RegistryDouble::Subkeys(const std::string& path) const
{
    std::lock_guard held(lock);
    std::vector<std::string> names;
    if (const auto key = Find(path)) {
        for (const auto& subkey : key->subkeys)
            names.push_back(subkey->name);
    }
    return names;
}

std::optional<DWORD> RegistryDouble::Dword(const std::string& path, const std::string& name) const
{
    std::lock_guard held(lock);
    const auto key = Find(path);
    if (key == nullptr || !key->values.contains(name) || key->values.at(name).type != REG_DWORD)
        return std::nullopt;
    DWORD value = 0;
    std::memcpy(&value, key->values.at(name).bytes.data(), sizeof(value));
    return value;
}

std::optional<WideString> RegistryDouble::Text(const std::string& path, const std::string& name) const
{
    std::lock_guard held(lock);
    const auto key = Find(path);
    if (key == nullptr || !key->values.contains(name) || key->values.at(name).type != REG_SZ)
        return std::nullopt;
    const std::vector<BYTE>& bytes = key->values.at(name).bytes;
    WideString text(bytes.size() / sizeof(WCHAR), 0);
    std::memcpy(text.data(), bytes.data(), text.size() * sizeof(WCHAR));
    if (text.find(WCHAR{0}) != text.size() - 1)
        return std::nullopt;
    text.pop_back();
    return text;
}

void RegistryDouble::RunHook(Registry callback)
{
    if (const std::function<void()> hook = Locked([&] { return hooks[callback]; }))
        hook();
}

RegistryDouble::SubkeyPlace RegistryDouble::PlaceOf(Key& parent, const std::string& name)
{
    return std::lower_bound(parent.subkeys.begin(), parent.subkeys.end(), name,
                            [](const std::shared_ptr<Key>& key, const std::string& wanted) {
                                return IgnoringCase()(key->name, wanted);
                            });
}

std::shared_ptr<RegistryDouble::Key> RegistryDouble::Subkey(Key& parent, const std::string& name)
{
    const SubkeyPlace place = PlaceOf(parent, name);
    return place == parent.subkeys.end() || IgnoringCase()(name, (*place)->name) ? nullptr : *place;
}

std::shared_ptr<RegistryDouble::Key> RegistryDouble::MakeSubkey(Key& parent, const std::string& name)
{
    if (const auto found = Subkey(parent, name))
        return found;
    auto made = std::make_shared<Key>();
    made->name = name;
    made->path = parent.path.empty() ? name : parent.path + "/" + name;
    parent.subkeys.insert(PlaceOf(parent, name), made);
    return made;
}

std::shared_ptr<RegistryDouble::Key> RegistryDouble::Walk(
    const std::string& path, std::shared_ptr<Key> (*step)(Key& parent, const std::string& name)) const
{
    std::shared_ptr<Key> key = root;
    for (std::size_t at = 0; key != nullptr && at < path.size();) {
        const std::size_t end = std::min(path.find('/', at), path.size());
        key = step(*key, path.substr(at, end - at));
        at = end + 1;
    }
    return key;
}

HKEYMONITOR RegistryDouble::NewHandle(std::shared_ptr<Key> key)
{
    const auto handle = reinterpret_cast<HKEYMONITOR>(++handlesMade);
    handles[handle] = std::move(key);
    return handle;
}

LONG RegistryDouble::Begin(Registry callback, HKEYMONITOR handle, LPCWSTR name)
{
    const auto found = handles.find(handle);
    if (found == handles.end()) {
        faults.push_back("a call on a key that is not open");
        return ERROR_INVALID_HANDLE;
    }
    calls.push_back(
        {callback, found->second->path, name != nullptr ? Narrow(name) : "", GetCurrentThreadId()});
    Failure& failure = failures[callback];
    if (failure.skip > 0) {
        failure.skip--;
        return ERROR_SUCCESS;
    }
    if (failure.times == 0)
        return ERROR_SUCCESS;
    failure.times--;
    return failure.error;
}
