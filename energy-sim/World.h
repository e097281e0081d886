// The simulated TV as a device profile sets it up.
#pragma once

#include "Profile.h"

namespace energysim {

// The service energy-sim drives.
inline constexpr char kService[] = "energy-consumption";

// Applies a profile to the simulated TV (directories are applied by the caller).
void ApplyProfile(const DeviceProfile& profile);

}  // namespace energysim
