// Monitors, their ports and their settings.

#include <cstring>
#include <memory>

#include "platform/platform.h"
#include "spooler/api.h"
#include "spooler/record_writer.h"
#include "spooler/spooler.h"

namespace spooler {

namespace {

void AddPort(RecordWriter& records, DWORD level, const Monitor::Port& port)
{
    if (level == 1) {
        records.Add(PORT_INFO_1W{}, {{&PORT_INFO_1W::pName, port.name}});
        return;
    }
    PORT_INFO_2W record = {};
    record.fPortType = port.type;
    records.Add(record, {{&PORT_INFO_2W::pPortName, port.name},
                         {&PORT_INFO_2W::pMonitorName, port.monitor},
                         {&PORT_INFO_2W::pDescription, port.description}});
}

// A monitor's key of settings, checked; made when `make` says so.
Registry::Key SettingsKey(Instance& spooler, LPCWSTR monitor, LPCWSTR key, bool make)
{
    RequireParameter(monitor != nullptr && key != nullptr, "A monitor's name and a key's name are needed.");
    WideString name;
    for (const MonitorHost::Known& known : spooler.monitors->List())
        if (lstrcmpiW(known.name.c_str(), monitor) == 0)
            name = known.name;
    if (name.empty())
        Throw(ERROR_UNKNOWN_PRINT_MONITOR, "There is no monitor \"" + ToUtf8(monitor) + "\".");
    const Registry::Key root = spooler.registry->Root(name);
    bool made = false;
    return make ? spooler.registry->Create(root, key, &made) : spooler.registry->Open(root, key);
}

}  // namespace

SPOOLER_EXPORT BOOL EnumPortsW(LPWSTR, DWORD level, LPBYTE ports, DWORD size, LPDWORD needed,
                               LPDWORD returned)
{
    return BoolCall([&] {
        RequireReference(needed);
        RequireReference(returned);
        RequireLevel(level == 1 || level == 2);
        RecordWriter records;
        for (const std::shared_ptr<Monitor>& monitor : Instance::Get()->monitors->LoadAll())
            for (const Monitor::Port& port : monitor->Ports(level))
                AddPort(records, level, port);
        records.Write(ports, size, needed, returned);
    });
}

SPOOLER_EXPORT BOOL AddMonitorW(LPWSTR, DWORD level, LPBYTE monitors)
{
    return BoolCall([&] {
        RequireLevel(level == 2);
        const auto* info = reinterpret_cast<const MONITOR_INFO_2W*>(monitors);
        RequireParameter(info != nullptr && info->pName != nullptr && *info->pName != 0 &&
                             info->pDLLName != nullptr && *info->pDLLName != 0,
                         "A monitor needs a name and a library.");
        const std::shared_ptr<Instance> spooler = Instance::Get();
        spooler->monitors->Add(info->pName, info->pDLLName);
    });
}

SPOOLER_EXPORT BOOL DeleteMonitorW(LPWSTR, LPWSTR, LPWSTR monitorName)
{
    return BoolCall([&] {
        RequireParameter(monitorName != nullptr, "A monitor's name is needed.");
        const std::shared_ptr<Instance> spooler = Instance::Get();
        spooler->monitors->Remove(monitorName);
    });
}

SPOOLER_EXPORT BOOL EnumMonitorsW(LPWSTR, DWORD level, LPBYTE monitors, DWORD size, LPDWORD needed,
                                  LPDWORD returned)
{
    return BoolCall([&] {
        RequireReference(needed);
        RequireReference(returned);
        RequireLevel(level == 2);
        RecordWriter records;
        for (const MonitorHost::Known& known : Instance::Get()->monitors->List())
            records.Add(MONITOR_INFO_2W{}, {{&MONITOR_INFO_2W::pName, known.name},
                                            {&MONITOR_INFO_2W::pDLLName, LibraryPath(known.library)}});
        records.Write(monitors, size, needed, returned);
    });
}

SPOOLER_EXPORT BOOL GetMonitorSetting(LPCWSTR monitor, LPCWSTR key, LPCWSTR name, DWORD* value)
{
    return BoolCall([&] {
        RequireReference(name);
        RequireReference(value);
        const std::shared_ptr<Instance> spooler = Instance::Get();
        const Registry::Value found =
            spooler->registry->GetValue(SettingsKey(*spooler, monitor, key, false), name);
        RequireParameter(found.data.size() == sizeof(*value), "The setting is no 32-bit value.");
        std::memcpy(value, found.data.data(), sizeof(*value));
    });
}

SPOOLER_EXPORT BOOL SetMonitorSetting(LPCWSTR monitor, LPCWSTR key, LPCWSTR name, DWORD value)
{
    return BoolCall([&] {
        RequireReference(name);
        const std::shared_ptr<Instance> spooler = Instance::Get();
        const std::span bytes(reinterpret_cast<const BYTE*>(&value), sizeof(value));
        spooler->registry->SetValue(SettingsKey(*spooler, monitor, key, true), name, REG_DWORD, bytes);
    });
}

SPOOLER_EXPORT BOOL DeleteMonitorSetting(LPCWSTR monitor, LPCWSTR key, LPCWSTR name)
{
    return BoolCall([&] {
        RequireReference(name);
        const std::shared_ptr<Instance> spooler = Instance::Get();
        spooler->registry->RemoveValue(SettingsKey(*spooler, monitor, key, false), name);
    });
}

namespace {

struct SettingsChange {
    const std::shared_ptr<Instance> spooler = Instance::Get();
    Database::Change change{*spooler->database};
};
thread_local std::unique_ptr<SettingsChange> settingsChange;

}  // namespace

SPOOLER_EXPORT BOOL BeginSettingsChange()
{
    return BoolCall([&] {
        RequireParameter(settingsChange == nullptr, "A change of settings is under way.");
        settingsChange = std::make_unique<SettingsChange>();
    });
}

SPOOLER_EXPORT BOOL EndSettingsChange(BOOL keep)
{
    return BoolCall([&] {
        RequireParameter(settingsChange != nullptr, "No change of settings is under way.");
        const std::unique_ptr<SettingsChange> ended = std::move(settingsChange);
        if (keep)
            ended->change.Commit();
    });
}

}  // namespace spooler
