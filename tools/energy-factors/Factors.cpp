#include "Factors.h"

#include <fmt/format.h>

namespace energyfactors {

namespace {
const char* const kNames[kFactorCount] = {
    "OD_MIN", "OD_MAX", "VF_MIN",   "VF_MAX",  "ALPHA", "BLOCK", "TYPE", "COMPENSATE_CONSTANT",
    "CELL",   "MAIN",   "MAIN_LPM", "SPEAKER",
};
}  // namespace

const char* FactorName(int i) {
    return kNames[i];
}

Factors FactorsOf(const powermeter::PowerFactors& row) {
    Factors f{};
    for (int i = 0; i < powermeter::PowerFactors::kBluCount; ++i) {
        f[i] = row.BLUFactors(static_cast<powermeter::_BLU>(i));
    }
    for (int i = 0; i < powermeter::PowerFactors::kComponentCount; ++i) {
        f[powermeter::PowerFactors::kBluCount + i] =
            row.Components(static_cast<powermeter::_COMPONENT>(i));
    }
    return f;
}

std::string FactorText(double value) {
    if (value == powermeter::PowerFactors::kMissing) {
        return "-";
    }
    return fmt::format("{}", value);
}

}  // namespace energyfactors
