// The log queue the metering engine hands every measured interval to.
#pragma once

#include <string>

namespace powermeter {

// Six operations in this slot order. There is deliberately no virtual destructor: owners
// delete the concrete queue through this base with plain deallocation, and queues keep no
// resources that need their own destructor run that way.
class IPowerLogQueue {
  public:
    // Prepare the queue before the worker starts.
    virtual void Init() = 0;
    // Log one interval: time stamp (seconds since the epoch, 32-bit), energy in Wh, length in s.
    virtual void Add(unsigned long time, double energy, unsigned long duration) = 0;
    // Is the collected energy due for upload?
    virtual bool IsUploadRequired() = 0;
    // Write the queue's state to the platform log.
    virtual void Print() = 0;
    // The upload report, compact JSON text.
    virtual std::string GetJson() = 0;
    // Forget everything collected.
    virtual void Reset() = 0;
};

}  // namespace powermeter
