#include "spooler/monitor.h"

#include <dlfcn.h>

#include <algorithm>
#include <filesystem>

#include "platform/platform.h"
#include "spooler/spooler_error.h"

namespace spooler {

namespace {

using Initialize = decltype(&InitializePrintMonitor2);

// How often an enumeration is asked again because its answer grew between the two calls.
constexpr int kEnumerationTries = 10;

std::filesystem::path OwnFolder()
{
    Dl_info found = {};
    if (dladdr(reinterpret_cast<const void*>(&LibraryPath), &found) == 0 || found.dli_fname == nullptr)
        return {};
    std::error_code unknown;
    return std::filesystem::absolute(found.dli_fname, unknown).parent_path();
}

Monitor::Port ReadPort(const PORT_INFO_1W& record)
{
    return {.name = record.pName, .monitor = {}, .description = {}, .type = 0};
}

WideString TextOrEmpty(LPCWSTR text)
{
    return text == nullptr ? WideString() : WideString(text);
}

Monitor::Port ReadPort(const PORT_INFO_2W& record)
{
    return {.name = record.pPortName,
            .monitor = TextOrEmpty(record.pMonitorName),
            .description = TextOrEmpty(record.pDescription),
            .type = record.fPortType};
}

template <typename Record>
std::vector<Monitor::Port> ReadPorts(const std::vector<Record>& buffer, DWORD count)
{
    std::vector<Monitor::Port> ports;
    for (DWORD i = 0; i < count; ++i)
        ports.push_back(ReadPort(buffer[i]));
    return ports;
}

// The buffer is made of whole records, which keeps them and their strings aligned; the rest of the
// last one is room that the monitor needn't use.
template <typename Record>
std::vector<Monitor::Port> EnumeratePorts(const MONITOR2& calls, HANDLE monitor, DWORD level)
{
    std::vector<Record> buffer;
    for (int i = 0; i < kEnumerationTries; ++i) {
        const auto size = static_cast<DWORD>(buffer.size() * sizeof(Record));
        DWORD needed = 0;
        DWORD returned = 0;
        if (calls.pfnEnumPorts(monitor, nullptr, level, reinterpret_cast<LPBYTE>(buffer.data()), size,
                               &needed, &returned))
            return ReadPorts(buffer, returned);
        if (const DWORD error = GetLastError(); error != ERROR_INSUFFICIENT_BUFFER)
            Throw(error, "The monitor can't list its ports.");
        buffer.resize(needed / sizeof(Record) + 1);
    }
    Throw(ERROR_INSUFFICIENT_BUFFER, "The monitor's list of ports doesn't settle.");
}

}  // namespace

WideString LibraryPath(const WideString& library)
{
    const std::filesystem::path named(ToUtf8(library));
    std::error_code unknown;
    if (!named.has_parent_path())
        return ToUtf16((OwnFolder() / named).string());
    return ToUtf16(std::filesystem::absolute(named, unknown).lexically_normal().string());
}

Monitor::Library::Library(const WideString& path, const std::string& monitorName)
    : module(LoadLibraryW(path.c_str()))
{
    if (module == nullptr)
        Throw(ERROR_MOD_NOT_FOUND,
              "The library " + ToUtf8(path) + " of the monitor \"" + monitorName + "\" can't be loaded.");
}

Monitor::Library::~Library()
{
    (void)FreeLibrary(module);
}

Monitor::Monitor(std::shared_ptr<Registry> registry, WideString monitorName, const WideString& libraryName)
    : name(std::move(monitorName)),
      library(LibraryPath(libraryName), ToUtf8(name)),
      settings(std::move(registry), name)
{
    const auto initialize =
        reinterpret_cast<Initialize>(GetProcAddress(library.module, "InitializePrintMonitor2"));
    if (initialize == nullptr)
        Throw(ERROR_PROC_NOT_FOUND, "The library " + ToUtf8(libraryName) + " is no port monitor.");
    MONITORINIT init = {.cbSize = sizeof(MONITORINIT),
                        .hSpooler = settings.Spooler(),
                        .hckRegistryRoot = settings.Root(),
                        .pMonitorReg = RegistryCallbacks(),
                        .bLocal = TRUE,
                        .pszServerName = nullptr};
    table = initialize(&init, &handle);
    if (table == nullptr)
        Throw(ERROR_PROC_NOT_FOUND, "The monitor \"" + ToUtf8(name) + "\" refused to start.");
}

Monitor::~Monitor()
{
    if (table->pfnShutdown != nullptr)
        table->pfnShutdown(handle);
}

std::vector<Monitor::Port> Monitor::Ports(DWORD level) const
{
    if (table->pfnEnumPorts == nullptr)
        return {};
    return level == 1 ? EnumeratePorts<PORT_INFO_1W>(*table, handle, level)
                      : EnumeratePorts<PORT_INFO_2W>(*table, handle, level);
}

bool Monitor::HasPort(WideStringView port) const
{
    const std::vector<Port> ports = Ports(1);
    const WideString wanted(port);
    return std::any_of(ports.begin(), ports.end(),
                       [&](const Port& one) { return lstrcmpiW(one.name.c_str(), wanted.c_str()) == 0; });
}

XcvSession::XcvSession(std::shared_ptr<Monitor> owner, LPCWSTR object, ACCESS_MASK access)
    : monitor(std::move(owner))
{
    const MONITOR2& calls = monitor->Calls();
    if (calls.pfnXcvOpenPort == nullptr || calls.pfnXcvDataPort == nullptr)
        Throw(ERROR_NOT_SUPPORTED, "The monitor \"" + ToUtf8(monitor->Name()) + "\" takes no commands.");
    SetLastError(ERROR_SUCCESS);
    if (calls.pfnXcvOpenPort(monitor->Handle(), object, access, &session))
        return;
    const DWORD error = GetLastError();
    Throw(error == ERROR_SUCCESS ? ERROR_GEN_FAILURE : error,
          "The monitor \"" + ToUtf8(monitor->Name()) + "\" refused the session.");
}

XcvSession::~XcvSession()
{
    if (monitor->Calls().pfnXcvClosePort != nullptr)
        (void)monitor->Calls().pfnXcvClosePort(session);
}

DWORD XcvSession::Call(LPCWSTR dataName, PBYTE input, DWORD inputSize, PBYTE output, DWORD outputSize,
                       PDWORD outputNeeded) const
{
    return monitor->Calls().pfnXcvDataPort(session, dataName, input, inputSize, output, outputSize,
                                           outputNeeded);
}

}  // namespace spooler
