#include "farlink/ports/port_entry.h"

#include "farlink/failure.h"
#include "farlink/ports/port_rules.h"
#include "farlink/ports/spooler_lists.h"

namespace farlink {

namespace {

[[noreturn]] void Refuse(std::size_t index, const std::string& what)
{
    throw Failure("Port " + std::to_string(index + 1) + " of the file: " + what);
}

std::string TextIn(const Json& entry, std::size_t index, const char* field)
{
    if (!entry.contains(field) || !entry[field].is_string())
        Refuse(index, std::string("\"") + field + "\" must be there, and be a text");
    return entry[field].get<std::string>();
}

std::optional<std::uint16_t> NumberIn(const Json& entry, std::size_t index, const char* field, int first,
                                      int last)
{
    if (!entry.contains(field))
        return std::nullopt;
    const Json& value = entry[field];
    if (!value.is_number_integer() || value < first || value > last)
        Refuse(index, std::string("\"") + field + "\" must be a number from " + std::to_string(first) +
                          " to " + std::to_string(last));
    return value.get<std::uint16_t>();
}

WantedPort WantedOf(const Json& entry, std::size_t index)
{
    if (!entry.is_object())
        Refuse(index, "it is no object");
    const std::string server = TextIn(entry, index, "server");
    WantedPort port{{ToUtf16(TextIn(entry, index, "name")), ToUtf16(server)},
                    NumberIn(entry, index, "period", 0, 65535),
                    NumberIn(entry, index, "timeout", 0, 65535)};
    const auto number = NumberIn(entry, index, "port", 1, kLastPortNumber);
    if (!number)
        Refuse(index, "\"port\" must be there");
    port.settings.number = *number;
    try {
        CheckName(port.settings.name);
        CheckServer(server);
    } catch (const Failure& failure) {
        Refuse(index, failure.what());
    }
    return port;
}

}  // namespace

PortEntry ReadPort(const WideString& name)
{
    return {GetPort(name), GetKeepAlive(name)};
}

Json JsonOf(const PortEntry& port)
{
    return {{"name", ToUtf8(port.settings.name)},
            {"server", ToUtf8(port.settings.server)},
            {"port", port.settings.number},
            {"period", port.keepAlive.period},
            {"timeout", port.keepAlive.timeout}};
}

std::vector<WantedPort> PortsOfJson(const std::string& text)
{
    const Json list = Json::parse(text, nullptr, false);
    if (!list.is_array())
        throw Failure("The file is no list of ports in JSON, as 'farlink port list --json' makes one");
    std::vector<WantedPort> ports;
    for (const Json& entry : list) {
        WantedPort port = WantedOf(entry, ports.size());
        for (const WantedPort& other : ports)
            if (SameName(other.settings.name, port.settings.name))
                Refuse(ports.size(), "there is another one of the name '" + ToUtf8(port.settings.name) + "'");
        ports.push_back(std::move(port));
    }
    return ports;
}

}  // namespace farlink
