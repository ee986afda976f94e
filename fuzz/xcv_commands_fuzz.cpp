// A tool's commands: which one, on which object and with which rights, how large the output, then the record.

#include <array>

#include "fuzz/input_reader.h"
#include "fuzz/running_monitor.h"

namespace {

constexpr std::array kCommands = {TEXT("MonitorUI"),          TEXT("AddPort"),
                                  TEXT("DeletePort"),         TEXT("GetPortError"),
                                  TEXT("GetPortProperties"),  TEXT("SetPortProperties"),
                                  TEXT("GetVersionInfo"),     TEXT("GetDebug"),
                                  TEXT("GetAboutString"),     TEXT("SetKeepAliveValues"),
                                  TEXT("GetKeepAliveValues"), TEXT("GetDefaultKeepAliveValues")};

void Command(const FuzzedMonitor& running, InputReader& input)
{
    const unsigned choice = input.Byte();
    const WideString object = input.Text();
    HANDLE session = nullptr;
    const ACCESS_MASK access = choice & 0x80 ? SERVER_ACCESS_ADMINISTER : 0;
    if (!running.table->pfnXcvOpenPort(running.monitor, object.c_str(), access, &session))
        return;
    const WideString own = input.Text();
    const unsigned command = choice & 0x0F;
    const DWORD outputSize = input.Byte() * 2u;
    // Exactly as large as told, so that a byte too far is a finding.
    std::vector<BYTE> record = input.Bytes();
    std::vector<BYTE> output(outputSize);
    DWORD needed = 0;
    (void)running.table->pfnXcvDataPort(
        session, command < kCommands.size() ? kCommands[command] : own.c_str(), record.data(),
        static_cast<DWORD>(record.size()), output.data(), outputSize, &needed);
    running.table->pfnXcvClosePort(session);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    RegistryDouble registry;
    registry.AddPort("Card 1", TEXT("printserver"), 9100);
    const FuzzedMonitor running(registry);
    InputReader input(data, size);
    while (!input.IsEmpty())
        Command(running, input);
    return 0;
}
