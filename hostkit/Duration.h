// Durations as the host programs print them.
#pragma once

#include <cstdint>
#include <string>

namespace hostkit {

enum class DurationStyle {
    kUnits,  // as a scenario or an option writes it: "2d", "1h30m", "45s" ("" for 0)
    kClock,  // days and a clock: "0d 01:30:00"
};

std::string FormatDuration(uint64_t seconds, DurationStyle style);

}  // namespace hostkit
