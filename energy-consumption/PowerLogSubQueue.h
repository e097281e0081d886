// The open write interval of the block log: collects measured intervals until they span the
// write threshold, then hands their sum on and starts over. Never persisted.
#pragma once

#include <cstdint>
#include <functional>

namespace powermeter {

class PowerLogSubQueue {
  public:
    PowerLogSubQueue();

    // Stores the threshold only; an interval already open stays open.
    void Init(unsigned long threshold);
    // Adds one interval (its duration counts towards the span). Once the span reaches the
    // threshold, calls on_full(start, end, energy) and empties itself; an empty on_full throws
    // std::bad_function_call.
    void Add(unsigned long time, double energy, unsigned long duration,
             std::function<void(unsigned long, unsigned long, double)>& on_full);
    // end - start of the open interval, 32-bit unsigned.
    unsigned long GetAccumulatedTime();

  private:
    uint32_t threshold_sec;
    uint32_t start_time;  // 0 = empty
    uint32_t end_time;
    double accumulated_power;  // Wh
};

}  // namespace powermeter
