// OpenPrinterW, ClosePrinter and the Xcv sessions that they open and close.

#include <optional>

#include "platform/platform.h"
#include "spooler/api.h"
#include "spooler/job.h"
#include "spooler/monitor.h"

namespace spooler {

namespace {

// The text behind `word` and one blank in ",word object"; a blank behind the comma is allowed, letter
// case counts.
std::optional<WideString> ObjectOf(WideStringView name, WideStringView word)
{
    name.remove_prefix(1);
    while (name.starts_with(TEXT(' ')))
        name.remove_prefix(1);
    if (!name.starts_with(word))
        return std::nullopt;
    return WideString(name.substr(word.size()));
}

std::shared_ptr<Monitor> Found(std::shared_ptr<Monitor> monitor, const char* kind, const WideString& object)
{
    if (monitor == nullptr)
        Throw(ERROR_UNKNOWN_PORT, "There is no " + std::string(kind) + " \"" + ToUtf8(object) + "\".");
    return monitor;
}

HANDLE OpenSession(const WideString& name, ACCESS_MASK access)
{
    const std::shared_ptr<Instance> spooler = Instance::Get();
    std::optional<WideString> object = ObjectOf(name, TEXT("XcvMonitor "));
    const bool isMonitor = object.has_value();
    if (!isMonitor)
        object = ObjectOf(name, TEXT("XcvPort "));
    if (!object)
        Throw(ERROR_INVALID_PRINTER_NAME,
              "\"" + ToUtf8(name) + "\" is neither a monitor's nor a port's name.");
    std::shared_ptr<Monitor> monitor = isMonitor
                                           ? Found(spooler->monitors->Load(*object), "monitor", *object)
                                           : Found(spooler->monitors->OwnerOfPort(*object), "port", *object);
    return HandleTable::Instance().Add(
        std::make_shared<XcvSession>(std::move(monitor), object->c_str(), access));
}

// The printer of the document that this process prints. A document in channel mode has neither printer nor
// job.
HANDLE OpenJobPrinter(LPCWSTR name)
{
    std::shared_ptr<Job> job;
    if (name != nullptr) {
        job = Job::Current();
        if (job == nullptr || job->printer != name)
            Throw(ERROR_INVALID_PRINTER_NAME, "There is no printer \"" + ToUtf8(name) + "\".");
    }
    return HandleTable::Instance().Add(std::make_shared<JobPrinter>(std::move(job)));
}

bool IsSessionName(LPCWSTR name)
{
    return name != nullptr && *name == TEXT(',');
}

}  // namespace

SPOOLER_EXPORT BOOL OpenPrinterW(LPWSTR name, LPHANDLE printer, PRINTER_DEFAULTSW* defaults)
{
    return BoolCall([&] {
        RequireReference(printer);
        *printer = nullptr;
        const ACCESS_MASK access = defaults == nullptr ? 0 : defaults->DesiredAccess;
        *printer = IsSessionName(name) ? OpenSession(name, access) : OpenJobPrinter(name);
    });
}

SPOOLER_EXPORT BOOL ClosePrinter(HANDLE printer)
{
    return BoolCall([&] {
        // Settings keys are handles too, but the monitors' alone.
        if (std::dynamic_pointer_cast<XcvSession>(Opened<HandleObject>(printer)) != nullptr)
            HandleTable::Instance().Close<XcvSession>(printer);
        else
            HandleTable::Instance().Close<JobPrinter>(printer);
    });
}

SPOOLER_EXPORT BOOL XcvDataW(HANDLE xcv, LPCWSTR dataName, PBYTE input, DWORD inputSize, PBYTE output,
                             DWORD outputSize, PDWORD outputNeeded, PDWORD status)
{
    return BoolCall([&] {
        RequireParameter(outputNeeded != nullptr, "There is no place for the size needed.");
        RequireReference(status);
        RequireReference(dataName);
        if (outputSize != 0)
            RequireReference(output);
        const std::shared_ptr<XcvSession> session = Opened<XcvSession>(xcv);
        *outputNeeded = 0;
        Registry::Batch stored(*Instance::Get()->registry);
        *status = session->Call(dataName, input, inputSize, output, outputSize, outputNeeded);
        if (*status == ERROR_SUCCESS)
            stored.Commit();
    });
}

}  // namespace spooler
