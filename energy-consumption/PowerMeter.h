// The process-wide metering engine: every 10 seconds a worker thread asks the calculator for
// the set's power, turns it into the energy of that interval, keeps a running total and hands
// the log queue's report to the notify function when the queue says it is due.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "Calculator.h"
#include "IPowerLogQueue.h"

namespace powermeter {

class PowerMeter {
  public:
    using NotifyFunction = std::function<void(const std::string&)>;

    // The one meter, created on first use; callers never delete it.
    static PowerMeter* GetInstance();

    virtual ~PowerMeter();
    PowerMeter(const PowerMeter&) = delete;
    PowerMeter& operator=(const PowerMeter&) = delete;

    // Resets the running total, initialises the calculator, keeps a copy of `notify`, prepares
    // the queue and starts the worker. True when the worker is running.
    bool Start(const NotifyFunction& notify);
    // Wakes the worker and joins it. Takes up to one wait plus one turn when the worker is busy.
    void Stop();
    bool IsStarted();
    // Whether the calculator can be initialised (initialises it as a side effect).
    bool IsAvailable();

    // A turn's power is taken to last this many seconds, whatever time actually passed.
    static constexpr double kNominalInterval = 10.0;
    // A turn's energy above this many watt-hours (7,920 W over the nominal interval) is taken
    // as implausible and metered as 0.
    static constexpr double kPlausibilityLimit = 22.0;

  private:
    // IPowerLogQueue has no virtual destructor, so deleting a queue through it would skip the
    // concrete destructor (undefined behaviour): the deleter restores the concrete type.
    using QueuePtr = std::unique_ptr<IPowerLogQueue, void (*)(IPowerLogQueue*)>;

    PowerMeter();

    bool create_thread();
    void terminate_thread();
    void add_accumulated_power(double energy);
    void reset_accumulated_power();
    void run();
    void print();

    std::mutex m_mutex;
    std::condition_variable m_cond;
    std::thread m_thread;
    std::atomic<bool> m_started;
    Calculator m_calculator;
    QueuePtr m_queue;
    NotifyFunction m_notify;
    double m_instantaneous_power;
    double m_accumulated_power;
    uint32_t m_accumulated_since;

    static std::unique_ptr<PowerMeter> m_instance;
    static std::once_flag m_once;
};

}  // namespace powermeter
