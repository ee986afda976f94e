#include "tests/support/registry_double.h"

#include <algorithm>
#include <cctype>
#include <cstring>

#include "tests/support/failing_new.h"
#include "tests/support/text.h"

// The C functions of the table; the spooler handle is the double's address.
struct RegistryCallbacks {
    static RegistryDouble& Of(HANDLE spooler, Registry callback)
    {
        RegistryDouble& registry = *static_cast<RegistryDouble*>(spooler);
        registry.RunHook(callback);
        return registry;
    }

    static LONG CreateKey(HKEYMONITOR parent, LPCWSTR name, DWORD, REGSAM, SECURITY_ATTRIBUTES*,
                          HKEYMONITOR* key, DWORD*, HANDLE spooler)
    {
        RegistryDouble& registry = Of(spooler, Registry::CreateKey);
        std::lock_guard held(registry.lock);
        if (const LONG error = registry.Begin(Registry::CreateKey, parent, name))
            return error;
        *key = registry.NewHandle(RegistryDouble::MakeSubkey(*registry.handles[parent], Narrow(name)));
        return ERROR_SUCCESS;
    }

    static LONG OpenKey(HKEYMONITOR parent, LPCWSTR name, REGSAM, HKEYMONITOR* key, HANDLE spooler)
    {
        RegistryDouble& registry = Of(spooler, Registry::OpenKey);
        std::lock_guard held(registry.lock);
        if (const LONG error = registry.Begin(Registry::OpenKey, parent, name))
            return error;
        const auto found = RegistryDouble::Subkey(*registry.handles[parent], Narrow(name));
        if (found == nullptr)
            return ERROR_FILE_NOT_FOUND;
        *key = registry.NewHandle(found);
        return ERROR_SUCCESS;
    }

    static LONG CloseKey(HKEYMONITOR key, HANDLE spooler)
    {
        RegistryDouble& registry = Of(spooler, Registry::CloseKey);
        std::lock_guard held(registry.lock);
        if (key == registry.rootHandle)
            registry.faults.push_back("the spooler's root key was closed");
        const LONG error = registry.Begin(Registry::CloseKey, key, nullptr);
        registry.handles.erase(key);
        return error;
    }

    static LONG DeleteKey(HKEYMONITOR parent, LPCWSTR name, HANDLE spooler)
    {
        RegistryDouble& registry = Of(spooler, Registry::DeleteKey);
        std::lock_guard held(registry.lock);
        if (const LONG error = registry.Begin(Registry::DeleteKey, parent, name))
            return error;
        RegistryDouble::Key& key = *registry.handles[parent];
        const auto found = RegistryDouble::Subkey(key, Narrow(name));
        if (found == nullptr)
            return ERROR_FILE_NOT_FOUND;
        if (!found->subkeys.empty())
            return ERROR_ACCESS_DENIED;
        key.subkeys.erase(RegistryDouble::PlaceOf(key, Narrow(name)));
        return ERROR_SUCCESS;
    }

    static LONG EnumKey(HKEYMONITOR key, DWORD index, LPWSTR name, DWORD* length, FILETIME*, HANDLE spooler)
    {
        RegistryDouble& registry = Of(spooler, Registry::EnumKey);
        std::lock_guard held(registry.lock);
        if (const LONG error = registry.Begin(Registry::EnumKey, key, nullptr))
            return error;
        const auto& subkeys = registry.handles[key]->subkeys;
        if (index >= subkeys.size())
            return ERROR_NO_MORE_ITEMS;
        const WideString found = Wide(subkeys[index]->name);
        if (found.size() >= *length)
            return ERROR_MORE_DATA;
        std::memcpy(name, found.c_str(), (found.size() + 1) * sizeof(WCHAR));
        *length = static_cast<DWORD>(found.size());
        return ERROR_SUCCESS;
    }

    static LONG SetValue(HKEYMONITOR key, LPCWSTR name, DWORD type, const BYTE* data, DWORD size,
                         HANDLE spooler)
    {
        RegistryDouble& registry = Of(spooler, Registry::SetValue);
        std::lock_guard held(registry.lock);
        if (const LONG error = registry.Begin(Registry::SetValue, key, name))
            return error;
        registry.handles[key]->values[Narrow(name)] = {type, {data, data + size}};
        return ERROR_SUCCESS;
    }

    static LONG QueryValue(HKEYMONITOR key, LPCWSTR name, DWORD* type, BYTE* data, DWORD* size,
                           HANDLE spooler)
    {
        RegistryDouble& registry = Of(spooler, Registry::QueryValue);
        std::lock_guard held(registry.lock);
        if (const LONG error = registry.Begin(Registry::QueryValue, key, name))
            return error;
        const auto& values = registry.handles[key]->values;
        const auto found = values.find(Narrow(name));
        if (found == values.end())
            return ERROR_FILE_NOT_FOUND;
        const DWORD room = *size;
        *size = static_cast<DWORD>(found->second.bytes.size());
        if (*size > room)
            return ERROR_MORE_DATA;
        *type = found->second.type;
        std::copy(found->second.bytes.begin(), found->second.bytes.end(), data);
        return ERROR_SUCCESS;
    }
};

namespace {

// The callback as the monitor gets it: the double's own memory never runs out.
template <auto callback, class... Args>
LONG Untouched(Args... args)
{
    const UntouchedNew untouched;
    return callback(args...);
}

}  // namespace

bool RegistryDouble::IgnoringCase::operator()(const std::string& left, const std::string& right) const
{
    return std::lexicographical_compare(
        left.begin(), left.end(), right.begin(), right.end(),
        [](unsigned char a, unsigned char b) { return std::tolower(a) < std::tolower(b); });
}

RegistryDouble::RegistryDouble() : callbacks{}, root(std::make_shared<Key>())
{
    callbacks.cbSize = sizeof(callbacks);
    callbacks.fpCreateKey = Untouched<RegistryCallbacks::CreateKey>;
    callbacks.fpOpenKey = Untouched<RegistryCallbacks::OpenKey>;
    callbacks.fpCloseKey = Untouched<RegistryCallbacks::CloseKey>;
    callbacks.fpDeleteKey = Untouched<RegistryCallbacks::DeleteKey>;
    callbacks.fpEnumKey = Untouched<RegistryCallbacks::EnumKey>;
    callbacks.fpSetValue = Untouched<RegistryCallbacks::SetValue>;
    callbacks.fpQueryValue = Untouched<RegistryCallbacks::QueryValue>;
    rootHandle = NewHandle(root);
}

RegistryDouble::~RegistryDouble() = default;

void RegistryDouble::MakeKey(const std::string& path)
{
    std::lock_guard held(lock);
    Make(path);
}

void RegistryDouble::SetDword(const std::string& path, const std::string& name, DWORD value)
{
    std::vector<BYTE> bytes(sizeof(value));
    std::memcpy(bytes.data(), &value, sizeof(value));
    std::lock_guard held(lock);
    Make(path)->values[name] = {REG_DWORD, bytes};
}

void RegistryDouble::SetText(const std::string& path, const std::string& name, const WideString& value)
{
    std::vector<BYTE> bytes((value.size() + 1) * sizeof(WCHAR));
    std::memcpy(bytes.data(), value.c_str(), bytes.size());
    std::lock_guard held(lock);
    Make(path)->values[name] = {REG_SZ, bytes};
}

void RegistryDouble::SetBytes(const std::string& path, const std::string& name,
                              const std::vector<BYTE>& bytes)
{
    std::lock_guard held(lock);
    Make(path)->values[name] = {REG_BINARY, bytes};
}

void RegistryDouble::DeleteValue(const std::string& path, const std::string& name)
{
    std::lock_guard held(lock);
    Make(path)->values.erase(name);
}

void RegistryDouble::AddPort(const std::string& name, const WideString& server, DWORD number)
{
    SetText("Ports/" + name, "Print Server", server);
    SetDword("Ports/" + name, "Port Number", number);
}

bool RegistryDouble::HasKey(const std::string& path) const
{
    std::lock_guard held(lock);
    return Find(path) != nullptr;
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

void RegistryDouble::Fail(Registry callback, LONG error, int skip, int times)
{
    std::lock_guard held(lock);
    failures[callback] = {error, skip, times};
}

void RegistryDouble::StopFailing()
{
    std::lock_guard held(lock);
    failures.clear();
}

void RegistryDouble::Before(Registry callback, std::function<void()> hook)
{
    std::lock_guard held(lock);
    hooks[callback] = std::move(hook);
}

void RegistryDouble::RunHook(Registry callback)
{
    std::function<void()> hook;
    {
        std::lock_guard held(lock);
        hook = hooks[callback];
    }
    if (hook)
        hook();
}

std::vector<RegistryCall> RegistryDouble::Calls() const
{
    std::lock_guard held(lock);
    return calls;
}

void RegistryDouble::ForgetCalls()
{
    std::lock_guard held(lock);
    calls.clear();
}

int RegistryDouble::OpenKeys() const
{
    std::lock_guard held(lock);
    return static_cast<int>(handles.size()) - 1;
}

std::vector<std::string> RegistryDouble::Faults() const
{
    std::lock_guard held(lock);
    return faults;
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

std::shared_ptr<RegistryDouble::Key> RegistryDouble::Find(const std::string& path) const
{
    std::shared_ptr<Key> key = root;
    for (std::size_t at = 0; key != nullptr && at < path.size();) {
        const std::size_t end = std::min(path.find('/', at), path.size());
        key = Subkey(*key, path.substr(at, end - at));
        at = end + 1;
    }
    return key;
}

std::shared_ptr<RegistryDouble::Key> RegistryDouble::Make(const std::string& path)
{
    std::shared_ptr<Key> key = root;
    for (std::size_t at = 0; at < path.size();) {
        const std::size_t end = std::min(path.find('/', at), path.size());
        key = MakeSubkey(*key, path.substr(at, end - at));
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
