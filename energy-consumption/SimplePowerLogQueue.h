// The log queue the metering engine uses: one running total of energy since the last upload.
#pragma once

#include <cstdint>
#include <string>

#include "IPowerLogQueue.h"

namespace powermeter {

class SimplePowerLogQueue : public IPowerLogQueue {
  public:
    SimplePowerLogQueue();

    void Init() override;
    void Add(unsigned long time, double energy, unsigned long duration) override;
    // Due once the latest interval is at least 900 s after the first one.
    bool IsUploadRequired() override;
    void Print() override;
    // {"cumulativePower":"<%f>","cumulativeUnit":"Wh","cumulativeDateUTC":"<start>"}
    std::string GetJson() override;
    void Reset() override;

  private:
    void reset();

    double accumulated_power;  // Wh since the last reset
    uint32_t start_time;       // time of the first Add since the last reset; 0 = empty
    uint32_t end_time;         // time of the latest Add
    uint32_t last_duration;    // duration of the latest Add; kept, never read
    uint32_t upload_interval_sec;
};

}  // namespace powermeter
