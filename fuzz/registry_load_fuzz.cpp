// What stands in the registry when the monitor starts: names of ports and all values, of any type and size.

#include <array>

#include "fuzz/input_reader.h"
#include "fuzz/running_monitor.h"

namespace {

constexpr std::array kValues = {
    "Print Server", "Port Number",    "Keep Alive Msg Interval", "Keep Alive Timeout",
    "LogToFile",    "MaxLogFileSize", "EventTypesToLog",         ""};

std::string PathOf(const std::vector<BYTE>& name)
{
    std::string path = "Ports";
    if (!name.empty())
        path += "/";
    for (const BYTE byte : name)
        path += byte == 0 || byte >= 0x80 ? '_' : static_cast<char>(byte);
    return path;
}

void AddEntry(RegistryDouble& registry, InputReader& input)
{
    const std::string path = PathOf(input.Bytes());
    registry.MakeKey(path);
    for (unsigned values = input.Byte() % 6; values > 0; --values) {
        const unsigned choice = input.Byte();
        const std::string name = kValues[choice % kValues.size()];
        if (name == "LogToFile")
            continue;  // no file is to be written
        if (choice & 0x80)
            registry.SetText(path, name, input.Text());
        else if (choice & 0x40)
            registry.SetDword(path, name,
                              DWORD{input.Byte()} | DWORD{input.Byte()} << 8 | DWORD{input.Byte()} << 24);
        else
            registry.SetBytes(path, name, input.Bytes());
    }
}

void ListPorts(const FuzzedMonitor& running, DWORD level)
{
    DWORD needed = 0;
    DWORD count = 0;
    if (running.table->pfnEnumPorts(running.monitor, nullptr, level, nullptr, 0, &needed, &count))
        return;
    std::vector<BYTE> records(needed);
    if (!running.table->pfnEnumPorts(running.monitor, nullptr, level, records.data(), needed, &needed,
                                     &count))
        __builtin_trap();
    for (DWORD i = 0; level == 1 && i < count; ++i) {
        HANDLE port = nullptr;
        auto* const name = reinterpret_cast<PORT_INFO_1W*>(records.data())[i].pName;
        if (!running.table->pfnOpenPort(running.monitor, name, &port))
            __builtin_trap();
        running.table->pfnClosePort(port);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    RegistryDouble registry;
    InputReader input(data, size);
    while (!input.IsEmpty())
        AddEntry(registry, input);
    const FuzzedMonitor running(registry);
    ListPorts(running, 1);
    ListPorts(running, 2);
    return 0;
}
