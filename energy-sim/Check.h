// energy-sim check: the energy service's availability pre-check for a device profile.
#pragma once

#include <ostream>
#include <string>

#include "Profile.h"

namespace energysim {

// Runs the pre-check on the simulated TV set up from `profile`; prints the decision and its
// reason. Returns 0 when the service is supported, 1 when not.
int Check(const DeviceProfile& profile, const std::string& default_shared_dir, std::ostream& out);

}  // namespace energysim
