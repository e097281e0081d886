// Drives the plug-in's virtual clock through a run: the run's wall-clock time and its jumps,
// stepping the worker to a time turn by turn, pacing it with real time, and taking a signal
// that ends the run after the turn that is running.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>

namespace energysim {

// Real monotonic nanoseconds (the process's clock functions run in virtual time).
int64_t RealNanos();

class ClockDriver {
  public:
    // `speed`: simulated seconds per real second, 0 as fast as possible. `interrupt` is set (to
    // the signal number) when the run should end after the current turn; it may be null.
    ClockDriver(int64_t start, double speed, const std::atomic<int>* interrupt);

    // Puts the plug-in's clock at the start, standing still until a step raises its limit.
    void Enable() const;
    // The wall-clock time of the run's `offset`, after the jumps so far.
    int64_t WallAt(uint64_t offset) const;
    // The jumps so far: the wall clock reads the run's time plus this. Any thread.
    int64_t Shift() const { return shift_; }
    // The worker is parked (or not yet created): the wall clock jumps, the monotonic clock and
    // the limit do not, so the next turn still comes 10 s after the last one.
    void JumpWallClock(int64_t seconds);
    // With no worker waiting, a timed wait of this thread moves virtual time to `offset`.
    void AdvanceTo(uint64_t offset) const;
    // Lets the worker run every turn due before `offset` (a turn due exactly at a change must
    // see the change), and waits until it waits for the next one. `while_paced` runs between
    // the limit raises of a paced run.
    void StepTo(uint64_t offset, bool worker, const std::function<void()>& while_paced);
    // Waits until the worker (if there is one) waits.
    void WaitParked(bool worker);
    // Takes a pending interrupt: from now on the worker parks at its next wait.
    bool PollInterrupt();
    // The signal that interrupted the run, or 0.
    int Signal() const { return signal_; }

    void MarkStart() { real_start_ = RealNanos(); }
    void MarkEnd() { real_end_ = RealNanos(); }
    // Real seconds from MarkStart to MarkEnd.
    double RealSeconds() const;
    // True when a paced run waited for the worker more than a tenth of its real time.
    bool FellBehind() const;

  private:
    void pace_to(uint64_t offset, const std::function<void()>& while_paced);

    int64_t start_;
    double speed_;
    const std::atomic<int>* interrupt_;
    std::atomic<int64_t> shift_{0};  // read by the recorder on the worker's thread
    int signal_ = 0;
    int64_t real_start_ = 0;
    int64_t real_end_ = 0;
    int64_t lag_ = 0;  // real time the paced clock waited for the worker
};

}  // namespace energysim
