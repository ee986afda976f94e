#include "farlink/log/log_settings.h"
#include "farlink/failure.h"

namespace farlink {

const char* const kWhenSettingsCount =
    "This counts when the spooler starts again, at a time when nothing prints: 'net stop spooler', "
    "'net start spooler'.";

namespace {

// The same place that the spooler hands the monitor; no call of the spooler reaches it from outside.
WideString KeyOf(const MonitorEntry& monitor)
{
    return TEXT("SYSTEM\\CurrentControlSet\\Control\\Print\\Monitors\\") + monitor.name + TEXT("\\Ports");
}

class Key {
public:
    Key() = default;
    ~Key()
    {
        if (key != nullptr)
            RegCloseKey(key);
    }
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;

    HKEY* Place() { return &key; }
    HKEY Get() const { return key; }

private:
    HKEY key = nullptr;
};

void Check(LSTATUS word, const char* what)
{
    if (word != ERROR_SUCCESS && word != ERROR_FILE_NOT_FOUND)
        throw PlatformFailure(what, static_cast<DWORD>(word));
}

}  // namespace

std::optional<DWORD> ReadLogSetting(const MonitorEntry& monitor, LPCWSTR name)
{
    DWORD value = 0;
    DWORD size = sizeof value;
    const LSTATUS word = RegGetValueW(HKEY_LOCAL_MACHINE, KeyOf(monitor).c_str(), name, RRF_RT_REG_DWORD,
                                      nullptr, &value, &size);
    Check(word, "The log settings can't be read");
    return word == ERROR_SUCCESS ? std::optional(value) : std::nullopt;
}

void StoreLogSetting(const MonitorEntry& monitor, LPCWSTR name, DWORD value)
{
    constexpr const char* kWhat = "The log settings can't be stored";
    Key key;
    Check(RegCreateKeyExW(HKEY_LOCAL_MACHINE, KeyOf(monitor).c_str(), 0, nullptr, 0, KEY_SET_VALUE, nullptr,
                          key.Place(), nullptr),
          kWhat);
    Check(RegSetValueExW(key.Get(), name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof value),
          kWhat);
}

void RemoveLogSetting(const MonitorEntry& monitor, LPCWSTR name)
{
    Key key;
    const LSTATUS word =
        RegOpenKeyExW(HKEY_LOCAL_MACHINE, KeyOf(monitor).c_str(), 0, KEY_SET_VALUE, key.Place());
    Check(word, "The log settings can't be removed");
    if (word == ERROR_SUCCESS)
        Check(RegDeleteValueW(key.Get(), name), "The log settings can't be removed");
}

}  // namespace farlink
