#include "platform/test_switches.h"

#include "platform/call_orders.h"
#include "platform/posix/reported_version.h"
#include "platform/posix/steady_time.h"

namespace test_switches {

void SetReportedVersion(DWORD major, DWORD minor)
{
    posix_layer::SetReportedVersion(major, minor);
}

void SetTimeScale(double scale)
{
    posix_layer::SetTimeScale(scale);
}

void SetTickCount(DWORD tick)
{
    posix_layer::SetTickCount(tick);
}

void Reset()
{
    posix_layer::ResetReportedVersion();
    posix_layer::ResetTime();
    call_orders::Forget();
}

}  // namespace test_switches
