#include "PowerLogSubQueue.h"

namespace powermeter {

PowerLogSubQueue::PowerLogSubQueue()
    : threshold_sec(0), start_time(0), end_time(0), accumulated_power(0.0) {}

void PowerLogSubQueue::Init(unsigned long threshold) {
    threshold_sec = static_cast<uint32_t>(threshold);
}

void PowerLogSubQueue::Add(unsigned long time, double energy, unsigned long duration,
                           std::function<void(unsigned long, unsigned long, double)>& on_full) {
    if (start_time == 0) {
        start_time = static_cast<uint32_t>(time);
    }
    end_time = static_cast<uint32_t>(time) + static_cast<uint32_t>(duration);
    accumulated_power += energy;
    if (static_cast<uint32_t>(end_time - start_time) >= threshold_sec) {
        on_full(start_time, end_time, accumulated_power);
        start_time = 0;
        end_time = 0;
        accumulated_power = 0.0;
    }
}

unsigned long PowerLogSubQueue::GetAccumulatedTime() {
    return static_cast<uint32_t>(end_time - start_time);
}

}  // namespace powermeter
