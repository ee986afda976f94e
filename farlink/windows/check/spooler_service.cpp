#include "farlink/windows/check/spooler_service.h"

#include "farlink/failure.h"
#include "farlink/windows/check/check_printer.h"

namespace farlink {

namespace {

class ServiceHandle {
public:
    explicit ServiceHandle(SC_HANDLE open) : handle(open)
    {
        if (handle == nullptr)
            throw SpoolerFailure("the spooler's service can't be controlled");
    }
    ~ServiceHandle() { CloseServiceHandle(handle); }
    ServiceHandle(const ServiceHandle&) = delete;
    ServiceHandle& operator=(const ServiceHandle&) = delete;

    SC_HANDLE Get() const { return handle; }

private:
    SC_HANDLE handle;
};

void AwaitState(const ServiceHandle& service, DWORD state, const char* what)
{
    Await(what, [&] {
        SERVICE_STATUS status{};
        return QueryServiceStatus(service.Get(), &status) && status.dwCurrentState == state;
    });
}

}  // namespace

void RestartSpooler()
{
    const ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    const ServiceHandle spooler(
        OpenServiceW(manager.Get(), TEXT("Spooler"), SERVICE_START | SERVICE_STOP | SERVICE_QUERY_STATUS));
    SERVICE_STATUS status{};
    if (!ControlService(spooler.Get(), SERVICE_CONTROL_STOP, &status)) {
        if (GetLastError() == ERROR_DEPENDENT_SERVICES_RUNNING)
            throw Failure("services that depend on the spooler run; stop them first");
        if (GetLastError() != ERROR_SERVICE_NOT_ACTIVE)
            throw SpoolerFailure("the spooler's service can't be stopped");
    }
    AwaitState(spooler, SERVICE_STOPPED, "the spooler's service didn't stop");
    if (!StartServiceW(spooler.Get(), 0, nullptr))
        throw SpoolerFailure("the spooler's service can't be started");
    AwaitState(spooler, SERVICE_RUNNING, "the spooler's service didn't start");
}

}  // namespace farlink
