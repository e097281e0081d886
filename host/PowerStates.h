// Named power settings of the simulated TV: the platform's (state, ambient mode) pairs.
#pragma once

#include <string>

namespace energysim {

struct PowerSetting {
    int state = 0;
    int ambient = 0;
};

// "on" (0,0), "picture-off" (1,0), "standby" (2,0), "ambient" (2,1), "suspend" (3,0),
// "lpm" (4,2). False for any other name.
bool ParsePowerName(const std::string& name, PowerSetting* out);
// "on, picture-off, ..." for messages.
std::string PowerNames();

}  // namespace energysim
