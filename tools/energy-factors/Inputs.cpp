#include "Inputs.h"

namespace energyfactors {

namespace {
const char* const* const kStateNames = powermeter::PowerStatus::kNames;
}  // namespace

const char* StateName(powermeter::_PowerStatusForEnergy s) {
    return s >= 0 && s < kStateCount ? kStateNames[s] : "?";
}

bool StateFromName(const std::string& name, powermeter::_PowerStatusForEnergy* out) {
    for (int s = 0; s < kStateCount; ++s) {
        if (name == kStateNames[s]) {
            *out = static_cast<powermeter::_PowerStatusForEnergy>(s);
            return true;
        }
    }
    return false;
}

}  // namespace energyfactors
