// The plug-in as the framework sees it, loaded with dlopen by the framework host on a simulated
// TV with a small factor data set and the virtual clock, so that hours of metering run at once:
// which reports reach the framework for each sequence of protocol status reports, how the
// metering loop survives bad values and failures, creating, destroying, restarting and
// unloading it in every order the framework might use, and the daily block report build.
#include <gtest/gtest.h>
#include <malloc.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "PowerLogTestSupport.h"
#include "SharedJson.h"
#include "TestSupport.h"

namespace {

constexpr int64_t kStart = 1700000000;  // 2023-11-14 22:13:20 UTC
constexpr int64_t kTurn = 10;           // seconds between turns
constexpr char kTag[] = "ENERGY_SERVICE";
constexpr char kService[] = "energy-consumption";
constexpr char kModel[] = "VXTEST55";
constexpr char kPanel[] = "PT55TEST01";
constexpr int kNotReady = WEXF_PROTOCOL_STATUS_DISCONNECTED;
constexpr int kNoStatus = -1;

// 139.3 W at the default ANA of 693: its turn energy depends on the order of W * 10 / 3600 in
// the last bit, so exact comparisons catch a reordered conversion.
constexpr int kAna = 693;
constexpr double kWatts = kAna * 0.1 + 20.0 + 50.0;

// Energy of one 10-second turn, in Wh.
double TurnEnergy(double watts) {
    return watts * 10.0 / 3600.0;
}

// Sum of `turns` turns at `watts`, added turn by turn as the meter does.
double Sum(int turns, double watts) {
    double sum = 0.0;
    for (int turn = 0; turn < turns; ++turn) {
        sum += TurnEnergy(watts);
    }
    return sum;
}

// The running-total report for this sum and first time stamp.
std::string Report(double sum_wh, int64_t first_time) {
    return "{\"cumulativePower\":\"" + std::to_string(sum_wh) +
           "\",\"cumulativeUnit\":\"Wh\",\"cumulativeDateUTC\":\"" + std::to_string(first_time) +
           "\"}";
}

// Real elapsed time, untouched by the virtual clock.
int64_t RealMillis() {
    return vclock::KernelNanos(CLOCK_MONOTONIC) / 1000000;
}

class PluginTest : public testsupport::SimTest {
  protected:
    void SetUp() override {
        tvsim::SetAppPath(tvsim::AppPath::kData, data_.path());
        tvsim::SetAppPath(tvsim::AppPath::kSharedResource, shared_.path());
        tvsim::SetModelName(std::string(kModel));
        tvsim::SetPanelType(std::string(kPanel));
        tvsim::SetSpeakerSelection(1);  // an external output: no speaker term
        WriteFactors(0.1, 20.0, 50.0);
        SetAna(kAna);
        Load(EC_PLUGIN_PATH);
    }
    // A test that stopped half-way leaves the worker parked; the host calls DestroyPlugin
    // before it unloads a plug-in that is still created.
    void TearDown() override {
        vclock::ClearLimit();
        plugin_.reset();
    }

    // Loads the plug-in on a fresh host with the clock at the start: the first turn runs, then
    // the worker parks.
    void Load(const char* path) {
        wexfhost::Reset();
        vclock::Enable(start_);
        vclock::SetLimitSeconds(start_);
        std::string error;
        plugin_ = wexfhost::Plugin::Load(path, &error);
        ASSERT_NE(plugin_, nullptr) << error;
    }

    // A type-4 backlight row: at 1080 lines with the speaker off and the set on,
    // watts = ANA * compensate + cell + main.
    void WriteFactors(double compensate, double cell, double main) {
        char line[512];
        // ID, 6 text columns, OD_MIN..COMPENSATE_CONSTANT (TYPE 4), CELL, MAIN, MAIN_LPM, SPEAKER.
        std::snprintf(line, sizeof line,
                      "7,2024,%s,%s,55,%s,LED,100,200,3,3,0,10,4,%.17g,%.17g,%.17g,1,11\n", kModel,
                      kModel, kPanel, compensate, cell, main);
        testsupport::WriteText(shared_.File("energy_factors.dat"),
                               std::string("TEST-SET 1\n") + "8,2024,OTHER,OTHER,55," + kPanel +
                                   ",LED,1,2,3,4,5,6,4,1,1,1,1,1\n" + line);
    }
    void SetAna(int ana) {
        tvsim::SetVconf("memory/ave/powerconsumption",
                        "{\"ANA\":\"" + std::to_string(ana) +
                            "\",\"DutySum\":\"300\",\"RESOLUTION\":\"1080\"}");
    }

    // Lets the worker run the turn due `seconds` after the start and park right after it.
    void RunTo(int64_t seconds) {
        vclock::SetLimitSeconds(start_ + seconds);
        ASSERT_TRUE(vclock::WaitUntilParked());
    }

    // Both entry points report success whatever happens. The ready flag outlives a Destroy, so
    // Create then reports `status` for the protocol (not ready unless told; none if negative).
    void Create(int status = kNotReady) {
        EXPECT_EQ(plugin_->Create(), 1);
        if (status >= 0) {
            Status("corvane", status);
        }
    }
    void Destroy() { EXPECT_EQ(plugin_->Destroy(), 1); }
    bool Status(const std::string& protocol, int status) {
        return wexfhost::FireProtocolStatus(kService, protocol,
                                            static_cast<wexf_protocol_status_e>(status));
    }

    std::vector<std::string> Reports() const {
        std::vector<std::string> out;
        for (const auto& n : wexfhost::Notifications()) {
            EXPECT_EQ(n.service, kService);
            EXPECT_EQ(n.property, "dailyPowerConsumption");
            out.push_back(n.json);
        }
        return out;
    }
    // The first capture group of each message of this test that matches `pattern`.
    std::vector<std::string> Captured(const char* pattern) const {
        const std::regex re(pattern);
        std::vector<std::string> out;
        for (const std::string& message : Messages(kTag)) {
            std::smatch m;
            if (std::regex_match(message, m, re)) {
                out.push_back(m[1].str());
            }
        }
        return out;
    }
    // The counter printed in each turn's header line, relative to the first one of the test
    // (the counter runs on over the whole process).
    std::vector<long> TurnNumbers() const {
        const std::vector<std::string> numbers = Captured("^=+(-?[0-9]+)=+$");
        std::vector<long> out;
        for (const std::string& number : numbers) {
            out.push_back(std::stol(number) - std::stol(numbers[0]));
        }
        return out;
    }
    // The accumulated energy printed at the end of each successful turn.
    std::vector<std::string> Totals() const {
        return Captured("^\\[Energy\\] Accumulated Power: (\\S+) from  UTC: .*$");
    }

    int64_t start_ = kStart;  // the wall clock at Load
    testsupport::TempDir data_;
    testsupport::TempDir shared_;
    std::unique_ptr<wexfhost::Plugin> plugin_;
};

TEST_F(PluginTest, RegistersTheServiceAndAnswersEachCallback) {
    Create(kNoStatus);
    ASSERT_TRUE(vclock::WaitUntilParked());
    wexfhost::ServiceInfo info;
    ASSERT_TRUE(wexfhost::FindService(kService, &info));
    EXPECT_EQ(info.description, "energy consumption service plugin");
    EXPECT_NE(info.user_data, nullptr);
    const uint64_t mark = tvsim::LogMark();
    ASSERT_TRUE(wexfhost::FireGetRequest(kService) && wexfhost::FireSetRequest(kService) &&
                wexfhost::FireCancelRequest(kService));
    ASSERT_TRUE(Status("corvane", 2) && Status("corvane-x", 1));
    // Each request callback answers from its own function; every status report is logged.
    const auto lines = tvsim::LinesSince(mark);
    const char* callbacks[] = {" : getRequestCallback(", " : setRequestCallback(",
                               " : cancelRequestCallback("};
    for (size_t i = 0; i < 3 && i < lines.size(); ++i) {
        EXPECT_NE(lines[i].text.find(callbacks[i]), std::string::npos) << lines[i].text;
    }
    EXPECT_EQ(Catalogue(kTag, mark),
              (std::vector<std::string>{"I NOT USED", "I NOT USED", "I NOT USED",
                                        "E protocol name[corvane], protocol status[2]",
                                        "I corvane protocol is ready",
                                        "E protocol name[corvane-x], protocol status[1]"}));
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
        Load(EC_PLUGIN_PATH);
        const uint64_t mark = tvsim::LogMark();
        Create();
        std::vector<std::string> expected;
        for (int64_t upload = 0; upload < 3; ++upload) {
            for (const Event& e : r.events) {
                if (e.at >= upload * 910 && e.at < (upload + 1) * 910) {
                    ASSERT_TRUE(Status(e.protocol, e.status));
                }
            }
            RunTo(900 + 910 * upload);
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
        Destroy();
    }
}

TEST_F(PluginTest, ImplausiblePowerCountsAsZeroButIsStillQueuedAndNegativePowerCounts) {
    WriteFactors(1.0, 0.0, 0.0);  // watts = ANA exactly
    SetAna(7921);                 // 22.0028 Wh in one turn: rejected
    Create(0);
    ASSERT_TRUE(vclock::WaitUntilParked());
    SetAna(7920);  // exactly 22.0 Wh: accepted
    RunTo(10);
    SetAna(-360);  // -1.0 Wh per turn: accepted
    RunTo(900);
    EXPECT_EQ(
        CountLogged(DLOG_ERROR, kTag,
                    "[Energy] !!!WARNING:: Invalid Instantaneous Power: 22.002778, so makes it 0"),
        1u);
    EXPECT_TRUE(Logged(DLOG_INFO, kTag, "[Energy] Instantaneous Power: 0.000000"));
    EXPECT_TRUE(
        Logged(DLOG_INFO, kTag, "[Energy] Calculated Power Consumption: 7921.000000 (W/h)"));
    const auto totals = Totals();
    ASSERT_EQ(totals.size(), 91u);
    EXPECT_EQ(std::vector<std::string>(totals.begin(), totals.begin() + 3),
              (std::vector<std::string>{"0.000000", "22.000000", "21.000000"}));
    // 22 Wh, then 89 turns of -1 Wh. The rejected first turn still opened the report: its date
    // is the first turn's.
    EXPECT_EQ(Reports(), std::vector<std::string>{Report(22.0 - 89.0, kStart)});
}

TEST_F(PluginTest, ACalculatorThatThrowsIsLoggedAndRetriedAfterTheFullWait) {
    tvsim::SetVconf("memory/ave/powerconsumption",
                    std::string("{\"ANA\":\"693\",\"DutySum\":\"300\"}"));
    Create(0);
    ASSERT_TRUE(vclock::WaitUntilParked());
    EXPECT_TRUE(Logged(DLOG_ERROR, kTag, "[Energy] !!! An exception: RESOLUTION is not available"));
    EXPECT_TRUE(Totals().empty());
    vclock::SetLimitSeconds(kStart + 9);  // a limit one second short releases nothing
    EXPECT_EQ(vclock::ParkedCount(), 1);
    SetAna(kAna);
    RunTo(10);
    EXPECT_EQ(TurnNumbers(), (std::vector<long>{0, 1}));
    EXPECT_EQ(Totals(), std::vector<std::string>{std::to_string(TurnEnergy(kWatts))});
    RunTo(10 + 900);
    EXPECT_EQ(Reports(), std::vector<std::string>{Report(Sum(91, kWatts), kStart + 10)});
}

// The exception is caught where the framework is called: the meter still resets its total.
TEST_F(PluginTest, AThrowingFrameworkCallIsCaughtAndTheQueueStillResets) {
    for (auto fault : {wexfhost::Fault::kNotifyThrows, wexfhost::Fault::kPropertyThrows}) {
        Load(EC_PLUGIN_PATH);
        wexfhost::SetFault(fault, "framework down");
        const uint64_t mark = tvsim::LogMark();
        Create(0);
        RunTo(900);
        EXPECT_TRUE(tvsim::Logged(DLOG_ERROR, kTag, "exception caught = framework down", mark));
        wexfhost::SetFault(wexfhost::Fault::kNone);
        RunTo(1810);
        EXPECT_EQ(Reports(), std::vector<std::string>{Report(Sum(91, kWatts), kStart + 910)});
        Destroy();
    }
}

TEST_F(PluginTest, DestroyWithoutCreateOrAfterAFailedCreate) {
    Destroy();
    wexfhost::SetFault(wexfhost::Fault::kServiceCreateFails);
    Create();
    Destroy();
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
    Create();
    Create();
    EXPECT_TRUE(Logged(DLOG_ERROR, kTag,
                       "[Energy] thread has already been created! Please Stop PowerMeter first"));
    EXPECT_EQ(wexfhost::Services().size(), 2u);
    RunTo(20);
    EXPECT_EQ(TurnNumbers(), (std::vector<long>{0, 1, 2}));
    Destroy();
    // Only the latest handle is destroyed; the first registration is left behind.
    EXPECT_EQ(wexfhost::Services().size(), 1u);
    EXPECT_EQ(vclock::ParkedCount(), 0);
}

TEST_F(PluginTest, RestartKeepsCountingTurnsAndTheReadyFlagButRestartsTheTotal) {
    Create(0);
    RunTo(20);
    Destroy();
    Create(kNoStatus);
    ASSERT_TRUE(vclock::WaitUntilParked());
    EXPECT_EQ(TurnNumbers(), (std::vector<long>{0, 1, 2, 3}));
    EXPECT_EQ(Totals().back(), std::to_string(TurnEnergy(kWatts)));
    RunTo(20 + 900);
    EXPECT_EQ(Reports(), std::vector<std::string>{Report(Sum(91, kWatts), kStart + 20)});
}

TEST_F(PluginTest, CalculatorThatCannotInitialiseLeavesAServiceThatNeverNotifies) {
    ASSERT_EQ(std::remove(shared_.File("energy_factors.dat").c_str()), 0);
    tvsim::SetPanelType(std::string("PT55OTHER9"));  // no row, even for a calculator loaded before
    Create(0);
    EXPECT_TRUE(Logged(DLOG_ERROR, kTag, "[Energy] failed to init the calculator"));
    EXPECT_TRUE(wexfhost::FindService(kService, nullptr));
    vclock::ClearLimit();
    EXPECT_FALSE(vclock::WaitUntilParked(200));  // no worker ever waits
    EXPECT_TRUE(TurnNumbers().empty());
    Destroy();
    EXPECT_TRUE(Logged(DLOG_ERROR, kTag, "[Energy] thread has not been created"));
    EXPECT_FALSE(wexfhost::FindService(kService, nullptr));
}

TEST_F(PluginTest, DestroyStopsTheMeterBeforeItDestroysTheService) {
    wexfhost::SetEventObserver([&](const wexfhost::Event& event) {
        dlog_print(DLOG_INFO, kTag, "event %d", static_cast<int>(event.kind));
    });
    Create();
    RunTo(30);
    const uint64_t mark = tvsim::LogMark();
    const int64_t before = RealMillis();
    Destroy();
    EXPECT_LT(RealMillis() - before, 500);  // woken from its wait, not timed out
    EXPECT_EQ(vclock::NowSeconds(), kStart + 30);
    std::vector<std::string> lines = Catalogue(kTag, mark);
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[2].rfind("I [Energy] elaspsed time to terminate PowerMeter thread ", 0), 0u);
    lines.erase(lines.begin() + 2);
    EXPECT_EQ(lines, (std::vector<std::string>{"I Energy Consumption Plugin Deinit",
                                               "I [Energy] Stop!!!!", "I event 1"}));
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
        if (message.rfind("=====", 0) == 0 &&
            message.find_first_of("0123456789") != std::string::npos && ++headers == 2) {
            in_turn = true;  // turn 1 blocks in its first log line
            cv.notify_all();
            cv.wait(lock, [&] { return release; });
        } else if (message == "[Energy] Stop!!!!") {
            stopping = true;
            cv.notify_all();
        }
    });
    const auto await = [&](const bool& flag) {
        std::unique_lock<std::mutex> lock(m);
        cv.wait(lock, [&] { return flag; });
    };
    Create();
    ASSERT_TRUE(vclock::WaitUntilParked());
    vclock::SetLimitSeconds(kStart + 10);  // lets turn 1 start
    await(in_turn);
    std::atomic<bool> destroyed{false};
    std::thread destroyer([&] {
        Destroy();
        destroyed = true;
    });
    await(stopping);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));  // Stop notifies meanwhile
    {
        std::lock_guard<std::mutex> lock(m);
        release = true;
    }
    cv.notify_all();
    // The turn ends and the worker waits although it has been told to stop.
    ASSERT_TRUE(vclock::WaitUntilParked());
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(destroyed);
    vclock::SetLimitSeconds(kStart + 20);
    destroyer.join();
    tvsim::SetLogObserver(nullptr);
    EXPECT_TRUE(destroyed);
    EXPECT_EQ(vclock::NowSeconds(), kStart + 20);
    EXPECT_EQ(TurnNumbers(), (std::vector<long>{0, 1}));
}

// Creating and destroying the plug-in over and over while the framework reports protocol
// status changes from another thread. Run under the tsan preset to check the locking.
TEST_F(PluginTest, ThousandCreateDestroyCyclesWhileStatusReportsArrive) {
    tvsim::SetLogRetention(1000);
    std::atomic<long> uploads{0};
    tvsim::SetLogObserver([&](const tvsim::LogLine& line) {
        uploads += line.Message() == "[Energy] !!! UPLOAD NOW" ? 1 : 0;
    });
    vclock::ClearLimit();  // the worker runs its turns as fast as it can
    std::atomic<bool> done{false};
    std::atomic<long> reports{0};
    std::thread reporter([&] {
        for (int i = 0; !done.load(); ++i) {
            reports += Status("corvane", i % 4) ? 1 : 0;
            Status("other", 1);
            std::this_thread::yield();
        }
    });
    constexpr int kCycles = 1000;
    for (int i = 0; i < kCycles; ++i) {
        // Every 25th worker runs 101 turns, so that it uploads while status reports arrive.
        const bool long_run = i % 25 == 0;
        if (long_run) {
            vclock::SetLimitSeconds(vclock::NowSeconds() + 1000);
        }
        Create(kNoStatus);
        if (long_run) {
            ASSERT_TRUE(vclock::WaitUntilParked());
        }
        Destroy();
        if (long_run) {
            vclock::ClearLimit();
        }
    }
    done = true;
    reporter.join();
    tvsim::SetLogObserver(nullptr);
    // Each service is destroyed before the next one is created.
    size_t created = 0, destroyed = 0;
    for (const auto& event : wexfhost::Events()) {
        created += event.kind == wexfhost::Event::Kind::kServiceCreated ? 1 : 0;
        destroyed += event.kind == wexfhost::Event::Kind::kServiceDestroyed ? 1 : 0;
        ASSERT_TRUE(destroyed == created || destroyed + 1 == created) << created;
    }
    EXPECT_EQ(created, static_cast<size_t>(kCycles));
    EXPECT_EQ(destroyed, static_cast<size_t>(kCycles));
    EXPECT_EQ(vclock::ParkedCount(), 0);
    EXPECT_GT(reports.load(), 0);
    EXPECT_GE(uploads.load(), kCycles / 25);
}

// A long run as energy-sim makes it: the host keeps no history, observers still see every
// report, and the heap stays flat.
TEST_F(PluginTest, FiftyThousandTurnsWithoutHistoryKeepTheHeapFlat) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers' allocators do not keep mallinfo2";
#endif
    tvsim::SetLogRetention(64);
    wexfhost::SetHistoryKept(false);
    std::atomic<size_t> seen{0};
    wexfhost::SetNotificationObserver([&](const wexfhost::Notification&) { ++seen; });
    Create(0);
    RunTo(9999 * kTurn);
    const size_t after_10k = mallinfo2().uordblks;
    for (int64_t turns = 20000; turns <= 50000; turns += 10000) {
        RunTo((turns - 1) * kTurn);  // in steps, so that a loaded machine stays within the wait
    }
    const size_t after_50k = mallinfo2().uordblks;
    std::printf("heap in use after 10,000 turns: %zu bytes, after 50,000: %zu bytes\n", after_10k,
                after_50k);
    EXPECT_LE(after_50k, after_10k + 4096);
    EXPECT_EQ(seen.load(), 50000u / 91);
    EXPECT_EQ(wexfhost::NotificationCount(), 0u);
    EXPECT_TRUE(wexfhost::Events().empty());
}

// The host unloads a created plug-in only after DestroyPlugin, and calls it once.
TEST_F(PluginTest, UnloadingCallsDestroyPluginOnceWhenItIsDue) {
    const struct {
        bool create, destroy;
        size_t deinits;  // DestroyPlugin calls seen, once the plug-in is unloaded
    } rows[] = {{false, false, 0}, {true, false, 1}, {true, true, 1}};
    for (const auto& r : rows) {
        Load(EC_PLUGIN_PATH);
        const uint64_t mark = tvsim::LogMark();
        if (r.create) {
            Create();
            RunTo(0);  // a stop mid-turn is only seen after the next 10 s wait
        }
        if (r.destroy) {
            Destroy();
        }
        plugin_.reset();
        EXPECT_EQ(tvsim::CountLogged(DLOG_INFO, kTag, "Energy Consumption Plugin Deinit", mark),
                  r.deinits);
        EXPECT_TRUE(wexfhost::Services().empty());
    }
}

// The daily block report build, with the block log's defaults: 15-minute writes, one-hour
// blocks, a report a day.
TEST_F(PluginTest, BlockModeWritesTheQuarterHourAndReportsNothingEarly) {
    Load(EC_BLOCKS_PLUGIN_PATH);
    Create(0);
    EXPECT_TRUE(Logged(DLOG_INFO, kTag,
                       "[Energy] option: write after 900 sec, block size: 60 min, notify it after "
                       "1440 min (every 24 hour)"));
    RunTo(900);  // the running total would have reported here
    EXPECT_TRUE(Reports().empty());
    EXPECT_EQ(testsupport::ReadBytes(data_.File("energy_log.dat")),
              powerlogtest::LogImage({{kStart, kStart + 900, Sum(90, kWatts)}}));
}

// With the option file's 10 s writes, 30 s blocks and a 60 s report, the sixth turn's log
// spans 60 s: one report of two blocks, then the log starts over.
TEST_F(PluginTest, BlockModeReportsTheBlocksAndRestartsFromTheFile) {
    powerlogtest::WriteOptions(data_.path(), "10 30 60");
    Load(EC_BLOCKS_PLUGIN_PATH);
    Create(0);
    RunTo(50);
    const std::vector<std::string> reports = Reports();
    ASSERT_EQ(reports.size(), 1u);
    const auto report = common::json::JsonValue::Create(reports[0]);
    const auto& blocks = report["dailyPowerConsumption"];
    ASSERT_EQ(blocks.size(), 2u);
    for (unsigned i = 0; i < 2; ++i) {
        EXPECT_EQ(int64_t{blocks[i]["start"].asUInt()}, kStart + 30 * i) << i;
        EXPECT_EQ(int64_t{blocks[i]["end"].asUInt()}, kStart + 30 * i + 30) << i;
        EXPECT_EQ(blocks[i]["deltaEnergy"].asDouble(), Sum(3, kWatts)) << i;
    }
    EXPECT_FALSE(testsupport::Exists(data_.File("energy_log.dat")));
    RunTo(60);
    EXPECT_EQ(testsupport::ReadBytes(data_.File("energy_log.dat")),
              powerlogtest::LogImage({{kStart + 60, kStart + 70, Sum(1, kWatts)}}));
    // A restart reads the log back from the file: the first turn, at the same second as the last
    // one before it, and the next go on in the same block.
    Destroy();
    Create(0);
    RunTo(70);
    EXPECT_EQ(testsupport::ReadBytes(data_.File("energy_log.dat")),
              powerlogtest::LogImage({{kStart + 60, kStart + 80, Sum(3, kWatts)}}));
}

// Time stamps are 32-bit seconds: right across 2038-01-19T03:14:08Z, where a 32-bit time_t
// ends, and wrapping to 1970 after 2106-02-07T06:28:15Z, on every architecture. The running
// total reports every 910 s, across the wrap too; the block log writes its first quarter hour.
TEST_F(PluginTest, TimeStampsAcross2038AndThe32BitWrap) {
    constexpr int64_t kWrap = int64_t{1} << 32;
    const struct {
        int64_t edge;
        const char* turn_at_edge;
    } rows[] = {{int64_t{1} << 31, "[Energy] UTC: 2038-1-19 3:14:8"},
                {kWrap, "[Energy] UTC: 1970-1-1 0:0:0"}};
    for (const auto& r : rows) {
        SCOPED_TRACE(r.turn_at_edge);
        start_ = r.edge - 450;
        const uint64_t mark = tvsim::LogMark();
        Load(EC_PLUGIN_PATH);
        Create(0);
        RunTo(900);
        RunTo(1810);
        EXPECT_EQ(Reports(),
                  (std::vector<std::string>{Report(Sum(91, kWatts), start_ % kWrap),
                                            Report(Sum(91, kWatts), (start_ + 910) % kWrap)}));
        EXPECT_TRUE(tvsim::Logged(DLOG_INFO, kTag, r.turn_at_edge, mark));
        Destroy();

        std::remove(data_.File("energy_log.dat").c_str());
        Load(EC_BLOCKS_PLUGIN_PATH);
        Create(0);
        RunTo(900);
        EXPECT_EQ(testsupport::ReadBytes(data_.File("energy_log.dat")),
                  powerlogtest::LogImage({{static_cast<uint32_t>(start_),
                                           static_cast<uint32_t>(start_ + 900), Sum(90, kWatts)}}));
        // The block log prints a stamp with %ld: from 2038 on it reads negative where long has
        // 32 bits (a 32-bit set), and as the stamp where long has 64.
        const int64_t stamp = start_ % kWrap;
        const int64_t printed = sizeof(long) == 4 && stamp >= kWrap / 2 ? stamp - kWrap : stamp;
        const auto starts = Captured("^\\[Energy\\] start time: (-?[0-9]+), end time: .*$");
        ASSERT_FALSE(starts.empty());
        EXPECT_EQ(starts.back(), std::to_string(printed));
        Destroy();
        EXPECT_EQ(tvsim::CountLogged(DLOG_ERROR, kTag,
                                     "[Energy] failed to get time by time function", mark),
                  0u);
    }
}

}  // namespace
