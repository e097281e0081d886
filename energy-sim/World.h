// The simulated TV's state that scenario commands change, and the framework's protocol reports.
#pragma once

#include <map>
#include <string>

#include "Profile.h"
#include "Scenario.h"

namespace energysim {

// The service energy-sim drives and the configuration key the picture engine publishes.
inline constexpr char kService[] = "energy-consumption";
inline constexpr char kPictureKey[] = "memory/ave/powerconsumption";

// Applies a profile to the simulated TV (directories are applied by the caller).
void ApplyProfile(const DeviceProfile& profile);

class World {
  public:
    explicit World(const DeviceProfile& profile) : picture_(profile.picture) {}
    // Applies a change to the simulated TV or the framework; `restart` and `clock` are the
    // caller's.
    void Apply(const Command& command);

  private:
    std::map<std::string, std::string> picture_;  // register name -> published text
};

}  // namespace energysim
