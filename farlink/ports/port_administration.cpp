#include "farlink/ports/port_administration.h"

#include <algorithm>

#include "farlink/failure.h"
#include "farlink/ports/spooler_lists.h"

namespace farlink {

namespace {

constexpr DWORD kRecordVersion = 1;

// The records of the monitor's Xcv commands: little-endian, no gaps, as every tool has them.
struct PortDataRecord {
    WCHAR name[66];
    DWORD version;
    WCHAR server[49];
    std::uint16_t number;
};
static_assert(sizeof(PortDataRecord) == 236);
static_assert(offsetof(PortDataRecord, version) == 132);
static_assert(offsetof(PortDataRecord, server) == 136);
static_assert(offsetof(PortDataRecord, number) == 234);

struct KeepAliveRecord {
    DWORD version;
    std::uint16_t period;
    std::uint16_t timeout;
};
static_assert(sizeof(KeepAliveRecord) == 8);

class XcvSession {
public:
    static XcvSession OnMonitor(bool administer)
    {
        return XcvSession(TEXT(",XcvMonitor ") + FindMonitor().name, administer);
    }
    static XcvSession OnPort(const WideString& port, bool administer)
    {
        return XcvSession(TEXT(",XcvPort ") + port, administer);
    }

    // Gives the monitor's word. `size` is the output's size, then what the monitor says it needs.
    DWORD Ask(LPCWSTR command, const void* input, DWORD inputSize, void* output = nullptr,
              DWORD* size = nullptr) const
    {
        DWORD needed = 0;
        DWORD status = 0;
        if (!XcvDataW(handle.Get(), command, static_cast<BYTE*>(const_cast<void*>(input)), inputSize,
                      static_cast<BYTE*>(output), size == nullptr ? 0 : *size, &needed, &status))
            throw SpoolerFailure();
        if (size != nullptr)
            *size = needed;
        return status;
    }

private:
    XcvSession(const WideString& name, bool administer) : handle(name, administer) {}
    PrinterHandle handle;
};

void Check(DWORD word, const WideString& port)
{
    if (word != ERROR_SUCCESS)
        throw PlatformFailure("Port '" + ToUtf8(port) + "'", word);
}

template <std::size_t Size>
void CopyText(WCHAR (&field)[Size], const WideString& text, const char* what)
{
    if (text.size() >= Size)
        throw Failure(std::string(what) + " '" + ToUtf8(text) + "' is too long: at most " +
                          std::to_string(Size - 1) + " characters",
                      ExitStatus::Usage);
    std::ranges::copy(text, field);
}

PortDataRecord RecordOf(const PortSettings& settings)
{
    PortDataRecord record{};
    CopyText(record.name, settings.name, "The port name");
    record.version = kRecordVersion;
    CopyText(record.server, settings.server, "The print server");
    record.number = settings.number;
    return record;
}

KeepAlive ReadKeepAlive(const XcvSession& session, LPCWSTR command, const WideString& port)
{
    KeepAliveRecord record{};
    DWORD size = sizeof record;
    Check(session.Ask(command, &kRecordVersion, sizeof kRecordVersion, &record, &size), port);
    return {record.period, record.timeout};
}

WideString ReadText(LPCWSTR command)
{
    const XcvSession session = XcvSession::OnMonitor(false);
    DWORD size = 0;
    DWORD word = session.Ask(command, nullptr, 0, nullptr, &size);
    WideString text(size / sizeof(WCHAR) + 1, TEXT('\0'));
    if (word == ERROR_INSUFFICIENT_BUFFER)
        word = session.Ask(command, nullptr, 0, text.data(), &size);
    if (word != ERROR_SUCCESS)
        throw PlatformFailure("The monitor does not answer " + ToUtf8(command), word);
    return text.c_str();
}

}  // namespace

void AddPort(const PortSettings& settings)
{
    const PortDataRecord record = RecordOf(settings);
    Check(XcvSession::OnMonitor(true).Ask(TEXT("AddPort"), &record, sizeof record), settings.name);
}

void DeletePort(const WideString& name)
{
    const auto size = static_cast<DWORD>((name.size() + 1) * sizeof(WCHAR));
    Check(XcvSession::OnMonitor(true).Ask(TEXT("DeletePort"), name.c_str(), size), name);
}

PortSettings GetPort(const WideString& name)
{
    PortDataRecord record{};
    DWORD size = sizeof record;
    Check(XcvSession::OnPort(name, false)
              .Ask(TEXT("GetPortProperties"), &kRecordVersion, sizeof kRecordVersion, &record, &size),
          name);
    record.name[std::size(record.name) - 1] = TEXT('\0');
    record.server[std::size(record.server) - 1] = TEXT('\0');
    return {record.name, record.server, record.number};
}

void SetPort(const PortSettings& settings)
{
    const PortDataRecord record = RecordOf(settings);
    Check(XcvSession::OnPort(settings.name, true).Ask(TEXT("SetPortProperties"), &record, sizeof record),
          settings.name);
}

KeepAlive GetKeepAlive(const WideString& port)
{
    return ReadKeepAlive(XcvSession::OnPort(port, false), TEXT("GetKeepAliveValues"), port);
}

void SetKeepAlive(const WideString& port, KeepAlive values)
{
    const KeepAliveRecord record{kRecordVersion, values.period, values.timeout};
    Check(XcvSession::OnPort(port, true).Ask(TEXT("SetKeepAliveValues"), &record, sizeof record), port);
}

KeepAlive GetDefaultKeepAlive()
{
    return ReadKeepAlive(XcvSession::OnMonitor(false), TEXT("GetDefaultKeepAliveValues"), FindMonitor().name);
}

WideString GetAboutText()
{
    return ReadText(TEXT("GetAboutString"));
}

WideString GetUserInterfaceLibrary()
{
    return ReadText(TEXT("MonitorUI"));
}

}  // namespace farlink
