// energy-sim under hostile input, failing outputs, signals and every speed; its plot on a long
// run; and the parsers behind those checks.
#include <dirent.h>
#include <gtest/gtest.h>

#include <csignal>
#include <string>

#include "LogTexts.h"
#include "Options.h"
#include "Recorder.h"
#include "Scenario.h"
#include "SimProcess.h"
#include "TestSupport.h"

namespace {

using simtest::Lines;
using simtest::Result;
using simtest::RunSim;
using simtest::SimCall;
using testsupport::TempDir;

bool IsEmptyDir(const std::string& path) {
    DIR* d = opendir(path.c_str());
    int entries = 0;
    while (dirent* e = d != nullptr ? readdir(d) : nullptr) {
        entries += std::string(e->d_name) != "." && std::string(e->d_name) != "..";
    }
    if (d != nullptr) {
        closedir(d);
    }
    return d != nullptr && entries == 0;
}

// ---- parsers ----

TEST(EnergySimParseTest, StartTimesAreRealDates) {
    struct Row {
        const char* text;
        bool ok;
    } rows[] = {
        {"2026-01-05T00:00:00Z", true},  {"2024-02-29T23:59:59Z", true},
        {"2026-02-31T00:00:00Z", false}, {"2026-01-05T99:99:99Z", false},
        {"2025-02-29T00:00:00Z", false}, {"2026-01-05T00:00:60Z", false},
        {"2026-1-5T00:00:00Z", false},   {"2026-01-05T00:00:00Zjunk", false},
        {"1969-12-31T23:59:59Z", false},
    };
    for (const Row& r : rows) {
        int64_t epoch = 0;
        EXPECT_EQ(energysim::ParseStart(r.text, &epoch), r.ok) << r.text;
    }
}

TEST(EnergySimParseTest, DurationsStopBeforeOverflow) {
    uint64_t s = 0;
    EXPECT_TRUE(energysim::ParseDuration("999999999s", &s));
    EXPECT_EQ(s, 999999999u);
    for (const char* bad :
         {"999999999d999999999d999999999d", "999999999999999999:00", "11574075d"}) {
        EXPECT_FALSE(energysim::ParseDuration(bad, &s)) << bad;
    }
}

TEST(EnergySimParseTest, QuotedTextIsPrintableAndShort) {
    EXPECT_EQ(energysim::Quote("dance"), "'dance'");
    EXPECT_EQ(energysim::Quote(std::string("a\0\x1b\xff", 4)), "'a\\x00\\x1b\\xff'");
    EXPECT_EQ(energysim::Quote(std::string(100, 'x')), "'" + std::string(40, 'x') + "...'");
}

// ---- the recorder's accounting, from the plug-in's own log texts ----

TEST(EnergySimRecorderTest, SentComesFromTheReportsAndTheRestFromTheTurns) {
    namespace text = powermeter::logtext;
    uint64_t now = 100;
    int turns_seen = 0, reports_seen = 0;
    energysim::Recorder rec([&] { return now; }, [&](const energysim::Turn&) { ++turns_seen; },
                            [&](uint64_t, bool) { ++reports_seen; });
    auto turn = [&](const char* state, const char* wh) {
        rec.OnLog("ENERGY_SERVICE", std::string(text::kTurnRule) + "7=====");
        rec.OnLog("ENERGY_SERVICE", std::string(text::kPowerStatus) + state);
        rec.OnLog("ENERGY_SERVICE", std::string(text::kCalculatedPower) + "100.0 (W/h)");
        rec.OnLog("ENERGY_SERVICE", std::string(text::kInstantaneousPower) + wh);
        now += 10;
    };
    turn("NORMAL", "0.250000");
    turn("NORMAL", "0.250000");
    rec.OnLog("ENERGY_SERVICE", text::kUploadNow);
    // The report says what was sent, whatever the turn lines' rounding.
    rec.OnNotification("dailyPowerConsumption", R"({"cumulativePower":"0.500001"})");
    turn("PICTURE_OFF", "0.100000");
    rec.OnLog("ENERGY_SERVICE", text::kUploadNow);
    rec.OnLog("ENERGY_SERVICE", text::kProtocolNotReady);
    turn("PICTURE_OFF", "0.125000");
    rec.OnLog("ENERGY_SERVICE", std::string(text::kTurnRule) + "9=====");
    rec.OnLog("ENERGY_SERVICE", std::string(text::kTurnFailed) + "no registers");
    rec.OnLog("OTHER_TAG", std::string(text::kInstantaneousPower) + "5.0");
    rec.Finish();

    const energysim::Totals t = rec.Snapshot();
    EXPECT_EQ(t.turns, 5u);
    EXPECT_EQ(turns_seen, 5);
    EXPECT_EQ(reports_seen, 2);
    EXPECT_EQ(t.sent, 1u);
    EXPECT_DOUBLE_EQ(t.sent_wh, 0.500001);
    EXPECT_EQ(t.dropped, 1u);
    EXPECT_DOUBLE_EQ(t.dropped_wh, 0.1);
    EXPECT_DOUBLE_EQ(t.pending_wh, 0.125);
    EXPECT_EQ(t.by_state.at("NORMAL").turns, 2u);
    EXPECT_EQ(t.by_state.at("PICTURE_OFF").turns, 2u);
    EXPECT_EQ(t.by_state.at("no estimate").turns, 1u);
}

// ---- bad input: one line, exit status 2, before the run ----

TEST(EnergySimInputTest, EachBadInputIsOneLine) {
    TempDir dir;
    testsupport::WriteText(dir.File("junk.txt"), "0 \x01\x02\xfe" + std::string(200, 'z') + "\n");
    testsupport::WriteText(dir.File("long.txt"), "0 note " + std::string(70000, 'n') + "\n");
    testsupport::WriteText(dir.File("far.txt"), "999999999d999999999d power on\n");
    struct Row {
        std::vector<std::string> args;
        std::string expected;  // the whole message after "energy-sim: "
    } rows[] = {
        {{"--scenario", dir.path()}, "cannot read scenario " + dir.path() + ": not a regular file"},
        {{"--scenario", dir.File("far.txt")},
         dir.File("far.txt") + ":1: bad time '999999999d999999999d' (use e.g. 90s, 15m, 3h, 1h30m, "
                               "2d or HH:MM[:SS])"},
        {{"--scenario", dir.File("junk.txt")},
         dir.File("junk.txt") + ":1: unknown command '\\x01\\x02\\xfe" + std::string(37, 'z') +
             "...'"},
        {{"--scenario", dir.File("long.txt")},
         dir.File("long.txt") + ":1: line longer than 65536 bytes"},
        {{"--start", "2026-02-31T99:99:99Z"},
         "bad --start '2026-02-31T99:99:99Z' (use YYYY-MM-DDTHH:MM:SSZ)"},
        {{"--plot", dir.File("no/such/dir.svg")},
         "cannot write plot " + dir.File("no/such/dir.svg") + ": No such file or directory"},
        {{"--log", dir.File("no/such/dir.log")},
         "cannot write log file " + dir.File("no/such/dir.log") + ": No such file or directory"},
    };
    for (const Row& row : rows) {
        std::vector<std::string> args = row.args;
        args.insert(args.end(), {"--duration", "366d", "--log-level", "none"});
        Result r = RunSim(args);
        EXPECT_EQ(r.status, 2) << row.expected;
        EXPECT_EQ(r.err, "energy-sim: " + row.expected + "\n");
        EXPECT_EQ(r.out, "");  // refused before the run
    }
}

// ---- failing outputs: a message, a non-zero status, and a clean stop ----

TEST(EnergySimOutputTest, WriteErrorsStopCleanly) {
    struct Row {
        std::vector<std::string> args;
        std::string stdout_path;
        std::string expected;
    } rows[] = {
        {{},
         "/dev/full",
         "energy-sim: cannot write the reports to stdout: No space left on device\n"},
        {{"--log", "/dev/full", "--log-level", "info"},
         "",
         "energy-sim: cannot write log file /dev/full: No space left on device\n"},
        {{"--plot", "/dev/full"},
         "",
         "energy-sim: cannot write plot /dev/full: No space left on device\n"},
    };
    for (const Row& row : rows) {
        TempDir tmp, logs;
        SimCall call;
        call.args = row.args;
        call.stdout_path = row.stdout_path;
        call.tmpdir = tmp.path();
        call.args.insert(call.args.end(), {"--duration", "1h"});
        if (row.args.empty()) {
            call.args.insert(call.args.end(), {"--log", logs.File("log"), "--log-level", "info"});
        }
        Result r = RunSim(call);
        EXPECT_EQ(r.status, 2) << row.expected;
        ASSERT_GE(r.err.size(), row.expected.size());
        EXPECT_EQ(r.err.substr(r.err.size() - row.expected.size()), row.expected);
        EXPECT_TRUE(IsEmptyDir(tmp.path())) << "temporary data directory left behind";
        if (row.args.empty()) {  // failed mid-run: DestroyPlugin stopped the worker
            EXPECT_NE(testsupport::ReadText(logs.File("log"))
                          .find("elaspsed time to terminate PowerMeter thread"),
                      std::string::npos);
        }
    }
}

// ---- signals: the run ends after the current turn, with summary and plot ----

TEST(EnergySimSignalTest, FirstSignalEndsTheRunCleanly) {
    for (int sig : {SIGINT, SIGTERM}) {
        TempDir tmp, out;
        SimCall call;
        call.args = {"--speed",     "3600", "--duration", "10h",
                     "--log-level", "none", "--plot",     out.File("p.svg")};
        call.tmpdir = tmp.path();
        call.signal = sig;
        call.signal_after_ms = 1500;
        Result r = RunSim(call);
        EXPECT_EQ(r.status, 128 + sig);
        EXPECT_NE(
            r.err.find(std::string(", interrupted by ") + (sig == SIGINT ? "SIGINT" : "SIGTERM")),
            std::string::npos)
            << r.err;
        EXPECT_EQ(testsupport::ReadText(out.File("p.svg")).rfind("<svg", 0), 0u);
        EXPECT_TRUE(IsEmptyDir(tmp.path()));
    }
}

// ---- every speed: one turn per 10 simulated seconds, to the end ----

TEST(EnergySimSpeedTest, EverySpeedRunsEveryTurn) {
    struct Row {
        const char* speed;
        int warns;  // 1: no machine keeps this speed; 0: any machine does; -1: it depends
    } rows[] = {{"fast", 0}, {"3600", 0}, {"1e5", -1}, {"1e9", 1}};
    for (const Row& row : rows) {
        Result r = RunSim({"--speed", row.speed, "--duration", "1h", "--log-level", "none"});
        EXPECT_EQ(r.status, 0) << row.speed << r.err;
        EXPECT_NE(r.err.find("turns            360\n"), std::string::npos) << row.speed << r.err;
        const bool warned = r.err.find("warning: this machine could not keep") != std::string::npos;
        EXPECT_TRUE(row.warns < 0 || warned == (row.warns == 1)) << row.speed << r.err;
    }
}

// ---- a restart: the new worker meters from the restart on, at the same cadence ----

TEST(EnergySimScenarioTest, RestartStartsANewMeterAtItsTime) {
    TempDir dir;
    testsupport::WriteText(dir.File("r.txt"), "0 power on\n1h restart\n");
    Result r = RunSim({"--scenario", dir.File("r.txt"), "--duration", "2h", "--log-level", "none"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.err.find("turns            720\n"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("restarts         1 ("), std::string::npos) << r.err;
    // The first report after the restart covers the turns from the restart on.
    EXPECT_NE(r.out.find("\"epoch\":1767575700,"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("cumulativeDateUTC\\\":\\\"1767574800\\\""), std::string::npos) << r.out;
}

// ---- the plot of a long run keeps a single 10-second peak ----

TEST(EnergySimPlotTest, LongRunKeepsOneTurnSpike) {
    TempDir dir;
    testsupport::WriteText(dir.File("spike.txt"),
                           "0 power standby\n3d12h power on\n+10s power standby\n");
    Result r = RunSim({"--scenario", dir.File("spike.txt"), "--duration", "7d", "--log-level",
                       "none", "--plot", dir.File("p.svg")});
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string svg = testsupport::ReadText(dir.File("p.svg"));
    EXPECT_LT(svg.size(), 1000000u);
    // One turn of 60480 is on; its power is the plot's peak, at the middle of the time axis.
    const size_t peak = svg.find(">peak ");
    ASSERT_NE(peak, std::string::npos);
    EXPECT_GT(std::strtod(svg.c_str() + peak + 6, nullptr), 100.0);
    EXPECT_NE(r.err.find("NORMAL               0d 00:00:10"), std::string::npos) << r.err;
}

}  // namespace
