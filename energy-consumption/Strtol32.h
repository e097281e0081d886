// Decimal text to a 32-bit integer the way the set reads it.
#pragma once

#include <cstdint>
#include <cstdlib>

namespace powermeter {

// strtol with base 10 and no error check (leading digits only, junk gives 0). The set's long
// is 32 bits wide, so strtol saturates there; this does the same on a 64-bit host.
inline int32_t Strtol32(const char* text) {
    const long value = std::strtol(text, nullptr, 10);
    if (value > INT32_MAX) {
        return INT32_MAX;
    }
    if (value < INT32_MIN) {
        return INT32_MIN;
    }
    return static_cast<int32_t>(value);
}

}  // namespace powermeter
