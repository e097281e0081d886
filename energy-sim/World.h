// The simulated TV as a device profile sets it up.
#pragma once

#include "Profile.h"
#include "ServiceNames.h"

namespace energysim {

// The service energy-sim drives.
inline constexpr const char* kService = powermeter::names::kService;

// Applies a profile to the simulated TV (directories are applied by the caller).
void ApplyProfile(const DeviceProfile& profile);

}  // namespace energysim
