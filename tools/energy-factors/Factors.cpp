#include "Factors.h"

#include <fmt/format.h>

#include <cmath>

namespace energyfactors {

using powermeter::PowerFactors;

const char* FactorName(int i) {
    return i < PowerFactors::kBluCount ? PowerFactors::kBluNames[i]
                                       : PowerFactors::kComponentNames[i - PowerFactors::kBluCount];
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

int NonFiniteFactor(const Factors& factors) {
    for (int i = 0; i < kFactorCount; ++i) {
        if (!std::isfinite(factors[i])) {
            return i;
        }
    }
    return -1;
}

std::string FactorText(double value) {
    if (value == powermeter::PowerFactors::kMissing) {
        return "-";
    }
    return fmt::format("{}", value);
}

}  // namespace energyfactors
