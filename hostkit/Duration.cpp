#include "Duration.h"

#include <cstdio>

namespace hostkit {

std::string FormatDuration(uint64_t seconds, DurationStyle style) {
    const unsigned long long parts[] = {seconds / 86400, seconds % 86400 / 3600,
                                        seconds % 3600 / 60, seconds % 60};
    char buffer[64];
    if (style == DurationStyle::kClock) {
        std::snprintf(buffer, sizeof buffer, "%llud %02llu:%02llu:%02llu", parts[0], parts[1],
                      parts[2], parts[3]);
        return buffer;
    }
    const char units[] = {'d', 'h', 'm', 's'};
    std::string out;
    for (int i = 0; i < 4; ++i) {
        if (parts[i] > 0) {
            std::snprintf(buffer, sizeof buffer, "%llu%c", parts[i], units[i]);
            out += buffer;
        }
    }
    return out;
}

}  // namespace hostkit
