#pragma once

namespace platform {

// Lets what a terminal sends and broken pipes pass this process by, and makes its children waitable.
void SettleSignals();

}  // namespace platform
