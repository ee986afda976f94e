#include "spooler/registry_callbacks.h"

#include <algorithm>
#include <cstring>
#include <mutex>

#include "spooler/handles.h"

namespace spooler {

namespace {

constexpr DWORD kCreatedNewKey = 1;
constexpr DWORD kOpenedExistingKey = 2;

class SpoolerHandle : public HandleObject {
public:
    explicit SpoolerHandle(std::shared_ptr<Registry> owner) : registry(std::move(owner)) {}
    const std::shared_ptr<Registry> registry;
};

// The names of a walk by index: read at index 0, and again when this process changed something since.
class NameWalk {
public:
    template <typename Reader>
    bool At(DWORD index, unsigned generation, Reader read, Registry::Named* found)
    {
        const std::lock_guard<std::mutex> guard(lock);
        if (index == 0 || generation != readAt) {
            names = read();
            readAt = generation;
        }
        if (index >= names.size())
            return false;
        *found = names[index];
        return true;
    }

private:
    std::mutex lock;
    unsigned readAt = 0;
    std::vector<Registry::Named> names;
};

class RegistryKey : public HandleObject {
public:
    RegistryKey(HANDLE ownerHandle, Registry::Key id) : owner(ownerHandle), key(id) {}
    const HANDLE owner;  // the spooler handle it was opened with
    const Registry::Key key;
    NameWalk keys;
    NameWalk values;
};

// Both handles of a callback, checked.
struct Subject {
    Subject(HKEYMONITOR keyHandle, HANDLE spooler)
        : registry(HandleTable::Instance().Get<SpoolerHandle>(spooler)->registry),
          handle(HandleTable::Instance().Get<RegistryKey>(keyHandle))
    {
        if (handle->owner != spooler)
            Throw(ERROR_INVALID_HANDLE, "The settings key belongs to another monitor.");
    }
    const std::shared_ptr<Registry> registry;
    const std::shared_ptr<RegistryKey> handle;
    Registry::Key Key() const { return handle->key; }
};

// Runs a callback's work and gives its word; the thread's last error is left alone.
template <typename Action>
LONG WordOf(Action&& action)
{
    try {
        return static_cast<LONG>(action());
    } catch (...) {
        return static_cast<LONG>(CurrentError().word);
    }
}

bool IsEmpty(LPCWSTR name)
{
    return name == nullptr || *name == 0;
}

// The default value of a key has the empty name.
WideStringView NameOrEmpty(LPCWSTR name)
{
    return name == nullptr ? WideStringView() : WideStringView(name);
}

HKEYMONITOR AddKey(HANDLE spooler, Registry::Key key)
{
    return HandleTable::Instance().Add(std::make_shared<RegistryKey>(spooler, key));
}

void Tell(FILETIME* time, std::int64_t unixSeconds)
{
    if (time == nullptr)
        return;
    // FILETIME counts 100 ns from 1601.
    const auto ticks = static_cast<std::uint64_t>((unixSeconds + 11644473600LL) * 10000000LL);
    time->dwLowDateTime = static_cast<DWORD>(ticks);
    time->dwHighDateTime = static_cast<DWORD>(ticks >> 32);
}

void Tell(DWORD* out, DWORD value)
{
    if (out != nullptr)
        *out = value;
}

// Copies a name with its NUL; `length` is the room in characters, and then the name's length.
DWORD GiveName(const WideString& name, LPWSTR buffer, DWORD* length)
{
    if (buffer == nullptr || length == nullptr)
        return ERROR_INVALID_PARAMETER;
    if (*length <= name.size())
        return ERROR_MORE_DATA;
    std::memcpy(buffer, name.c_str(), (name.size() + 1) * sizeof(WCHAR));
    *length = static_cast<DWORD>(name.size());
    return ERROR_SUCCESS;
}

// A text that was stored without its NUL gets one behind its bytes, where there is room.
DWORD GiveValue(const Registry::Value& value, DWORD* type, BYTE* data, DWORD* size)
{
    if (data != nullptr && size == nullptr)
        return ERROR_INVALID_PARAMETER;
    Tell(type, value.type);
    if (size == nullptr)
        return ERROR_SUCCESS;
    const DWORD room = *size;
    const auto used = static_cast<DWORD>(value.data.size());
    *size = used;
    if (data == nullptr)
        return ERROR_SUCCESS;
    if (room < used)
        return ERROR_MORE_DATA;
    std::copy(value.data.begin(), value.data.end(), data);
    if (value.type == REG_SZ && room - used >= sizeof(WCHAR))
        std::fill_n(data + used, sizeof(WCHAR), BYTE{0});
    return ERROR_SUCCESS;
}

LONG CreateKey(HKEYMONITOR parent, LPCWSTR name, DWORD, REGSAM, SECURITY_ATTRIBUTES*, HKEYMONITOR* key,
               DWORD* disposition, HANDLE spooler)
{
    return WordOf([&]() -> DWORD {
        const Subject subject(parent, spooler);
        if (key == nullptr)
            return ERROR_INVALID_PARAMETER;
        bool made = false;
        const Registry::Key id =
            IsEmpty(name) ? subject.Key() : subject.registry->Create(subject.Key(), name, &made);
        *key = AddKey(spooler, id);
        Tell(disposition, made ? kCreatedNewKey : kOpenedExistingKey);
        return ERROR_SUCCESS;
    });
}

LONG OpenKey(HKEYMONITOR parent, LPCWSTR name, REGSAM, HKEYMONITOR* key, HANDLE spooler)
{
    return WordOf([&]() -> DWORD {
        if (key == nullptr)
            return ERROR_INVALID_PARAMETER;
        *key = nullptr;
        const Subject subject(parent, spooler);
        *key = AddKey(spooler, IsEmpty(name) ? subject.Key() : subject.registry->Open(subject.Key(), name));
        return ERROR_SUCCESS;
    });
}

LONG CloseKey(HKEYMONITOR key, HANDLE spooler)
{
    return WordOf([&]() -> DWORD {
        {
            const Subject subject(key, spooler);
        }
        HandleTable::Instance().Close<RegistryKey>(key);
        return ERROR_SUCCESS;
    });
}

LONG DeleteKey(HKEYMONITOR parent, LPCWSTR name, HANDLE spooler)
{
    return WordOf([&]() -> DWORD {
        const Subject subject(parent, spooler);
        // An empty name would mean the parent itself, which its own parent deletes.
        if (IsEmpty(name))
            return ERROR_INVALID_PARAMETER;
        subject.registry->Remove(subject.Key(), name);
        return ERROR_SUCCESS;
    });
}

LONG EnumKey(HKEYMONITOR key, DWORD index, LPWSTR name, DWORD* nameLength, FILETIME* lastWrite,
             HANDLE spooler)
{
    return WordOf([&]() -> DWORD {
        const Subject subject(key, spooler);
        Registry& registry = *subject.registry;
        Registry::Named found;
        const auto read = [&] { return registry.Keys(subject.Key()); };
        if (!subject.handle->keys.At(index, registry.Generation(), read, &found))
            return ERROR_NO_MORE_ITEMS;
        Tell(lastWrite, found.written);
        return GiveName(found.name, name, nameLength);
    });
}

LONG QueryInfoKey(HKEYMONITOR key, DWORD* subkeys, DWORD* maxSubkey, DWORD* values, DWORD* maxValueName,
                  DWORD* maxValue, DWORD* securityDescriptor, FILETIME* lastWrite, HANDLE spooler)
{
    return WordOf([&]() -> DWORD {
        const Subject subject(key, spooler);
        const Registry::Counts counts = subject.registry->Count(subject.Key());
        Tell(subkeys, counts.keys);
        Tell(maxSubkey, counts.longestKey);
        Tell(values, counts.values);
        Tell(maxValueName, counts.longestName);
        Tell(maxValue, counts.largestValue);
        Tell(securityDescriptor, 0);
        Tell(lastWrite, counts.written);
        return ERROR_SUCCESS;
    });
}

LONG SetValue(HKEYMONITOR key, LPCWSTR name, DWORD type, const BYTE* data, DWORD size, HANDLE spooler)
{
    return WordOf([&]() -> DWORD {
        const Subject subject(key, spooler);
        if (data == nullptr && size != 0)
            return ERROR_INVALID_PARAMETER;
        subject.registry->SetValue(subject.Key(), NameOrEmpty(name), type, {data, size});
        return ERROR_SUCCESS;
    });
}

LONG DeleteValue(HKEYMONITOR key, LPCWSTR name, HANDLE spooler)
{
    return WordOf([&]() -> DWORD {
        const Subject subject(key, spooler);
        subject.registry->RemoveValue(subject.Key(), NameOrEmpty(name));
        return ERROR_SUCCESS;
    });
}

LONG EnumValue(HKEYMONITOR key, DWORD index, LPWSTR name, DWORD* nameLength, DWORD* type, BYTE* data,
               DWORD* size, HANDLE spooler)
{
    return WordOf([&]() -> DWORD {
        const Subject subject(key, spooler);
        Registry& registry = *subject.registry;
        Registry::Named found;
        const auto read = [&] { return registry.Values(subject.Key()); };
        if (!subject.handle->values.At(index, registry.Generation(), read, &found))
            return ERROR_NO_MORE_ITEMS;
        if (const DWORD word = GiveName(found.name, name, nameLength); word != ERROR_SUCCESS)
            return word;
        return GiveValue(registry.GetValue(subject.Key(), found.name), type, data, size);
    });
}

LONG QueryValue(HKEYMONITOR key, LPCWSTR name, DWORD* type, BYTE* data, DWORD* size, HANDLE spooler)
{
    return WordOf([&]() -> DWORD {
        const Subject subject(key, spooler);
        return GiveValue(subject.registry->GetValue(subject.Key(), NameOrEmpty(name)), type, data, size);
    });
}

}  // namespace

MONITORREG* RegistryCallbacks()
{
    static MONITORREG callbacks = {
        .cbSize = sizeof(MONITORREG),
        .fpCreateKey = CreateKey,
        .fpOpenKey = OpenKey,
        .fpCloseKey = CloseKey,
        .fpDeleteKey = DeleteKey,
        .fpEnumKey = EnumKey,
        .fpQueryInfoKey = QueryInfoKey,
        .fpSetValue = SetValue,
        .fpDeleteValue = DeleteValue,
        .fpEnumValue = EnumValue,
        .fpQueryValue = QueryValue,
    };
    return &callbacks;
}

RegistryAccess::RegistryAccess(std::shared_ptr<Registry> registry, WideStringView monitorName)
{
    const Registry::Key key = registry->Root(monitorName);
    spooler = HandleTable::Instance().Add(std::make_shared<SpoolerHandle>(std::move(registry)));
    root = AddKey(spooler, key);
}

RegistryAccess::~RegistryAccess()
{
    HandleTable::Instance().CloseIf([this](HANDLE handle, const HandleObject& object) {
        const auto* key = dynamic_cast<const RegistryKey*>(&object);
        return handle == spooler || (key != nullptr && key->owner == spooler);
    });
}

}  // namespace spooler
