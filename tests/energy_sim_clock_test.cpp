// energy-sim's wall-clock jumps and its daily block report mode: the `clock` command's parse,
// the 10-second cadence across jumps, and block-mode reports that add up over restarts.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <variant>

#include "Error.h"
#include "Scenario.h"
#include "SharedJson.h"
#include "SimProcess.h"
#include "TestSupport.h"

namespace {

using energysim::ParseScenario;
using simtest::Result;
using simtest::RunSim;
using testsupport::TempDir;

TEST(EnergySimClockParseTest, ClockTakesOneSignedDuration) {
    struct Row {
        const char* line;
        long long seconds;  // 0: refused
        const char* label;
    };
    const Row rows[] = {
        {"0 clock -2d", -172800, "clock -2d"},
        {"0 clock +5m", 300, "clock +5m"},
        {"0 clock +90m", 5400, "clock +1h30m"},
        {"0 clock -01:00:01", -3601, "clock -1h1s"},
        {"0 clock 5m", 0, ""},  // no sign: reads like a time, so refused
        {"0 clock", 0, ""},
        {"0 clock +", 0, ""},
        {"0 clock -0", 0, ""},
        {"0 clock +5x", 0, ""},
        {"0 clock +5m +1m", 0, ""},
        {"0 clock +-5m", 0, ""},
    };
    for (const Row& row : rows) {
        if (row.seconds == 0) {
            EXPECT_THROW(ParseScenario(row.line, "s.txt"), energysim::SimError) << row.line;
            continue;
        }
        const auto scenario = ParseScenario(row.line, "s.txt");
        const auto& command = scenario.entries.at(0).command;
        ASSERT_TRUE(std::holds_alternative<energysim::command::Clock>(command)) << row.line;
        EXPECT_EQ(std::get<energysim::command::Clock>(command).seconds, row.seconds) << row.line;
        EXPECT_EQ(energysim::Describe(command), row.label);
    }
}

// A backward and a forward jump: one turn every 10 s of the run whatever the wall clock says.
// The running total reports at the first turn after each jump, stamped on the jumped clock.
TEST(EnergySimClockTest, JumpsKeepTheTenSecondCadence) {
    TempDir dir;
    testsupport::WriteText(dir.File("c.txt"), "0 power on\n1h clock -2d\n2h clock +2d\n");
    Result r = RunSim({"--scenario", dir.File("c.txt"), "--duration", "3h", "--log-level", "none"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.err.find("turns            1080\n"), std::string::npos) << r.err;
    EXPECT_NE(r.out.find("\"epoch\":1767402000,"), std::string::npos) << r.out;  // 01-03 01:00
    EXPECT_NE(r.out.find("\"epoch\":1767578400,"), std::string::npos) << r.out;  // 01-05 02:00
}

// Block mode over a night with a restart: one daily report of 24 hourly blocks, each hour
// once, whose energy the summary reads from the blocks.
TEST(EnergySimBlocksTest, DailyReportHoldsEachHourOnce) {
    Result r = RunSim({"--queue", "blocks", "--scenario", simtest::Data("scenarios/week.txt"),
                       "--duration", "1d1h", "--log-level", "none"});
    ASSERT_EQ(r.status, 0) << r.err;
    ASSERT_EQ(simtest::Lines(r.out), 1) << r.out;
    const auto line = common::json::JsonValue::Create(r.out.substr(0, r.out.find('\n')));
    const auto report = common::json::JsonValue::Create(line["json"].asString());
    const auto& blocks = report["dailyPowerConsumption"];
    ASSERT_EQ(blocks.size(), 24u);
    double wh = 0.0;
    for (unsigned i = 0; i < blocks.size(); ++i) {
        EXPECT_EQ(blocks[i]["start"].asDouble(), 1767571200.0 + 3600.0 * i) << i;
        EXPECT_EQ(blocks[i]["end"].asDouble(), 1767571200.0 + 3600.0 * (i + 1)) << i;
        wh += blocks[i]["deltaEnergy"].asDouble();
    }
    char sent[64];
    std::snprintf(sent, sizeof sent, "reports          1 sent (%.6f Wh)", wh);
    EXPECT_NE(r.err.find(sent), std::string::npos) << r.err;
}

TEST(EnergySimBlocksTest, UnknownQueueIsRefused) {
    Result r = RunSim({"--queue", "daily", "--duration", "1m"});
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find("--queue"), std::string::npos) << r.err;
}

}  // namespace
