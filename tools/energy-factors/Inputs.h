// The live inputs of one metering turn, as the calculator's snapshot line logs them.
#pragma once

#include <string>
#include <tuple>

#include "PowerStatus.h"

namespace energyfactors {

struct Inputs {
    powermeter::_PowerStatusForEnergy state = powermeter::NORMAL;
    int ana = 0;
    int dutysum = 0;
    int resolution = 0;
    int volume = 0;  // as the calculator uses it: 0 when the TV speaker is not the output

    bool operator<(const Inputs& o) const {
        return std::tie(state, ana, dutysum, resolution, volume) <
               std::tie(o.state, o.ana, o.dutysum, o.resolution, o.volume);
    }
    bool operator==(const Inputs& o) const { return !(*this < o) && !(o < *this); }
};

constexpr int kStateCount = powermeter::MAX_POWER_STATUS_FOR_ENERGY;

// "NORMAL" ... "SUSPEND", as the plug-in logs them.
const char* StateName(powermeter::_PowerStatusForEnergy s);
// The state whose name this is; false for any other text.
bool StateFromName(const std::string& name, powermeter::_PowerStatusForEnergy* out);

}  // namespace energyfactors
