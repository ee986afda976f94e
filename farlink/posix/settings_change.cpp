#include "farlink/ports/settings_change.h"

#include "farlink/failure.h"
#include "spooler/spooler.h"

namespace farlink {

SettingsChange::SettingsChange()
{
    if (!BeginSettingsChange())
        throw SpoolerFailure("The settings can't be changed");
}

SettingsChange::~SettingsChange()
{
    if (open)
        (void)EndSettingsChange(FALSE);  // nothing was promised yet
}

void SettingsChange::Commit()
{
    open = false;
    if (!EndSettingsChange(TRUE))
        throw SpoolerFailure("The settings can't be stored");
}

}  // namespace farlink
