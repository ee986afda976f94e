// OpenPrinterW, ClosePrinter and the Xcv sessions that they open and close.

#include <optional>

#include "platform/posix/utf.h"
#include "spooler/api.h"
#include "spooler/monitor.h"
#include "spooler/printer_handle.h"

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

HANDLE OpenSession(Instance& spooler, const WideString& name, ACCESS_MASK access)
{
    std::optional<WideString> object = ObjectOf(name, TEXT("XcvMonitor "));
    const bool isMonitor = object.has_value();
    if (!isMonitor)
        object = ObjectOf(name, TEXT("XcvPort "));
    if (!object)
        Throw(ERROR_INVALID_PRINTER_NAME,
              "\"" + ToUtf8(name) + "\" is neither a monitor's nor a port's name.");
    if ((access & SERVER_ACCESS_ADMINISTER) != 0)
        spooler.RequireAdministrator();
    std::shared_ptr<Monitor> monitor = isMonitor
                                           ? Found(spooler.monitors->Load(*object), "monitor", *object)
                                           : Found(spooler.monitors->OwnerOfPort(*object), "port", *object);
    return HandleTable::Instance().Add(
        std::make_shared<XcvSession>(std::move(monitor), object->c_str(), access));
}

HANDLE OpenPrinter(Instance& spooler, const WideString& name)
{
    const std::optional<Printer> printer = spooler.printers->Find(name);
    if (!printer)
        Throw(ERROR_INVALID_PRINTER_NAME, "There is no printer \"" + ToUtf8(name) + "\".");
    return HandleTable::Instance().Add(std::make_shared<PrinterHandle>(printer->name));
}

}  // namespace

SPOOLER_EXPORT BOOL OpenPrinterW(LPWSTR name, LPHANDLE printer, PRINTER_DEFAULTSW* defaults)
{
    return BoolCall([&] {
        RequireReference(printer);
        *printer = nullptr;
        const std::shared_ptr<Instance> spooler = Instance::Get();
        const ACCESS_MASK access = defaults == nullptr ? 0 : defaults->DesiredAccess;
        if (name == nullptr)
            *printer = HandleTable::Instance().Add(std::make_shared<PrinterHandle>(WideString()));
        else if (*name == TEXT(','))
            *printer = OpenSession(*spooler, name, access);
        else
            *printer = OpenPrinter(*spooler, name);
    });
}

SPOOLER_EXPORT BOOL ClosePrinter(HANDLE printer)
{
    return BoolCall([&] {
        // Settings keys are handles too, but the monitors' alone.
        if (std::dynamic_pointer_cast<XcvSession>(Opened<HandleObject>(printer)) != nullptr)
            HandleTable::Instance().Close<XcvSession>(printer);
        else
            HandleTable::Instance().Close<PrinterHandle>(printer);
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
