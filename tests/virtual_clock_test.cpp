// The virtual clock that tests and the host lend to the plug-in.
#include <dlfcn.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "TestSupport.h"

namespace {

constexpr int64_t kStart = 1700000000;  // 2023-11-14 22:13:20 UTC
constexpr int64_t kSec = vclock::kNanosPerSecond;

// A clock as the process sees it, or the kernel's own, bypassing every interposition.
int64_t Clock(clockid_t id) {
    struct timespec ts;
    clock_gettime(id, &ts);
    return static_cast<int64_t>(ts.tv_sec) * kSec + ts.tv_nsec;
}
int64_t Kernel(clockid_t id) {
    return vclock::KernelNanos(id);
}

// Like the metering worker: stamps each turn with time(), then waits 10 s on its own mutex and
// condition variable, until told to stop (flag and notify, without the mutex). The stamps are
// read after Stop.
class Worker {
  public:
    Worker()
        : thread_([this] {
              std::unique_lock<std::mutex> lock(mutex_);
              while (!stop_) {
                  walls_.push_back(time(nullptr));
                  ++turns_;
                  wakeups_ +=
                      cond_.wait_for(lock, std::chrono::seconds(10)) == std::cv_status::no_timeout;
              }
          }) {}
    // A test that failed half-way: release the worker so that it can be joined.
    ~Worker() {
        if (thread_.joinable()) {
            vclock::ClearLimit();
            Stop();
        }
    }
    // Returns once the worker waits after its `turns`-th turn: it holds its mutex everywhere
    // else, so a Stop that follows cannot be lost.
    void WaitUntilWaitingAfter(int turns) {
        while (turns_ < turns) {
            std::this_thread::yield();
        }
        std::lock_guard<std::mutex> lock(mutex_);
    }
    // Call after WaitUntilParked or WaitUntilWaitingAfter, so that the wake-up cannot be lost.
    void Stop() {
        stop_ = true;
        cond_.notify_one();
        thread_.join();
    }
    std::atomic<int> turns_{0}, wakeups_{0};
    std::vector<int64_t> walls_;

  private:
    std::mutex mutex_;
    std::condition_variable cond_;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

using VirtualClockTest = testsupport::SimTest;

TEST_F(VirtualClockTest, DisabledForwardsToTheRealClockEnabledMovesOnlyInWaits) {
    ASSERT_FALSE(vclock::IsEnabled());
    std::mutex m;
    std::condition_variable cv;
    EXPECT_NEAR(static_cast<double>(time(nullptr)), Kernel(CLOCK_REALTIME) / kSec, 2.0);
    struct timeval tv;
    gettimeofday(&tv, nullptr);
    EXPECT_NEAR(static_cast<double>(tv.tv_sec), Kernel(CLOCK_REALTIME) / kSec, 2.0);
    std::unique_lock<std::mutex> lock(m);
    const int64_t before = Kernel(CLOCK_MONOTONIC);
    EXPECT_EQ(cv.wait_for(lock, std::chrono::milliseconds(20)), std::cv_status::timeout);
    EXPECT_GE(Kernel(CLOCK_MONOTONIC) - before, 20 * 1000000);  // a real wait
    EXPECT_EQ(vclock::VirtualWaitCount(), 0u);

    // Enabled: timed waits move both clocks at once, and only they do.
    const int64_t mono_before = Clock(CLOCK_MONOTONIC);
    vclock::Enable(kStart);
    EXPECT_EQ(time(nullptr), kStart);
    EXPECT_EQ(Clock(CLOCK_REALTIME_COARSE), kStart * kSec);
    EXPECT_EQ(std::chrono::system_clock::to_time_t(std::chrono::system_clock::now()), kStart);
    const int64_t mono = Clock(CLOCK_MONOTONIC);
    EXPECT_GE(mono, mono_before);
    EXPECT_EQ(Clock(CLOCK_BOOTTIME), mono);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_EQ(Clock(CLOCK_MONOTONIC), mono);  // speed 0: time moves only in waits
    const int64_t real_before = Kernel(CLOCK_REALTIME);
    for (int i = 0; i < 360; ++i) {
        ASSERT_EQ(cv.wait_for(lock, std::chrono::seconds(10)), std::cv_status::timeout);
    }
    EXPECT_LT(Kernel(CLOCK_REALTIME) - real_before, 5 * kSec);
    EXPECT_EQ(time(nullptr), kStart + 3600);
    EXPECT_EQ(Clock(CLOCK_MONOTONIC), mono + 3600 * kSec);
    EXPECT_EQ(vclock::VirtualWaitCount(), 360u);
    // A deadline already past does not move time back.
    cv.wait_until(lock, std::chrono::steady_clock::now() - std::chrono::seconds(5));
    EXPECT_EQ(time(nullptr), kStart + 3600);
    // Re-enabling restarts wall time; monotonic time never goes back.
    vclock::Enable(kStart - 1000);
    EXPECT_EQ(time(nullptr), kStart - 1000);
    EXPECT_GE(Clock(CLOCK_MONOTONIC), mono + 3600 * kSec);
}

// The clock by its classic names, as a library built with a 32-bit time_t calls it (libstdc++'s
// steady_clock on a 32-bit set): there it fails with EOVERFLOW from 2038 on, like the C
// library's, while this build's time() goes on; where time_t always has 64 bits, the classic
// names are this build's functions.
TEST_F(VirtualClockTest, ClassicEntryPointsPast2038) {
    constexpr int64_t k2038 = int64_t{1} << 31;
    void* classic_time = dlsym(RTLD_DEFAULT, "time");
    void* classic_clock = dlsym(RTLD_DEFAULT, "clock_gettime");
    ASSERT_NE(classic_time, nullptr);
    ASSERT_NE(classic_clock, nullptr);
    vclock::Enable(k2038 - 1);
    EXPECT_EQ(time(nullptr), k2038 - 1);
    if (sizeof(long) == 4) {
        struct Timespec32 {
            int32_t tv_sec, tv_nsec;
        } ts{};
        const auto time32 = reinterpret_cast<int32_t (*)(int32_t*)>(classic_time);
        const auto clock32 = reinterpret_cast<int (*)(clockid_t, Timespec32*)>(classic_clock);
        EXPECT_EQ(time32(nullptr), k2038 - 1);
        vclock::Enable(k2038);
        errno = 0;
        EXPECT_EQ(time32(nullptr), -1);
        EXPECT_EQ(errno, EOVERFLOW);
        EXPECT_EQ(clock32(CLOCK_REALTIME, &ts), -1);
        EXPECT_EQ(clock32(CLOCK_MONOTONIC, &ts), 0);  // the monotonic clock is far from 2038
    } else {
        EXPECT_EQ(classic_time, reinterpret_cast<void*>(&time));
        EXPECT_EQ(classic_clock, reinterpret_cast<void*>(&clock_gettime));
        vclock::Enable(k2038);
    }
    EXPECT_EQ(time(nullptr), k2038);
    EXPECT_EQ(Clock(CLOCK_REALTIME), k2038 * kSec);
}

TEST_F(VirtualClockTest, LimitParksTheWaitAndRaisingItReleasesExactlyToTheDeadline) {
    vclock::Enable(kStart);
    vclock::SetLimitSeconds(kStart + 40);  // turns at 0, 10, 20, 30, 40; the wait after 40 parks
    Worker worker;
    ASSERT_TRUE(vclock::WaitUntilParked());
    EXPECT_EQ(worker.turns_, 5);
    EXPECT_EQ(vclock::ParkedCount(), 1);
    EXPECT_EQ(time(nullptr), kStart + 40);
    vclock::SetLimitSeconds(kStart + 49);  // less than a period releases nothing
    EXPECT_EQ(vclock::ParkedCount(), 1);
    vclock::SetLimitSeconds(kStart + 50);
    ASSERT_TRUE(vclock::WaitUntilParked());
    EXPECT_EQ(worker.turns_, 6);
    EXPECT_EQ(time(nullptr), kStart + 50);
    worker.Stop();  // a real notify ends the parked wait without advancing time
    EXPECT_EQ(worker.wakeups_, 1);
    EXPECT_EQ(time(nullptr), kStart + 50);
    EXPECT_EQ(vclock::ParkedCount(), 0);
    EXPECT_FALSE(vclock::WaitUntilParked(50));
}

TEST_F(VirtualClockTest, StopRightAfterParkingIsNeverLost) {
    vclock::Enable(kStart);
    for (int i = 0; i < 200; ++i) {
        vclock::SetLimitSeconds(vclock::NowSeconds());
        Worker worker;
        ASSERT_TRUE(vclock::WaitUntilParked(5000));
        worker.Stop();  // would hang for a re-park if the notify were lost
        ASSERT_EQ(worker.turns_, 1);
    }
    // Disabling releases a parked wait; the next one is a real wait, which Stop ends at once.
    vclock::SetLimitSeconds(vclock::NowSeconds());
    Worker worker;
    ASSERT_TRUE(vclock::WaitUntilParked());
    vclock::Disable();
    EXPECT_EQ(vclock::ParkedCount(), 0);
    worker.WaitUntilWaitingAfter(2);
    const int64_t before = Kernel(CLOCK_MONOTONIC);
    worker.Stop();
    EXPECT_LT(Kernel(CLOCK_MONOTONIC) - before, 5 * kSec);
}

TEST_F(VirtualClockTest, SpeedOneFollowsRealTimeAndTheLimitCapsIt) {
    vclock::Enable(kStart);
    vclock::SetSpeed(1.0);
    std::mutex m;
    std::condition_variable cv;
    std::unique_lock<std::mutex> lock(m);
    EXPECT_EQ(cv.wait_for(lock, std::chrono::milliseconds(30)), std::cv_status::timeout);
    const int64_t elapsed = vclock::NowNanos() - kStart * kSec;
    EXPECT_GE(elapsed, 30 * 1000000);
    EXPECT_LT(elapsed, 2 * kSec);
    vclock::SetLimit(vclock::NowNanos() + 10 * 1000000);
    std::this_thread::sleep_for(std::chrono::milliseconds(40));
    const int64_t capped = vclock::NowNanos();
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(vclock::NowNanos(), capped);
}

// Wall-clock jumps move the wall clock; the monotonic clock, the limit and the 10-second
// cadence of a worker's timed waits do not.
TEST_F(VirtualClockTest, WallClockJumpsWhileTheCadenceGoesOn) {
    EXPECT_FALSE(vclock::JumpWallClockSeconds(60));  // refused while disabled
    for (int64_t jump : {-2 * 86400, 5 * 60}) {
        SCOPED_TRACE(jump);
        vclock::Enable(kStart);
        vclock::SetLimitSeconds(kStart + 20);
        Worker worker;
        ASSERT_TRUE(vclock::WaitUntilParked());  // turns at +0, +10, +20
        const int64_t monotonic = Clock(CLOCK_MONOTONIC);
        ASSERT_TRUE(vclock::JumpWallClockSeconds(jump));
        const int64_t wall = kStart + 20 + jump;
        EXPECT_EQ(time(nullptr), wall);
        EXPECT_EQ(Clock(CLOCK_REALTIME), wall * kSec);
        EXPECT_EQ(Clock(CLOCK_MONOTONIC), monotonic);
        EXPECT_EQ(vclock::ParkedCount(), 1);

        vclock::SetLimitSeconds(wall + 20);  // read on the jumped clock: two more turns
        ASSERT_TRUE(vclock::WaitUntilParked());
        worker.Stop();
        EXPECT_EQ(worker.walls_,
                  (std::vector<int64_t>{kStart, kStart + 10, kStart + 20, wall + 10, wall + 20}));
    }
    // Never before the epoch.
    vclock::Enable(kStart);
    EXPECT_FALSE(vclock::JumpWallClockSeconds(-kStart - 1));
    EXPECT_EQ(time(nullptr), kStart);
    EXPECT_TRUE(vclock::JumpWallClockSeconds(-kStart));
    EXPECT_EQ(time(nullptr), 0);
}

}  // namespace
