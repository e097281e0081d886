// Runs the real plug-in library on the simulated TV, with its clock under our control.
#pragma once

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>

#include "Profile.h"
#include "Scenario.h"

namespace energysim {

struct RunOptions {
    std::string plugin_path;
    DeviceProfile profile;
    std::optional<Scenario> scenario;
    uint64_t duration = 24 * 3600;  // simulated seconds
    double speed = 0;               // 0 = as fast as possible, 1 = real time
    int64_t start = 0;              // simulated epoch seconds at the start
    std::string log_file;           // "" = stderr
    int log_level = 6;              // lowest dlog priority shown; 99 = none
    std::string plot_file;
    bool progress = false;  // a progress line on stderr
};

// Returns the process exit code; writes notifications to `out` and the summary to `err`.
// Throws std::runtime_error for setup errors (unloadable plug-in, missing directories).
int Run(const RunOptions& options, std::ostream& out, std::ostream& err);

// Runs the availability pre-check for a profile; prints the decision and its reason.
// Returns 0 when the service is supported, 1 when not.
int Check(const DeviceProfile& profile, const std::string& default_shared_dir, std::ostream& out);

// Applies a profile to the simulated TV (directories are applied by the caller).
void ApplyProfile(const DeviceProfile& profile);

}  // namespace energysim
