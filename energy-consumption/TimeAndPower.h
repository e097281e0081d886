// One block of the block log: the energy of a stretch of time. Also the 16-byte record of
// energy_log.dat (start, end, power; little-endian on disk).
#pragma once

#include <cstdint>

namespace powermeter {

typedef struct _TimeAndPower {
    uint32_t start;  // block start, seconds since the epoch (UTC)
    uint32_t end;    // block end, seconds since the epoch (UTC)
    double power;    // energy of the block, Wh
} TimeAndPower;

static_assert(sizeof(TimeAndPower) == 16, "a block is a 16-byte record of the data file");

}  // namespace powermeter
