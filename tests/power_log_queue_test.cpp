// The block log: options, merging of write intervals into blocks, upload timing, the daily
// report and the log lines.
#include "PowerLogQueue.h"

#include "PowerLogTestSupport.h"
#include "TestSupport.h"

using powerlogtest::Block;
using powerlogtest::LogImage;
using powerlogtest::WriteOptions;
using testsupport::SimTest;
using testsupport::TempDir;

namespace {

constexpr const char kEnergy[] = "ENERGY_SERVICE";
constexpr const char kHeader[] =
    "=================================== PRINT QUEUE ====================================";
constexpr const char kRule[] =
    "====================================================================================";
constexpr uint32_t kT0 = 1609459200u;  // 2021-01-01 00:00:00 UTC

class PowerLogQueueTest : public SimTest {
  protected:
    void SetUp() override {
        SimTest::SetUp();
        tvsim::SetAppPath(tvsim::AppPath::kData, dir.path());
    }
    std::string OptionPath() const { return dir.File("test_option/energy_option.txt"); }
    std::string LogPath() const { return dir.File("energy_log.dat"); }
    static std::string OptionLine(long write_left, long block_min, long notify_left_min,
                                  long hours) {
        return "[Energy] option: write after " + std::to_string(write_left) +
               " sec, block size: " + std::to_string(block_min) + " min, notify it after " +
               std::to_string(notify_left_min) + " min (every " + std::to_string(hours) + " hour)";
    }
    TempDir dir;
};

// ---- options ----

TEST_F(PowerLogQueueTest, DefaultsWithoutOptionFile) {
    powermeter::PowerLogQueue queue;
    queue.Init();
    EXPECT_EQ(Messages(kEnergy), (std::vector<std::string>{
                                     "[Energy] There is no " + OptionPath() +
                                         " file to be able to change energy options",
                                     "Read logs from the data file",
                                     "There is no saved file",
                                     OptionLine(900, 60, 1440, 24),
                                     kHeader,
                                     kRule,
                                 }));
    EXPECT_TRUE(Logged(DLOG_INFO, kEnergy, OptionLine(900, 60, 1440, 24)));
    EXPECT_FALSE(queue.IsUploadRequired());
    EXPECT_EQ(queue.GetJson(), "{\"dailyPowerConsumption\":null}");
}

TEST_F(PowerLogQueueTest, ValidOptionFileChangesAllThreeAndMaxItems) {
    WriteOptions(dir.path(), "60 900 3600\n");
    // max_items = 3600 / 900 + 1 = 5: five stored blocks load, six reset the log.
    std::vector<Block> blocks;
    for (uint32_t i = 0; i < 6; ++i) {
        blocks.push_back({kT0 + 900 * i, kT0 + 900 * i + 60, 0.25});
    }
    testsupport::WriteBytes(LogPath(), LogImage(5, blocks));
    {
        powermeter::PowerLogQueue queue;
        queue.Init();
        EXPECT_TRUE(Logged(DLOG_ERROR, kEnergy,
                           "[Energy] !!!WARNING!!! There is " + OptionPath() +
                               " file to be able to change energy options"));
        EXPECT_TRUE(Logged(DLOG_ERROR, kEnergy,
                           "[Energy] !!!WARNING!!! energy options has been changed 60, 900, 3600"));
        // Five blocks span 3660 s: past the 3600 s notify interval, so the minutes wrap.
        EXPECT_TRUE(Logged(DLOG_INFO, kEnergy, OptionLine(60, 15, 71582787, 1)));
        EXPECT_TRUE(Logged(DLOG_INFO, kEnergy, "There are 5 items"));
        EXPECT_TRUE(queue.IsUploadRequired());
    }
    testsupport::WriteBytes(LogPath(), LogImage(6, blocks));
    powermeter::PowerLogQueue queue;
    queue.Init();
    EXPECT_TRUE(
        Logged(DLOG_ERROR, kEnergy, "Invalid number of Items in the file, so try to reset"));
    EXPECT_FALSE(testsupport::Exists(LogPath()));
}

TEST_F(PowerLogQueueTest, OptionFileIsTakenOnlyWhenAllThreeAreInRange) {
    const std::string defaults = "900, 3600, 86400";
    const std::string default_line = OptionLine(900, 60, 1440, 24);
    struct Case {
        std::string text;
        std::string changed;
        std::string option_line;
    };
    const std::vector<Case> cases = {
        // Accepted, bounds included; whitespace of any kind separates, the rest is ignored.
        {"900 3600 86400", defaults, default_line},
        {"1 1 1", "1, 1, 1", OptionLine(1, 0, 0, 0)},
        {"  30\n\t120\n7200 trailing text", "30, 120, 7200", OptionLine(30, 2, 120, 2)},
        // Refused: the options stay, the warning still says "changed".
        {"60 900", defaults, default_line},
        {"0 900 3600", defaults, default_line},
        {"60 900 0", defaults, default_line},
        {"-60 900 3600", defaults, default_line},
        {"60 -900 3600", defaults, default_line},
        {"sixty 900 3600", defaults, default_line},
        {"", defaults, default_line},
        {"901 900 3600", defaults, default_line},
        {"60 3601 3600", defaults, default_line},
        {"60 900 86401", defaults, default_line},
        {"99999999999999999999999 1 1", defaults, default_line},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE("option file: '" + c.text + "'");
        WriteOptions(dir.path(), c.text);
        const uint64_t mark = tvsim::LogMark();
        powermeter::PowerLogQueue queue;
        queue.Init();
        EXPECT_TRUE(tvsim::Logged(DLOG_ERROR, kEnergy,
                                  "[Energy] !!!WARNING!!! There is " + OptionPath() +
                                      " file to be able to change energy options",
                                  mark));
        EXPECT_TRUE(tvsim::Logged(
            DLOG_ERROR, kEnergy,
            "[Energy] !!!WARNING!!! energy options has been changed " + c.changed, mark));
        EXPECT_TRUE(tvsim::Logged(DLOG_INFO, kEnergy, c.option_line, mark));
        // An empty log is never due, whatever the options.
        EXPECT_FALSE(queue.IsUploadRequired());
    }
}

// ---- blocks, upload timing and the report ----

TEST_F(PowerLogQueueTest, IntervalsMergeIntoBlocksOfBlockSize) {
    WriteOptions(dir.path(), "10 30 3600");
    powermeter::PowerLogQueue queue;
    powermeter::IPowerLogQueue& log = queue;
    log.Init();
    log.Add(kT0, 0.5, 10);
    log.Add(kT0 + 10, 0.25, 10);
    log.Add(kT0 + 20, 0.25, 10);
    // Starts exactly block_size after the block's start: a new block.
    log.Add(kT0 + 30, 1.5, 10);
    // Starts 29 s after: merged, and the block now runs 39 s, past its 30 s size.
    log.Add(kT0 + 59, 2.0, 10);
    EXPECT_EQ(log.GetJson(),
              "{\"dailyPowerConsumption\":["
              "{\"start\":1609459200,\"end\":1609459230,\"deltaEnergy\":1.0,\"power\":0,"
              "\"energySaved\":0},"
              "{\"start\":1609459230,\"end\":1609459269,\"deltaEnergy\":3.5,\"power\":0,"
              "\"energySaved\":0}]}");

    const uint64_t mark = tvsim::LogMark();
    log.Print();
    std::vector<std::string> lines;
    for (const auto& line : tvsim::LinesSince(mark)) {
        lines.push_back(line.Message());
    }
    EXPECT_EQ(lines, (std::vector<std::string>{
                         OptionLine(10, 0, 58, 1),
                         kHeader,
                         "[Energy] start time: 1609459200, end time: 1609459230, duration: 30 "
                         "sec, power: 1.000000",
                         "[Energy] start time: 1609459230, end time: 1609459269, duration: 39 "
                         "sec, power: 3.500000",
                         kRule,
                     }));
}

TEST_F(PowerLogQueueTest, WriteIntervalCountsTheDurationAndStaysOpenUntilFull) {
    WriteOptions(dir.path(), "30 600 3600");
    powermeter::PowerLogQueue queue;
    queue.Init();
    queue.Add(kT0, 1.0, 10);
    queue.Add(kT0 + 10, 1.0, 10);
    // 20 s collected: nothing written yet, 10 s left in the open interval.
    EXPECT_FALSE(testsupport::Exists(LogPath()));
    EXPECT_EQ(queue.GetJson(), "{\"dailyPowerConsumption\":null}");
    const uint64_t mark = tvsim::LogMark();
    queue.Print();
    EXPECT_TRUE(tvsim::Logged(DLOG_INFO, kEnergy, OptionLine(10, 10, 60, 1), mark));
    queue.Add(kT0 + 20, 1.0, 10);
    EXPECT_EQ(testsupport::ReadBytes(LogPath()), LogImage({{kT0, kT0 + 30, 3.0}}));

    // Reset drops the blocks but not the open interval.
    queue.Add(kT0 + 30, 0.5, 10);
    queue.Reset();
    EXPECT_FALSE(testsupport::Exists(LogPath()));
    queue.Add(kT0 + 40, 0.5, 10);
    queue.Add(kT0 + 50, 0.5, 10);
    EXPECT_EQ(testsupport::ReadBytes(LogPath()), LogImage({{kT0 + 30, kT0 + 60, 1.5}}));
}

TEST_F(PowerLogQueueTest, UploadIsDueWhenBlocksSpanTheNotifyInterval) {
    WriteOptions(dir.path(), "60 900 3600");
    powermeter::PowerLogQueue queue;
    powermeter::IPowerLogQueue& log = queue;
    log.Init();
    EXPECT_FALSE(log.IsUploadRequired());
    // 10-second intervals, as the metering loop hands them over: 59 minutes stay below.
    uint32_t t = kT0;
    for (; t < kT0 + 3540; t += 10) {
        log.Add(t, 0.01, 10);
        ASSERT_FALSE(log.IsUploadRequired()) << t - kT0;
    }
    for (; t < kT0 + 3590; t += 10) {
        log.Add(t, 0.01, 10);
    }
    EXPECT_FALSE(log.IsUploadRequired());
    log.Add(t, 0.01, 10);  // closes the write interval ending at kT0 + 3600
    EXPECT_TRUE(log.IsUploadRequired());
    const std::string json = log.GetJson();
    EXPECT_EQ(
        json.rfind("{\"dailyPowerConsumption\":[{\"start\":1609459200,\"end\":1609460100,", 0), 0u)
        << json;
    EXPECT_NE(json.find("{\"start\":1609461900,\"end\":1609462800,"), std::string::npos) << json;
    log.Reset();
    EXPECT_FALSE(log.IsUploadRequired());
    EXPECT_EQ(log.GetJson(), "{\"dailyPowerConsumption\":null}");
    EXPECT_FALSE(testsupport::Exists(LogPath()));
}

}  // namespace
