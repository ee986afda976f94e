#include "farlink/ports/settings_change.h"

namespace farlink {

SettingsChange::SettingsChange() = default;
SettingsChange::~SettingsChange() = default;

void SettingsChange::Commit()
{
    open = false;
}

}  // namespace farlink
