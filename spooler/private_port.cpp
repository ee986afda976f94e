#include "spooler/private_port.h"

#include <algorithm>
#include <mutex>
#include <set>
#include <utility>

#include "diagnostics/event_types.h"
#include "platform/platform.h"
#include "spooler/setting_names.h"
#include "spooler/spooler_error.h"

namespace spooler {

namespace {

constexpr DWORD kEventTypesHeard = krelpmEventError | krelpmEventWarning | krelpmEventInfo;
constexpr DWORD kAllEventTypes = 0x3F;  // the monitor's own choice where nothing is stored

class Writer {
public:
    Writer(Registry& registry, Registry::Key owner) : settings(registry), key(owner) {}

    void Number(WideStringView name, DWORD value) const
    {
        settings.SetValue(key, name, REG_DWORD, {reinterpret_cast<const BYTE*>(&value), sizeof value});
    }
    void Number(WideStringView name, std::optional<WORD> value) const
    {
        if (value)
            Number(name, DWORD{*value});
    }
    void Text(WideStringView name, const WideString& value) const
    {
        settings.SetValue(key, name, REG_SZ,
                          {reinterpret_cast<const BYTE*>(value.c_str()), (value.size() + 1) * sizeof(WCHAR)});
    }

private:
    Registry& settings;
    const Registry::Key key;
};

// The lines are heard whether the user wants a file or not; in a file they then stand too.
void StoreLog(const Writer& ports, const LogSettings& log, DWORD moreEventTypes)
{
    const DWORD wanted = log.toFile ? log.eventTypes.value_or(kAllEventTypes) : 0;
    ports.Number(kEventTypesValue, wanted | kEventTypesHeard | moreEventTypes);
    ports.Number(kToDebugOutputValue, DWORD{1});
    ports.Number(kToFileValue, DWORD{log.toFile});
    ports.Number(kMaxFileSizeValue, log.maxFileSize);
}

void StorePort(const Writer& values, const PortSettings& port)
{
    values.Text(kServerValue, ToUtf16(port.server));
    values.Number(kNumberValue, DWORD{port.number});
    values.Number(kPeriodValue, port.keepAlivePeriod);
    values.Number(kTimeoutValue, port.keepAliveTimeout);
}

// From one document to the next: a library that is loaded anew opens its log file at the end, wherever the
// last line stands.
void KeepLoaded(const WideString& library)
{
    static std::mutex lock;
    static std::set<WideString> kept;
    const std::lock_guard<std::mutex> guard(lock);
    if (kept.insert(library).second)
        (void)LoadLibraryW(library.c_str());
}

std::shared_ptr<Monitor> StartMonitor(const PortSettings& port, const LogSettings& log, DWORD moreEventTypes)
{
    const auto registry = std::make_shared<Registry>(std::make_shared<Database>(":memory:"));
    const WideString owner = TEXT("private");
    const Registry::Key ports = registry->Create(registry->Root(owner), kPortsKey);
    StoreLog({*registry, ports}, log, moreEventTypes);
    StorePort({*registry, registry->Create(ports, ToUtf16(port.name))}, port);
    auto monitor = std::make_shared<Monitor>(registry, owner, ToUtf16(port.library));
    KeepLoaded(LibraryPath(ToUtf16(port.library)));
    return monitor;
}

// The platform declares the buffers of queries as texts, which they are not.
LPWSTR AsText(const BYTE* bytes)
{
    return reinterpret_cast<LPWSTR>(const_cast<BYTE*>(bytes));
}

}  // namespace

PrivatePort::PrivatePort(const PortSettings& settings, const LogSettings& log, DWORD moreEventTypes)
    : monitor(StartMonitor(settings, log, moreEventTypes)),
      calls(monitor->Calls()),
      name(ToUtf16(settings.name))
{
    if (!calls.pfnOpenPort(monitor->Handle(), name.data(), &port))
        Throw(ERROR_UNKNOWN_PORT, "The monitor does not take a port of the name \"" + settings.name +
                                      "\", with the print server \"" + settings.server + "\"");
}

PrivatePort::~PrivatePort()
{
    End();
    (void)calls.pfnClosePort(port);
}

bool PrivatePort::StartJob(const WideString& printer, DWORD jobId, const WideString& title)
{
    WideString printerName = printer;
    WideString document = title;
    WideString datatype = TEXT("RAW");
    DOC_INFO_1W info = {.pDocName = document.data(), .pOutputFile = nullptr, .pDatatype = datatype.data()};
    SetLastError(ERROR_SUCCESS);
    started =
        calls.pfnStartDocPort(port, printerName.data(), jobId, 1, reinterpret_cast<LPBYTE>(&info)) != FALSE;
    return started;
}

bool PrivatePort::StartChannel()
{
    DOC_INFO_2W info = {};
    info.dwMode = DI_CHANNEL;
    SetLastError(ERROR_SUCCESS);
    started = calls.pfnStartDocPort(port, nullptr, 0, 2, reinterpret_cast<LPBYTE>(&info)) != FALSE;
    return started;
}

bool PrivatePort::Write(std::span<BYTE> bytes, std::size_t* taken)
{
    DWORD count = 0;
    SetLastError(ERROR_SUCCESS);
    const BOOL done = calls.pfnWritePort(port, bytes.data(), static_cast<DWORD>(bytes.size()), &count);
    *taken = std::min<std::size_t>(count, bytes.size());
    return done != FALSE;
}

bool PrivatePort::Read(std::span<BYTE> buffer, std::size_t* got)
{
    DWORD count = 0;
    SetLastError(ERROR_SUCCESS);
    const BOOL done = calls.pfnReadPort(port, buffer.data(), static_cast<DWORD>(buffer.size()), &count);
    *got = std::min<std::size_t>(count, buffer.size());
    return done != FALSE;
}

bool PrivatePort::Query(DWORD controlId, std::span<const BYTE> input, std::span<BYTE> output, DWORD* returned)
{
    DWORD count = 0;
    SetLastError(ERROR_SUCCESS);
    const BOOL done = calls.pfnGetPrinterDataFromPort(port, controlId, nullptr, AsText(input.data()),
                                                      static_cast<DWORD>(input.size()), AsText(output.data()),
                                                      static_cast<DWORD>(output.size()), &count);
    *returned = std::min<DWORD>(count, static_cast<DWORD>(output.size()));
    return done != FALSE;
}

void PrivatePort::End()
{
    if (std::exchange(started, false))
        (void)calls.pfnEndDocPort(port);
}

// Whether the port is still there is nothing to tell anybody.
void PrivatePort::Delete()
{
    try {
        DWORD needed = 0;
        const XcvSession session(monitor, name.c_str(), SERVER_ACCESS_ADMINISTER);
        (void)session.Call(TEXT("DeletePort"), reinterpret_cast<PBYTE>(name.data()),
                           static_cast<DWORD>((name.size() + 1) * sizeof(WCHAR)), nullptr, 0, &needed);
    } catch (...) {
        return;
    }
}

}  // namespace spooler
