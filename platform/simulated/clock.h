#pragma once

#include "platform/platform.h"

namespace simulated {

// What the tick count reads when the run's time is 0.
void SetFirstTick(DWORD tick);

}  // namespace simulated
