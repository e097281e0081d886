// The daily block report build of the plug-in (libenergy-consumption-blocks.so): the same
// plug-in loaded through the framework host, with the block log behind the engine's queue.
#include "EngineFixture.h"
#include "PowerLogTestSupport.h"
#include "SharedJson.h"

namespace enginetest {
namespace {

using powerlogtest::Block;

class BlockModePluginTest : public PluginTest {
  protected:
    void SetUp() override {
        PluginTest::SetUp();
        std::string error;
        plugin_ = wexfhost::Plugin::Load(EC_BLOCKS_PLUGIN_PATH, &error);
        ASSERT_NE(plugin_, nullptr) << error;
    }
    // Sum of `turns` turn energies, added in the order the log adds them.
    double Energy(int turns) const {
        double sum = 0.0;
        for (int i = 0; i < turns; ++i) {
            sum += TurnEnergy(Watts(row_, kAna, 1080));
        }
        return sum;
    }
    std::string LogPath() const { return data_.File("energy_log.dat"); }
    // Lets the worker run `n` turns from the start and park.
    void RunTurns(int64_t n) { RunTo((n - 1) * kTurn); }
};

// The block log's defaults: a 15-minute write interval, one-hour blocks, a report per day.
TEST_F(BlockModePluginTest, DefaultOptionsWriteTheQuarterHourAndReportNothingEarly) {
    ASSERT_EQ(Create(), 1);
    ASSERT_TRUE(Ready());
    EXPECT_TRUE(Logged(DLOG_INFO, kTag,
                       "[Energy] option: write after 900 sec, block size: 60 min, notify it after "
                       "1440 min (every 24 hour)"));
    RunTurns(91);  // the running total would have reported here
    EXPECT_TRUE(Reports().empty());
    EXPECT_EQ(testsupport::ReadBytes(LogPath()),
              powerlogtest::LogImage({{kStart, kStart + 900, Energy(90)}}));
    EXPECT_EQ(Destroy(), 1);
}

// With the option file's 10 s writes, 30 s blocks and a 60 s report, the sixth turn's log
// spans 60 s: one report of two blocks, then the log starts over.
TEST_F(BlockModePluginTest, ReportsTheBlocksThroughTheFramework) {
    powerlogtest::WriteOptions(data_.path(), "10 30 60");
    ASSERT_EQ(Create(), 1);
    ASSERT_TRUE(Ready());
    RunTurns(6);
    const std::vector<std::string> reports = Reports();
    ASSERT_EQ(reports.size(), 1u);
    const auto report = common::json::JsonValue::Create(reports[0]);
    const auto& blocks = report["dailyPowerConsumption"];
    ASSERT_EQ(blocks.size(), 2u);
    for (unsigned i = 0; i < 2; ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(int64_t{blocks[i]["start"].asUInt()}, kStart + 30 * i);
        EXPECT_EQ(int64_t{blocks[i]["end"].asUInt()}, kStart + 30 * i + 30);
        EXPECT_EQ(blocks[i]["deltaEnergy"].asDouble(), Energy(3));
    }
    EXPECT_FALSE(testsupport::Exists(LogPath()));
    RunTurns(7);
    EXPECT_EQ(testsupport::ReadBytes(LogPath()),
              powerlogtest::LogImage({{kStart + 60, kStart + 70, Energy(1)}}));
    EXPECT_EQ(Destroy(), 1);
}

}  // namespace
}  // namespace enginetest
