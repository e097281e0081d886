#include "TimeUtil.h"

#include <tu_time.h>

#include <cstdint>
#include <ctime>

#include "Log.h"
#include "LogTexts.h"

namespace powermeter {

unsigned long TimeUtil::GetLinuxTime() {
    time_t now = 0;
    if (time(&now) == static_cast<time_t>(-1)) {
        ELOGE("[Energy] failed to get time by time function");
    }
    // Time stamps are 32-bit throughout the system.
    return static_cast<uint32_t>(now);
}

bool TimeUtil::ValidateTime(unsigned long time) {
    if (time == 0) {
        return false;
    }
    TU_PTTime record{};
    TU_GetPTTimeFromSec(&record, time);
    return record.year > 2020;
}

void TimeUtil::PrintTime(unsigned long time, const char* label) {
    TU_PTTime record{};
    TU_GetPTTimeFromSec(&record, time);
    if (label != nullptr) {
        ELOGI("[Energy] %s UTC: %d-%d-%d %d:%d:%d", label, record.year, record.month, record.day,
              record.hour, record.minute, record.second);
    } else {
        ELOGI("%s%d-%d-%d %d:%d:%d", logtext::kSnapshotTime, record.year, record.month, record.day,
              record.hour, record.minute, record.second);
    }
}

}  // namespace powermeter
