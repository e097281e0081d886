#include "ClockDriver.h"

#include <chrono>
#include <condition_variable>
#include <ctime>
#include <mutex>

#include <fmt/format.h>
#include "Error.h"
#include "VirtualClock.h"

namespace energysim {
namespace {

constexpr int64_t kPaceTick = 10000000;  // real nanoseconds between limit raises
constexpr int kParkPollMs = 100;

void SleepReal(int64_t nanos) {
    struct timespec ts {};
    ts.tv_sec = static_cast<time_t>(nanos / vclock::kNanosPerSecond);
    ts.tv_nsec = static_cast<long>(nanos % vclock::kNanosPerSecond);
    nanosleep(&ts, nullptr);  // not interposed: a real sleep; a signal just ends it early
}

}  // namespace

int64_t RealNanos() {
    return vclock::KernelNanos(CLOCK_MONOTONIC);
}

ClockDriver::ClockDriver(int64_t start, double speed, const std::atomic<int>* interrupt)
    : start_(start), speed_(speed), interrupt_(interrupt) {}

void ClockDriver::Enable() const {
    vclock::Enable(start_);
    vclock::SetLimitSeconds(start_);
}

int64_t ClockDriver::WallAt(uint64_t offset) const {
    return start_ + shift_ + static_cast<int64_t>(offset);
}

void ClockDriver::JumpWallClock(int64_t seconds) {
    if (!vclock::JumpWallClockSeconds(seconds)) {
        throw SimError(fmt::format("clock {:+d} s would move the wall clock before 1970", seconds));
    }
    shift_ += seconds;
}

void ClockDriver::AdvanceTo(uint64_t offset) const {
    const int64_t target = WallAt(offset);
    vclock::SetLimitSeconds(target);
    std::mutex m;
    std::condition_variable cv;
    std::unique_lock<std::mutex> lock(m);
    const auto delta =
        std::chrono::nanoseconds(target * vclock::kNanosPerSecond - vclock::NowNanos());
    cv.wait_until(lock, std::chrono::steady_clock::now() + delta);
}

void ClockDriver::StepTo(uint64_t offset, bool worker, const std::function<void()>& while_paced) {
    if (speed_ > 0) {
        pace_to(offset, while_paced);
    }
    if (!PollInterrupt()) {
        vclock::SetLimit(WallAt(offset) * vclock::kNanosPerSecond - 1);
    }
    const int64_t waiting_since = RealNanos();
    WaitParked(worker);
    lag_ += RealNanos() - waiting_since;
    // A signal during the wait parked the worker early (see the log observer): the run has not
    // reached `offset`, and must not apply its changes.
    PollInterrupt();
}

// Raises the limit with real time, `speed` simulated seconds per real second. Time moves only
// when the worker's wait reaches its deadline, so a slow machine makes the run slower, never
// skips a turn.
void ClockDriver::pace_to(uint64_t offset, const std::function<void()>& while_paced) {
    while (!PollInterrupt()) {
        const double real = static_cast<double>(RealNanos() - real_start_) / 1e9;
        const double paced = speed_ * real;
        if (paced >= static_cast<double>(offset)) {
            return;
        }
        vclock::SetLimit(WallAt(0) * vclock::kNanosPerSecond + static_cast<int64_t>(paced * 1e9));
        while_paced();
        SleepReal(kPaceTick);
    }
}

void ClockDriver::WaitParked(bool worker) {
    if (!worker) {
        return;  // nothing waits
    }
    while (!vclock::WaitUntilParked(kParkPollMs)) {
        PollInterrupt();
    }
}

bool ClockDriver::PollInterrupt() {
    if (signal_ == 0 && interrupt_ != nullptr && interrupt_->load() != 0) {
        signal_ = interrupt_->load();
        vclock::SetLimit(vclock::NowNanos());
    }
    return signal_ != 0;
}

double ClockDriver::RealSeconds() const {
    return static_cast<double>(real_end_ - real_start_) / 1e9;
}

bool ClockDriver::FellBehind() const {
    return speed_ > 0 && real_end_ > real_start_ &&
           static_cast<double>(lag_) > 0.1 * static_cast<double>(real_end_ - real_start_);
}

}  // namespace energysim
