// The plug-in as the framework sees it, loaded with dlopen by the framework host: the service
// it registers, which reports reach the framework for each sequence of protocol status
// reports, how the metering loop survives bad values and failures, and creating, destroying
// and restarting it in every order the framework might use.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "EngineFixture.h"

namespace enginetest {
namespace {

// Real elapsed time, untouched by the virtual clock.
int64_t RealMillis() {
    struct timespec ts;
    syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

const double kWatts = Watts(Row{}, kAna, 1080);

TEST_F(PluginTest, RegistersTheServiceAndAnswersEachCallback) {
    ASSERT_EQ(Create(true), 1);
    ASSERT_TRUE(vclock::WaitUntilParked());
    wexfhost::ServiceInfo info;
    ASSERT_TRUE(wexfhost::FindService(kService, &info));
    EXPECT_EQ(info.description, "energy consumption service plugin");
    EXPECT_NE(info.user_data, nullptr);
    const uint64_t mark = tvsim::LogMark();
    ASSERT_TRUE(wexfhost::FireGetRequest(kService));
    ASSERT_TRUE(wexfhost::FireSetRequest(kService));
    ASSERT_TRUE(wexfhost::FireCancelRequest(kService));
    ASSERT_TRUE(Ready(2));
    ASSERT_TRUE(Status("corvane-x", 1));
    std::vector<std::string> texts;
    for (const auto& line : tvsim::LinesSince(mark)) {
        texts.push_back(line.text.substr(line.text.find(" : ")));
    }
    // Each request callback answers from its own function; every status report is logged.
    ASSERT_EQ(texts.size(), 6u);
    EXPECT_EQ(texts[0].rfind(" : getRequestCallback(", 0), 0u) << texts[0];
    EXPECT_EQ(texts[1].rfind(" : setRequestCallback(", 0), 0u) << texts[1];
    EXPECT_EQ(texts[2].rfind(" : cancelRequestCallback(", 0), 0u) << texts[2];
    EXPECT_EQ(Catalogue(kTag, mark),
              (std::vector<std::string>{"I NOT USED", "I NOT USED", "I NOT USED",
                                        "E protocol name[corvane], protocol status[2]",
                                        "I corvane protocol is ready",
                                        "E protocol name[corvane-x], protocol status[1]"}));
    EXPECT_EQ(wexfhost::NotificationCount(), 0u);
    EXPECT_EQ(Destroy(), 1);
}

// Each row: protocol status reports fired at given seconds, and which of the first three
// uploads (at turns 91, 182, 273) reach the framework. A dropped upload still resets the total.
TEST_F(PluginTest, ProtocolStatusDecidesWhichReportsAreSent) {
    struct Event {
        int64_t at;
        const char* protocol;
        int status;
    };
    const struct {
        std::vector<Event> events;
        std::vector<bool> sent;
    } rows[] = {
        {{}, {false, false, false}},
        {{{0, "corvane", 0}}, {true, true, true}},
        {{{0, "corvane", 2}}, {true, true, true}},
        {{{0, "corvane", 0}, {1000, "corvane", 1}, {2000, "corvane", 2}}, {true, false, true}},
        {{{0, "corvane", 2}, {1000, "corvane", 3}, {2000, "corvane", 0}}, {true, false, true}},
        {{{0, "corvane2", 0}, {0, "Corvane", 2}, {0, "", 0}}, {false, false, false}},
        {{{0, "corvane", 0}, {1000, "other", 1}, {1000, "corvan", 3}}, {true, true, true}},
        {{{1000, "corvane", 0}}, {false, true, true}},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.events.size());
        wexfhost::Reset();
        vclock::Enable(kStart);
        vclock::SetLimitSeconds(kStart);
        const uint64_t mark = tvsim::LogMark();
        ASSERT_EQ(Create(), 1);
        std::vector<std::string> expected;
        for (size_t upload = 0; upload < r.sent.size(); ++upload) {
            for (const Event& e : r.events) {
                if (e.at >= static_cast<int64_t>(upload) * 910 &&
                    e.at < static_cast<int64_t>(upload + 1) * 910) {
                    ASSERT_TRUE(Status(e.protocol, e.status));
                }
            }
            RunTo(900 + 910 * static_cast<int64_t>(upload));
            if (r.sent[upload]) {
                expected.push_back(Report(Sum(91, kWatts), kStart + 910 * upload));
            }
        }
        EXPECT_EQ(Reports(), expected);
        EXPECT_EQ(tvsim::CountLogged(DLOG_INFO, kTag, "[Energy] !!! UPLOAD NOW", mark), 3u);
        EXPECT_EQ(tvsim::CountLogged(DLOG_ERROR, kTag, "Protocol is not READY yet!!", mark),
                  3 - expected.size());
        if (!expected.empty()) {
            EXPECT_TRUE(tvsim::Logged(DLOG_INFO, kTag, "notify " + expected[0], mark));
        }
        EXPECT_EQ(Destroy(), 1);
    }
}

TEST_F(PluginTest, ImplausiblePowerCountsAsZeroButIsStillQueuedAndNegativePowerCounts) {
    row_ = Row{1.0, 0.0, 0.0};  // watts = ANA exactly
    WriteFactors(row_);
    SetRegisters(7921, 1080);  // 22.0028 Wh in one turn: rejected
    ASSERT_EQ(Create(), 1);
    ASSERT_TRUE(Ready());
    ASSERT_TRUE(vclock::WaitUntilParked());
    SetRegisters(7920, 1080);  // exactly 22.0 Wh: accepted
    RunTo(10);
    SetRegisters(-360, 1080);  // -1.0 Wh per turn: accepted
    RunTo(900);
    EXPECT_EQ(
        CountLogged(DLOG_ERROR, kTag,
                    "[Energy] !!!WARNING:: Invalid Instantaneous Power: 22.002778, so makes it 0"),
        1u);
    const auto totals = AccumulatedTexts();
    ASSERT_EQ(totals.size(), 91u);
    EXPECT_EQ(totals[0], "0.000000");
    EXPECT_EQ(totals[1], "22.000000");
    EXPECT_EQ(totals[2], "21.000000");
    EXPECT_TRUE(Logged(DLOG_INFO, kTag, "[Energy] Instantaneous Power: 0.000000"));
    EXPECT_TRUE(
        Logged(DLOG_INFO, kTag, "[Energy] Calculated Power Consumption: 7921.000000 (W/h)"));
    // The rejected first turn still opened the report: its date is the first turn's.
    double sum = TurnEnergy(7920.0);
    for (int turn = 2; turn < 91; ++turn) {
        sum += TurnEnergy(-360.0);
    }
    EXPECT_EQ(Reports(), std::vector<std::string>{Report(sum, kStart)});
    EXPECT_EQ(Destroy(), 1);
}

TEST_F(PluginTest, ACalculatorThatThrowsIsLoggedAndRetriedAfterTheFullWait) {
    tvsim::SetVconf("memory/ave/powerconsumption",
                    std::string("{\"ANA\":\"693\",\"DutySum\":\"300\"}"));
    ASSERT_EQ(Create(), 1);
    ASSERT_TRUE(Ready());
    ASSERT_TRUE(vclock::WaitUntilParked());
    EXPECT_TRUE(Logged(DLOG_ERROR, kTag, "[Energy] !!! An exception: RESOLUTION is not available"));
    EXPECT_TRUE(AccumulatedTexts().empty());
    vclock::SetLimitSeconds(kStart + 9);  // a limit one second short releases nothing
    EXPECT_EQ(vclock::ParkedCount(), 1);
    SetRegisters(kAna, 1080);
    RunTo(10);
    EXPECT_EQ(TurnNumbers(), (std::vector<long>{0, 1}));
    EXPECT_EQ(AccumulatedTexts(), std::vector<std::string>{std::to_string(TurnEnergy(kWatts))});
    RunTo(10 + 900);
    EXPECT_EQ(Reports(), std::vector<std::string>{Report(Sum(91, kWatts), kStart + 10)});
    EXPECT_EQ(Destroy(), 1);
}

TEST_F(PluginTest, AThrowingFrameworkCallIsCaughtAndTheQueueStillResets) {
    for (auto fault : {wexfhost::Fault::kNotifyThrows, wexfhost::Fault::kPropertyThrows}) {
        wexfhost::Reset();
        vclock::Enable(kStart);
        vclock::SetLimitSeconds(kStart);
        wexfhost::SetFault(fault, "framework down");
        const uint64_t mark = tvsim::LogMark();
        ASSERT_EQ(Create(), 1);
        ASSERT_TRUE(Ready());
        RunTo(900);
        EXPECT_TRUE(tvsim::Logged(DLOG_ERROR, kTag, "exception caught = framework down", mark));
        EXPECT_EQ(wexfhost::NotificationCount(), 0u);
        wexfhost::SetFault(wexfhost::Fault::kNone);
        RunTo(1810);
        EXPECT_EQ(Reports(), std::vector<std::string>{Report(Sum(91, kWatts), kStart + 910)});
        EXPECT_EQ(Destroy(), 1);
    }
    EXPECT_EQ(CountPrefix("[Energy] !!! An exception"), 0u);
}

TEST_F(PluginTest, DestroyWithoutCreateOrAfterAFailedCreate) {
    EXPECT_EQ(Destroy(), 1);
    wexfhost::SetFault(wexfhost::Fault::kServiceCreateFails);
    EXPECT_EQ(Create(), 1);
    EXPECT_TRUE(wexfhost::Services().empty());
    EXPECT_EQ(Destroy(), 1);
    EXPECT_EQ(Catalogue(kTag),
              (std::vector<std::string>{
                  "I Energy Consumption Plugin Deinit", "I [Energy] Stop!!!!",
                  "E [Energy] thread has not been created", "E NOT CREATED HANDLE",
                  "I Energy Consumption Plugin Init", "I Fail to create service",
                  "I Energy Consumption Plugin Deinit", "I [Energy] Stop!!!!",
                  "E [Energy] thread has not been created", "E NOT CREATED HANDLE"}));
    EXPECT_TRUE(wexfhost::Events().empty());
}

TEST_F(PluginTest, SecondCreateRegistersAgainButKeepsTheFirstWorker) {
    ASSERT_EQ(Create(), 1);
    ASSERT_EQ(Create(), 1);
    EXPECT_TRUE(Logged(DLOG_ERROR, kTag,
                       "[Energy] thread has already been created! Please Stop PowerMeter first"));
    EXPECT_EQ(wexfhost::Services().size(), 2u);
    RunTo(20);
    EXPECT_EQ(TurnNumbers(), (std::vector<long>{0, 1, 2}));
    EXPECT_EQ(Destroy(), 1);
    // Only the latest handle is destroyed; the first registration is left behind.
    EXPECT_EQ(wexfhost::Services().size(), 1u);
    EXPECT_EQ(vclock::ParkedCount(), 0);
}

TEST_F(PluginTest, RestartKeepsCountingTurnsAndTheReadyFlagButRestartsTheTotal) {
    ASSERT_EQ(Create(), 1);
    ASSERT_TRUE(Ready());
    RunTo(20);
    ASSERT_EQ(Destroy(), 1);
    ASSERT_EQ(Create(true), 1);
    ASSERT_TRUE(vclock::WaitUntilParked());
    EXPECT_EQ(TurnNumbers(), (std::vector<long>{0, 1, 2, 3}));
    EXPECT_EQ(AccumulatedTexts().back(), std::to_string(TurnEnergy(kWatts)));
    RunTo(20 + 900);
    EXPECT_EQ(Reports(), std::vector<std::string>{Report(Sum(91, kWatts), kStart + 20)});
    EXPECT_EQ(Destroy(), 1);
}

TEST_F(PluginTest, CalculatorThatCannotInitialiseLeavesAServiceThatNeverNotifies) {
    ASSERT_EQ(std::remove(shared_.File("energy_factors.dat").c_str()), 0);
    tvsim::SetPanelType(std::string("PT55OTHER9"));  // no row, even for a calculator loaded before
    ASSERT_EQ(Create(), 1);
    EXPECT_TRUE(Logged(DLOG_ERROR, kTag, "[Energy] failed to init the calculator"));
    EXPECT_TRUE(wexfhost::FindService(kService, nullptr));
    ASSERT_TRUE(Ready());
    vclock::ClearLimit();
    EXPECT_FALSE(vclock::WaitUntilParked(200));  // no worker ever waits
    EXPECT_TRUE(TurnNumbers().empty());
    EXPECT_EQ(Destroy(), 1);
    EXPECT_TRUE(Logged(DLOG_ERROR, kTag, "[Energy] thread has not been created"));
    EXPECT_FALSE(wexfhost::FindService(kService, nullptr));
}

TEST_F(PluginTest, DestroyStopsTheMeterBeforeItDestroysTheService) {
    wexfhost::SetEventObserver([&](const wexfhost::Event& event) {
        dlog_print(DLOG_INFO, kTag, "event %d", static_cast<int>(event.kind));
    });
    ASSERT_EQ(Create(), 1);
    RunTo(30);
    const uint64_t mark = tvsim::LogMark();
    const int64_t before = RealMillis();
    ASSERT_EQ(Destroy(), 1);
    EXPECT_LT(RealMillis() - before, 500);  // woken from its wait, not timed out
    EXPECT_EQ(vclock::NowSeconds(), kStart + 30);
    std::vector<std::string> lines = Catalogue(kTag, mark);
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[2].rfind("I [Energy] elaspsed time to terminate PowerMeter thread ", 0), 0u);
    lines.erase(lines.begin() + 2);
    EXPECT_EQ(lines, (std::vector<std::string>{"I Energy Consumption Plugin Deinit",
                                               "I [Energy] Stop!!!!", "I event 1"}));
    EXPECT_FALSE(wexfhost::FindService(kService, nullptr));
    EXPECT_EQ(vclock::ParkedCount(), 0);
    EXPECT_EQ(TurnNumbers().size(), 4u);
}

// A stop that arrives while a turn runs finds nobody waiting: its wake-up is lost and the
// worker notices only when its next wait has run its full 10 seconds.
TEST_F(PluginTest, StopDuringATurnWaitsForTheFullWait) {
    std::mutex m;
    std::condition_variable cv;
    bool in_turn = false, stopping = false, release = false;
    int headers = 0;
    tvsim::SetLogObserver([&](const tvsim::LogLine& line) {
        const std::string message = line.Message();
        std::unique_lock<std::mutex> lock(m);
        const bool header = message.rfind("=====", 0) == 0 &&
                            message.find_first_of("0123456789") != std::string::npos;
        if (header && ++headers == 2) {  // turn 1
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
    std::this_thread::sleep_for(std::chrono::milliseconds(100));  // Stop notifies meanwhile
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

}  // namespace
}  // namespace enginetest
