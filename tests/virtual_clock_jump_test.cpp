// Wall-clock jumps of the virtual clock: the wall clock moves, the monotonic clock and the
// 10-second cadence of a worker's timed waits do not.
#include <gtest/gtest.h>
#include <time.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "VirtualClock.h"

namespace {

constexpr int64_t kStart = 1700000000;  // 2023-11-14 22:13:20 UTC
constexpr int64_t kSec = vclock::kNanosPerSecond;

int64_t Clock(clockid_t id) {
    struct timespec ts;
    clock_gettime(id, &ts);
    return static_cast<int64_t>(ts.tv_sec) * kSec + ts.tv_nsec;
}

// Like the metering worker: stamps each turn with time() and the monotonic clock, then waits
// 10 s, until stopped.
class Worker {
  public:
    Worker() {
        thread_ = std::thread([this] {
            std::unique_lock<std::mutex> lock(mutex_);
            while (!stop_) {
                walls_.push_back(time(nullptr));
                monotonic_.push_back(Clock(CLOCK_MONOTONIC));
                cond_.wait_for(lock, std::chrono::seconds(10));
            }
        });
    }
    // A test that failed half-way: release the worker so that it can be joined.
    ~Worker() {
        if (thread_.joinable()) {
            vclock::ClearLimit();
            Stop();
        }
    }
    // Call after WaitUntilParked, so that the wake-up cannot be lost.
    void Stop() {
        stop_ = true;
        cond_.notify_one();
        thread_.join();
    }
    std::vector<int64_t> walls_;
    std::vector<int64_t> monotonic_;

  private:
    std::mutex mutex_;
    std::condition_variable cond_;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

class VirtualClockJumpTest : public ::testing::Test {
  protected:
    void TearDown() override { vclock::Disable(); }
};

TEST_F(VirtualClockJumpTest, WallClockJumpsWhileTheCadenceGoesOn) {
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
        EXPECT_EQ(vclock::ParkedCount(), 1);  // the limit did not move with the wall clock

        vclock::SetLimitSeconds(wall + 20);  // read on the jumped clock: two more turns
        ASSERT_TRUE(vclock::WaitUntilParked());
        worker.Stop();
        EXPECT_EQ(worker.walls_,
                  (std::vector<int64_t>{kStart, kStart + 10, kStart + 20, wall + 10, wall + 20}));
        for (size_t i = 1; i < worker.monotonic_.size(); ++i) {
            EXPECT_EQ(worker.monotonic_[i] - worker.monotonic_[i - 1], 10 * kSec);
        }
    }
}

TEST_F(VirtualClockJumpTest, RefusedWhileDisabledOrBeforeTheEpoch) {
    EXPECT_FALSE(vclock::JumpWallClockSeconds(60));
    vclock::Enable(kStart);
    EXPECT_FALSE(vclock::JumpWallClockSeconds(-kStart - 1));
    EXPECT_EQ(time(nullptr), kStart);
    EXPECT_TRUE(vclock::JumpWallClockSeconds(-kStart));
    EXPECT_EQ(time(nullptr), 0);
}

}  // namespace
