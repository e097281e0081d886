// The virtual clock that tests and the host lend to the plug-in.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <ctime>
#include <mutex>
#include <thread>

#include "VirtualClock.h"

namespace {

constexpr int64_t kStart = 1700000000;  // 2023-11-14 22:13:20 UTC
constexpr int64_t kSec = vclock::kNanosPerSecond;

int64_t Clock(clockid_t id) {
    struct timespec ts;
    clock_gettime(id, &ts);
    return static_cast<int64_t>(ts.tv_sec) * kSec + ts.tv_nsec;
}

// The kernel's wall clock, bypassing every interposition.
int64_t KernelRealtime() {
    struct timespec ts;
    syscall(SYS_clock_gettime, CLOCK_REALTIME, &ts);
    return static_cast<int64_t>(ts.tv_sec) * kSec + ts.tv_nsec;
}

// A thread doing what the metering worker does: timed waits of `period` on its own mutex and
// condition variable, counting them, until told to stop.
class Sleeper {
  public:
    explicit Sleeper(std::chrono::seconds period) : period_(period) {
        thread_ = std::thread([this] {
            std::unique_lock<std::mutex> lock(mutex_);
            while (!stop_) {
                ++turns_;
                if (cond_.wait_for(lock, period_) == std::cv_status::no_timeout) {
                    ++wakeups_;
                }
            }
        });
    }
    ~Sleeper() { Stop(); }
    // Like the meter's Stop: flag and notify without taking the mutex.
    void Stop() {
        if (thread_.joinable()) {
            stop_ = true;
            cond_.notify_one();
            thread_.join();
        }
    }
    // Returns once the thread is inside a wait or finished (it holds the mutex otherwise).
    void Sync() { std::lock_guard<std::mutex> lock(mutex_); }
    int turns() const { return turns_; }
    int wakeups() const { return wakeups_; }

  private:
    std::chrono::seconds period_;
    std::mutex mutex_;
    std::condition_variable cond_;
    std::atomic<bool> stop_{false};
    std::atomic<int> turns_{0};
    std::atomic<int> wakeups_{0};
    std::thread thread_;
};

class VirtualClockTest : public ::testing::Test {
  protected:
    void TearDown() override { vclock::Disable(); }
};

TEST_F(VirtualClockTest, DisabledForwardsToTheRealClock) {
    ASSERT_FALSE(vclock::IsEnabled());
    const int64_t kernel = KernelRealtime();
    EXPECT_NEAR(static_cast<double>(time(nullptr)), static_cast<double>(kernel / kSec), 2.0);
    EXPECT_NEAR(static_cast<double>(Clock(CLOCK_REALTIME)), static_cast<double>(kernel),
                2.0 * kSec);
    struct timeval tv;
    gettimeofday(&tv, nullptr);
    EXPECT_NEAR(static_cast<double>(tv.tv_sec), static_cast<double>(kernel / kSec), 2.0);

    // A real 20 ms wait still takes real time.
    std::mutex m;
    std::condition_variable cv;
    std::unique_lock<std::mutex> lock(m);
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(cv.wait_for(lock, std::chrono::milliseconds(20)), std::cv_status::timeout);
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(20));
    EXPECT_EQ(vclock::VirtualWaitCount(), 0u);
}

TEST_F(VirtualClockTest, BothClocksStartAndStandStillAtSpeedZero) {
    const int64_t mono_before = Clock(CLOCK_MONOTONIC);
    vclock::Enable(kStart);
    EXPECT_EQ(time(nullptr), kStart);
    time_t out = 0;
    EXPECT_EQ(time(&out), kStart);
    EXPECT_EQ(out, kStart);
    EXPECT_EQ(Clock(CLOCK_REALTIME), kStart * kSec);
    EXPECT_EQ(Clock(CLOCK_REALTIME_COARSE), kStart * kSec);
    struct timeval tv;
    gettimeofday(&tv, nullptr);
    EXPECT_EQ(tv.tv_sec, kStart);
    EXPECT_EQ(tv.tv_usec, 0);
    const int64_t mono = Clock(CLOCK_MONOTONIC);
    EXPECT_GE(mono, mono_before);
    EXPECT_EQ(Clock(CLOCK_BOOTTIME), mono);
    // libstdc++'s clocks (another library) see the same virtual time.
    EXPECT_EQ(std::chrono::system_clock::to_time_t(std::chrono::system_clock::now()), kStart);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_EQ(Clock(CLOCK_MONOTONIC), mono);
    EXPECT_EQ(vclock::NowSeconds(), kStart);
    // CPU time is never virtual.
    EXPECT_NE(Clock(CLOCK_PROCESS_CPUTIME_ID), 0);
}

TEST_F(VirtualClockTest, TimedWaitEndsAtOnceAndMovesBothClocksToItsDeadline) {
    vclock::Enable(kStart);
    const int64_t mono = Clock(CLOCK_MONOTONIC);
    std::mutex m;
    std::condition_variable cv;
    std::unique_lock<std::mutex> lock(m);
    const auto real_before = KernelRealtime();
    for (int i = 0; i < 360; ++i) {  // one virtual hour
        ASSERT_EQ(cv.wait_for(lock, std::chrono::seconds(10)), std::cv_status::timeout);
    }
    EXPECT_LT(KernelRealtime() - real_before, 5 * kSec);
    EXPECT_EQ(time(nullptr), kStart + 3600);
    EXPECT_EQ(Clock(CLOCK_MONOTONIC), mono + 3600 * kSec);
    EXPECT_EQ(vclock::VirtualWaitCount(), 360u);
    // A deadline already past returns without moving time back.
    EXPECT_EQ(cv.wait_until(lock, std::chrono::steady_clock::now() - std::chrono::seconds(5)),
              std::cv_status::timeout);
    EXPECT_EQ(time(nullptr), kStart + 3600);
}

TEST_F(VirtualClockTest, ReenablingRestartsWallTimeButMonotonicNeverGoesBack) {
    vclock::Enable(kStart);
    std::mutex m;
    std::condition_variable cv;
    {
        std::unique_lock<std::mutex> lock(m);
        cv.wait_for(lock, std::chrono::seconds(100));
    }
    const int64_t mono = Clock(CLOCK_MONOTONIC);
    vclock::Enable(kStart - 1000);
    EXPECT_EQ(time(nullptr), kStart - 1000);
    EXPECT_GE(Clock(CLOCK_MONOTONIC), mono);
    vclock::Disable();
    EXPECT_NEAR(static_cast<double>(time(nullptr)), static_cast<double>(KernelRealtime() / kSec),
                2.0);
}

TEST_F(VirtualClockTest, LimitParksTheWaitAndRaisingItReleasesExactlyToTheDeadline) {
    vclock::Enable(kStart);
    vclock::SetLimitSeconds(kStart + 40);  // turns at 0, 10, 20, 30, 40; the wait after 40 parks
    Sleeper sleeper(std::chrono::seconds(10));
    ASSERT_TRUE(vclock::WaitUntilParked());
    EXPECT_EQ(sleeper.turns(), 5);
    EXPECT_EQ(vclock::ParkedCount(), 1);
    EXPECT_EQ(time(nullptr), kStart + 40);
    // Raising the limit by less than a period releases nothing.
    vclock::SetLimitSeconds(kStart + 49);
    EXPECT_EQ(vclock::ParkedCount(), 1);
    EXPECT_EQ(sleeper.turns(), 5);
    vclock::SetLimitSeconds(kStart + 50);
    ASSERT_TRUE(vclock::WaitUntilParked());
    EXPECT_EQ(sleeper.turns(), 6);
    EXPECT_EQ(time(nullptr), kStart + 50);
    EXPECT_EQ(sleeper.wakeups(), 0);
    // A real notify ends the parked wait, without advancing virtual time.
    sleeper.Stop();
    EXPECT_EQ(sleeper.wakeups(), 1);
    EXPECT_EQ(time(nullptr), kStart + 50);
    EXPECT_EQ(vclock::ParkedCount(), 0);
}

TEST_F(VirtualClockTest, StopRightAfterParkingIsNeverLost) {
    vclock::Enable(kStart);
    for (int i = 0; i < 200; ++i) {
        vclock::SetLimitSeconds(vclock::NowSeconds());
        Sleeper sleeper(std::chrono::seconds(10));
        ASSERT_TRUE(vclock::WaitUntilParked(5000));
        const auto before = std::chrono::steady_clock::now();
        sleeper.Stop();  // would hang for the hour-long re-park if the notify were lost
        EXPECT_EQ(std::chrono::steady_clock::now(), before);  // virtual time did not move
        ASSERT_EQ(sleeper.turns(), 1);
    }
}

TEST_F(VirtualClockTest, WaitUntilParkedTimesOutWhenNothingParks) {
    vclock::Enable(kStart);
    const int64_t before = KernelRealtime();
    EXPECT_FALSE(vclock::WaitUntilParked(50));
    EXPECT_GE(KernelRealtime() - before, 40 * 1000000);
}

TEST_F(VirtualClockTest, DisableReleasesParkedWaits) {
    vclock::Enable(kStart);
    vclock::SetLimitSeconds(kStart);
    Sleeper sleeper(std::chrono::seconds(10));
    ASSERT_TRUE(vclock::WaitUntilParked());
    vclock::Disable();
    EXPECT_EQ(vclock::ParkedCount(), 0);
    // The released wait ends; the next one is a real 10 s wait, which Stop ends at once.
    while (sleeper.turns() < 2) {
        std::this_thread::yield();
    }
    sleeper.Sync();
    const int64_t before = KernelRealtime();
    sleeper.Stop();
    EXPECT_LT(KernelRealtime() - before, 5 * kSec);
    EXPECT_EQ(sleeper.turns(), 2);
}

TEST_F(VirtualClockTest, SpeedOneFollowsRealTimeAndTheLimitCapsIt) {
    vclock::Enable(kStart);
    vclock::SetSpeed(1.0);
    std::mutex m;
    std::condition_variable cv;
    std::unique_lock<std::mutex> lock(m);
    const int64_t real_before = KernelRealtime();
    EXPECT_EQ(cv.wait_for(lock, std::chrono::milliseconds(30)), std::cv_status::timeout);
    const int64_t real_elapsed = KernelRealtime() - real_before;
    EXPECT_GE(real_elapsed, 25 * 1000000);
    const int64_t virtual_elapsed = vclock::NowNanos() - kStart * kSec;
    EXPECT_GE(virtual_elapsed, 30 * 1000000);
    EXPECT_LT(virtual_elapsed, 2 * kSec);
    // Time flows outside waits too, but stops at the limit.
    vclock::SetLimit(vclock::NowNanos() + 10 * 1000000);
    std::this_thread::sleep_for(std::chrono::milliseconds(40));
    const int64_t capped = vclock::NowNanos();
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(vclock::NowNanos(), capped);
    // Raising the limit lets time flow again from there, without a jump.
    vclock::ClearLimit();
    const int64_t after = vclock::NowNanos();
    EXPECT_GE(after, capped);
    EXPECT_LT(after - capped, 20 * 1000000);
}

}  // namespace
