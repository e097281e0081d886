#include "SimplePowerLogQueue.h"

#include <cstdio>

#include "Log.h"
#include "ServiceNames.h"
#include "SharedJson.h"
#include "TimeUtil.h"

namespace powermeter {

namespace {

constexpr uint32_t kUploadIntervalSec = 900;
constexpr const char kRule[] =
    "====================================================================================";
static_assert(sizeof(kRule) - 1 == 84, "the rule is 84 characters wide");

}  // namespace

SimplePowerLogQueue::SimplePowerLogQueue()
    : accumulated_power(0.0),
      start_time(0),
      end_time(0),
      last_duration(0),
      upload_interval_sec(kUploadIntervalSec) {}

void SimplePowerLogQueue::Init() {
    reset();
}

void SimplePowerLogQueue::Reset() {
    reset();
}

void SimplePowerLogQueue::reset() {
    accumulated_power = 0.0;
    start_time = 0;
    end_time = 0;
    last_duration = 0;
}

void SimplePowerLogQueue::Add(unsigned long time, double energy, unsigned long duration) {
    if (start_time == 0) {
        start_time = static_cast<uint32_t>(time);
    }
    // The duration is deliberately not added: the span runs from the first to the latest
    // time stamp, which makes an upload cover 91 ten-second intervals.
    end_time = static_cast<uint32_t>(time);
    accumulated_power += energy;
    last_duration = static_cast<uint32_t>(duration);
}

bool SimplePowerLogQueue::IsUploadRequired() {
    // 32-bit unsigned: a clock that ran backwards wraps to a huge span and uploads at once.
    return static_cast<uint32_t>(end_time - start_time) >= upload_interval_sec;
}

void SimplePowerLogQueue::Print() {
    if (start_time == 0) {
        ELOGI("[Energy] There is no accumulated power");
        return;
    }
    ELOGI("%s", kRule);
    TimeUtil::PrintTime(end_time, "Current Time: ");
    ELOGI("[Energy] Accumulated power : %lf", accumulated_power);
    TimeUtil::PrintTime(start_time, "     From Time: ");
    ELOGI("%s", kRule);
}

std::string SimplePowerLogQueue::GetJson() {
    char power[328];
    std::snprintf(power, sizeof(power), "%f", accumulated_power);
    char date[32];
    std::snprintf(date, sizeof(date), "%lu", static_cast<unsigned long>(start_time));

    // Receivers expect both numbers as JSON strings.
    common::json::JsonValue report;
    report[names::kCumulativePower] = common::json::JsonValue(std::string(power));
    report["cumulativeUnit"] = common::json::JsonValue("Wh");
    report["cumulativeDateUTC"] = common::json::JsonValue(std::string(date));
    return report.toString(false);
}

}  // namespace powermeter
