// Creating and destroying the plug-in in every order the framework might use.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <ctime>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "EngineFixture.h"

namespace enginetest {
namespace {

using Kind = wexfhost::Event::Kind;

// Real elapsed time, untouched by the virtual clock.
int64_t RealMillis() {
    struct timespec ts;
    syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

class PluginLifecycleTest : public PluginTest {};

TEST_F(PluginLifecycleTest, DestroyWithoutCreateStopsNothingAndFindsNoHandle) {
    EXPECT_EQ(Destroy(), 1);
    EXPECT_TRUE(Logged(DLOG_INFO, kTag, "Energy Consumption Plugin Deinit"));
    EXPECT_TRUE(Logged(DLOG_INFO, kTag, "[Energy] Stop!!!!"));
    EXPECT_TRUE(Logged(DLOG_ERROR, kTag, "[Energy] thread has not been created"));
    EXPECT_TRUE(Logged(DLOG_ERROR, kTag, "NOT CREATED HANDLE"));
    EXPECT_TRUE(wexfhost::Events().empty());
}

TEST_F(PluginLifecycleTest, FailedServiceCreationStartsNoMeterAndStillReturnsOne) {
    wexfhost::SetFault(wexfhost::Fault::kServiceCreateFails);
    EXPECT_EQ(Create(), 1);
    EXPECT_TRUE(Logged(DLOG_INFO, kTag, "Fail to create service"));
    EXPECT_FALSE(Logged(DLOG_ERROR, kTag, "Fail to create service"));
    EXPECT_FALSE(Logged(DLOG_INFO, kTag, "[Energy] Start!!!!"));
    EXPECT_TRUE(wexfhost::Services().empty());
    EXPECT_EQ(Destroy(), 1);
    EXPECT_TRUE(Logged(DLOG_ERROR, kTag, "[Energy] thread has not been created"));
    EXPECT_TRUE(Logged(DLOG_ERROR, kTag, "NOT CREATED HANDLE"));
}

TEST_F(PluginLifecycleTest, SecondCreateRegistersAgainButKeepsTheFirstWorker) {
    ASSERT_EQ(Create(), 1);
    ASSERT_EQ(Create(), 1);
    EXPECT_TRUE(Logged(DLOG_ERROR, kTag,
                       "[Energy] thread has already been created! Please Stop PowerMeter first"));
    EXPECT_EQ(CountLogged(DLOG_INFO, kTag, "[Energy] Start!!!!"), 2u);
    EXPECT_EQ(wexfhost::Services().size(), 2u);
    RunTo(20);
    EXPECT_EQ(TurnNumbers(), (std::vector<long>{0, 1, 2}));
    EXPECT_EQ(Destroy(), 1);
    // Only the latest handle is destroyed; the first registration is left behind.
    EXPECT_EQ(wexfhost::Services().size(), 1u);
    EXPECT_EQ(vclock::ParkedCount(), 0);
}

TEST_F(PluginLifecycleTest, CalculatorThatCannotInitialiseLeavesAServiceThatNeverNotifies) {
    ASSERT_EQ(std::remove(shared_.File("energy_factors.dat").c_str()), 0);
    ASSERT_EQ(Create(), 1);
    EXPECT_TRUE(Logged(DLOG_ERROR, kTag, "[Energy] failed to init the calculator"));
    EXPECT_TRUE(wexfhost::FindService(kService, nullptr));
    ASSERT_TRUE(Ready());
    vclock::ClearLimit();
    EXPECT_FALSE(vclock::WaitUntilParked(200));  // no worker ever waits
    EXPECT_TRUE(TurnNumbers().empty());
    EXPECT_EQ(wexfhost::NotificationCount(), 0u);
    EXPECT_EQ(Destroy(), 1);
    EXPECT_TRUE(Logged(DLOG_ERROR, kTag, "[Energy] thread has not been created"));
    EXPECT_FALSE(wexfhost::FindService(kService, nullptr));
}

TEST_F(PluginLifecycleTest, RestartKeepsCountingTurnsAndTheReadyFlagButRestartsTheTotal) {
    ASSERT_EQ(Create(), 1);
    ASSERT_TRUE(Ready());
    RunTo(20);
    const double energy = TurnEnergy(Watts(row_, kAna, 1080));
    ASSERT_EQ(Destroy(), 1);
    ASSERT_EQ(Create(), 1);
    ASSERT_TRUE(vclock::WaitUntilParked());
    // The new worker's first turn is number 3 and its total holds that one turn only.
    EXPECT_EQ(TurnNumbers(), (std::vector<long>{0, 1, 2, 3}));
    EXPECT_EQ(AccumulatedTexts().back(), std::to_string(energy));
    EXPECT_EQ(wexfhost::Events().size(), 3u);

    // Destroy does not clear the ready flag: the restarted meter reports without a new status.
    RunTo(20 + 900);
    double sum = 0.0;
    for (int turn = 0; turn < 91; ++turn) {
        sum += energy;
    }
    EXPECT_EQ(Reports(), std::vector<std::string>{Report(sum, kStart + 20)});
    EXPECT_EQ(Destroy(), 1);
}

TEST_F(PluginLifecycleTest, StopDuringTheWaitReturnsWithinMilliseconds) {
    ASSERT_EQ(Create(), 1);
    ASSERT_TRUE(vclock::WaitUntilParked());
    const int64_t before = RealMillis();
    EXPECT_EQ(Destroy(), 1);
    EXPECT_LT(RealMillis() - before, 500);
    // Woken, not timed out: no virtual time passed.
    EXPECT_EQ(vclock::NowSeconds(), kStart);
}

// A stop that arrives while a turn runs finds nobody waiting: its wake-up is lost and the
// worker notices only when its next wait has run its full 10 seconds.
TEST_F(PluginLifecycleTest, StopDuringATurnWaitsForTheFullWait) {
    std::mutex m;
    std::condition_variable cv;
    bool in_turn = false, stopping = false, release = false;
    tvsim::SetLogObserver([&](const tvsim::LogLine& line) {
        const std::string message = line.Message();
        std::unique_lock<std::mutex> lock(m);
        if (message.find("=1=") != std::string::npos && message.rfind("=====", 0) == 0) {
            in_turn = true;
            cv.notify_all();
            cv.wait(lock, [&] { return release; });
        } else if (message == "[Energy] Stop!!!!") {
            stopping = true;
            cv.notify_all();
        }
    });
    ASSERT_EQ(Create(), 1);
    ASSERT_TRUE(vclock::WaitUntilParked());
    vclock::SetLimitSeconds(kStart + 10);  // lets turn 1 start; it blocks in its first log line
    {
        std::unique_lock<std::mutex> lock(m);
        cv.wait(lock, [&] { return in_turn; });
    }
    bool destroyed = false;
    std::thread destroyer([&] {
        Destroy();
        std::lock_guard<std::mutex> lock(m);
        destroyed = true;
    });
    {
        std::unique_lock<std::mutex> lock(m);
        cv.wait(lock, [&] { return stopping; });
    }
    // Stop clears the flag and notifies right after its first log line.
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    {
        std::lock_guard<std::mutex> lock(m);
        release = true;
    }
    cv.notify_all();
    // The turn ends and the worker waits although it has been told to stop.
    ASSERT_TRUE(vclock::WaitUntilParked());
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    {
        std::lock_guard<std::mutex> lock(m);
        EXPECT_FALSE(destroyed);
    }
    vclock::SetLimitSeconds(kStart + 20);
    destroyer.join();
    tvsim::SetLogObserver(nullptr);
    EXPECT_TRUE(destroyed);
    EXPECT_EQ(vclock::NowSeconds(), kStart + 20);
    EXPECT_EQ(TurnNumbers(), (std::vector<long>{0, 1}));
}

// Nobody controls the clock here: the library runs on the real one.
TEST_F(PluginLifecycleTest, OnTheRealClockAStopDuringTheWaitIsPromptToo) {
    vclock::Disable();
    std::mutex m;
    std::condition_variable cv;
    bool turn_done = false;
    tvsim::SetLogObserver([&](const tvsim::LogLine& line) {
        if (line.Message().rfind("[Energy]      From Time: ", 0) == 0) {
            std::lock_guard<std::mutex> lock(m);
            turn_done = true;
            cv.notify_all();
        }
    });
    const std::time_t now = std::time(nullptr);
    ASSERT_EQ(Create(), 1);
    {
        std::unique_lock<std::mutex> lock(m);
        ASSERT_TRUE(cv.wait_for(lock, std::chrono::seconds(5), [&] { return turn_done; }));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(200));  // into the 10 s wait
    const int64_t before = RealMillis();
    EXPECT_EQ(Destroy(), 1);
    EXPECT_LT(RealMillis() - before, 2000);
    tvsim::SetLogObserver(nullptr);
    EXPECT_EQ(TurnNumbers(), std::vector<long>{0});
    std::tm utc{};
    gmtime_r(&now, &utc);
    const std::string year = "UTC: " + std::to_string(utc.tm_year + 1900) + "-";
    bool stamped = false;
    for (const std::string& message : Messages(kTag)) {
        stamped = stamped || (message.rfind("[Energy] Accumulated Power: ", 0) == 0 &&
                              message.find(year) != std::string::npos);
    }
    EXPECT_TRUE(stamped) << "expected a real date with " << year;
}

}  // namespace
}  // namespace enginetest
