#include "spooler/port_settings.h"

#include <algorithm>
#include <cstring>

#include "platform/platform.h"
#include "spooler/instance.h"
#include "spooler/setting_names.h"
#include "spooler/spooler_error.h"

namespace spooler {

namespace {

// A key of settings, read value by value.
class Values {
public:
    Values(Registry& registry, Registry::Key owner) : settings(registry), key(owner) {}

    std::optional<DWORD> Number(WideStringView name) const
    {
        const std::optional<Registry::Value> value = settings.FindValue(key, name);
        DWORD number = 0;
        if (!value || value->data.size() != sizeof number)
            return std::nullopt;
        std::memcpy(&number, value->data.data(), sizeof number);
        return number;
    }

    std::optional<WORD> ShortNumber(WideStringView name) const
    {
        const std::optional<DWORD> number = Number(name);
        return number ? std::optional(static_cast<WORD>(*number)) : std::nullopt;
    }

    std::string Text(WideStringView name) const
    {
        const std::optional<Registry::Value> value = settings.FindValue(key, name);
        if (!value)
            return {};
        WideString text(value->data.size() / sizeof(WCHAR), 0);
        std::memcpy(text.data(), value->data.data(), text.size() * sizeof(WCHAR));
        return ToUtf8(text.substr(0, text.find(WCHAR{0})));
    }

private:
    Registry& settings;
    const Registry::Key key;
};

struct StoredPlace {
    Registry::Key key;  // of all ports
    std::string library;
};

// Of each monitor that has ports.
std::vector<StoredPlace> StoredPlaces(Instance& spooler)
{
    std::vector<StoredPlace> places;
    for (const MonitorHost::Known& known : spooler.monitors->List())
        if (const auto key = spooler.registry->Find(spooler.registry->Root(known.name), kPortsKey))
            places.push_back({*key, ToUtf8(known.library)});
    return places;
}

PortSettings ReadPort(const WideString& name, const std::string& library, const Values& values)
{
    PortSettings port = {.name = ToUtf8(name),
                         .server = values.Text(kServerValue),
                         .number = values.ShortNumber(kNumberValue).value_or(0),
                         .keepAlivePeriod = values.ShortNumber(kPeriodValue),
                         .keepAliveTimeout = values.ShortNumber(kTimeoutValue),
                         .library = library};
    if (port.server.empty() || port.number == 0)
        Throw(ERROR_UNKNOWN_PORT,
              "The settings of the port \"" + port.name + "\" are not whole; delete it, and add it again");
    return port;
}

}  // namespace

PortSettings StoredPort(const std::string& wanted)
{
    const std::shared_ptr<Instance> spooler = Instance::Get();
    const WideString wide = ToUtf16(wanted);
    for (const StoredPlace& place : StoredPlaces(*spooler))
        for (const Registry::Named& port : spooler->registry->Keys(place.key))
            if (lstrcmpiW(port.name.c_str(), wide.c_str()) == 0)
                return ReadPort(port.name, place.library,
                                {*spooler->registry, spooler->registry->Open(place.key, port.name)});
    Throw(ERROR_UNKNOWN_PORT, "There is no port \"" + wanted + "\"");
}

LogSettings StoredLogSettings()
{
    const std::shared_ptr<Instance> spooler = Instance::Get();
    const std::vector<StoredPlace> places = StoredPlaces(*spooler);
    if (places.empty())
        return {};
    const Values values(*spooler->registry, places.front().key);
    return {.eventTypes = values.Number(kEventTypesValue),
            .toFile = values.Number(kToFileValue).value_or(0) != 0,
            .maxFileSize = values.Number(kMaxFileSizeValue).value_or(0)};
}

std::vector<std::string> StoredPortNames()
{
    const std::shared_ptr<Instance> spooler = Instance::Get();
    std::vector<std::string> names;
    for (const StoredPlace& place : StoredPlaces(*spooler))
        for (const Registry::Named& port : spooler->registry->Keys(place.key))
            names.push_back(ToUtf8(port.name));
    return names;
}

}  // namespace spooler
