// Wall-clock helpers: read the time, judge a time stamp, log one as a UTC date.
// Time stamps are unsigned 32-bit seconds since the Unix epoch (UTC).
#pragma once

namespace powermeter {

class TimeUtil {
  public:
    // Seconds since the epoch; logs and returns what time() left (0) when the clock fails.
    static unsigned long GetLinuxTime();
    // True for a time stamp from 2021 on; false for 0.
    static bool ValidateTime(unsigned long time);
    // Logs "[Energy] <label> UTC: y-m-d h:m:s" (or without the label when it is null).
    static void PrintTime(unsigned long time, const char* label);
};

}  // namespace powermeter
