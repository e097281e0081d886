// energy-sim under hostile input, failing outputs, signals and every speed; a restart and the
// plot of a long run; and the start-time parser and the recorder's accounting behind them.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <string>

#include "LogTexts.h"
#include "Options.h"
#include "Recorder.h"
#include "SimProcess.h"
#include "TestSupport.h"

namespace {

using simtest::Result;
using simtest::RunSim;
using testsupport::TempDir;

bool Has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

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

// Sent energy comes from the reports, whatever the turn lines' rounding; the rest from the turns.
TEST(EnergySimRecorderTest, SentComesFromTheReportsAndTheRestFromTheTurns) {
    namespace text = powermeter::logtext;
    uint64_t now = 100;
    int turns_seen = 0, reports_seen = 0;
    energysim::Recorder rec([&] { return now; }, [&](const energysim::Turn&) { ++turns_seen; },
                            [&](uint64_t, bool) { ++reports_seen; });
    auto log = [&](const std::string& message) { rec.OnLog("ENERGY_SERVICE", message); };
    auto turn = [&](const char* state, const char* wh) {
        log(std::string(text::kTurnRule) + "7=====");
        log(std::string(text::kPowerStatus) + state);
        log(std::string(text::kCalculatedPower) + "100.0 (W/h)");
        log(std::string(text::kInstantaneousPower) + wh);
        now += 10;
    };
    turn("NORMAL", "0.250000");
    turn("NORMAL", "0.250000");
    log(text::kUploadNow);
    rec.OnNotification("dailyPowerConsumption", R"({"cumulativePower":"0.500001"})");
    turn("PICTURE_OFF", "0.100000");
    log(text::kUploadNow);
    log(text::kProtocolNotReady);
    turn("PICTURE_OFF", "0.125000");
    log(std::string(text::kTurnRule) + "9=====");
    log(std::string(text::kTurnFailed) + "no registers");
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
    EXPECT_EQ(t.by_state.at("no estimate").turns, 1u);
}

// Bad input: one line, exit status 2, refused before the run.
TEST(EnergySimInputTest, EachBadInputIsOneLine) {
    TempDir dir;
    testsupport::WriteText(dir.File("junk.txt"), "0 \x01\x02\xfe" + std::string(200, 'z') + "\n");
    testsupport::WriteText(dir.File("long.txt"), "0 note " + std::string(70000, 'n') + "\n");
    testsupport::WriteText(dir.File("far.txt"), "999999999d999999999d power on\n");
    const std::string none = dir.File("no/such/dir");
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
        {{"--plot", none}, "cannot write plot " + none + ": No such file or directory"},
        {{"--log", none}, "cannot write log file " + none + ": No such file or directory"},
    };
    for (const Row& row : rows) {
        std::vector<std::string> args = row.args;
        args.insert(args.end(), {"--duration", "366d", "--log-level", "none"});
        Result r = RunSim(args);
        EXPECT_EQ(r.status, 2) << row.expected;
        EXPECT_EQ(r.err, "energy-sim: " + row.expected + "\n");
        EXPECT_EQ(r.out, "");
    }
}

// A failing output or a signal ends the run: a message, its status, no temporary data left;
// a failure mid-run stops the worker through DestroyPlugin, a signal after the current turn
// with the summary and the plot.
TEST(EnergySimStopTest, ErrorsAndSignalsStopCleanly) {
    TempDir out;
    const std::string log = out.File("log"), plot = out.File("p.svg");
    const std::vector<std::string> info = {"--log", log, "--log-level", "info"};
    const std::vector<std::string> paced = {"--speed", "3600",   "--log-level",
                                            "none",    "--plot", plot};
    struct Row {
        int signal;  // 0: an output fails, exit status 2; else 128 + the signal
        std::string stdout_path;
        std::vector<std::string> args;
        std::string expected;  // part of stderr
    } rows[] = {
        {0, "/dev/full", info, "energy-sim: cannot write the reports to stdout: No space left"},
        {0,
         "",
         {"--log", "/dev/full", "--log-level", "info"},
         "cannot write log file /dev/full: No"},
        {0, "", {"--plot", "/dev/full"}, "energy-sim: cannot write plot /dev/full: No space left"},
        {SIGINT, "", paced, ", interrupted by SIGINT"},
        {SIGTERM, "", paced, ", interrupted by SIGTERM"},
    };
    for (const Row& row : rows) {
        TempDir tmp;
        std::filesystem::remove(plot);
        simtest::SimCall call;
        call.args = row.args;
        call.args.insert(call.args.end(), {"--duration", row.signal != 0 ? "10h" : "1h"});
        call.stdout_path = row.stdout_path;
        call.tmpdir = tmp.path();
        call.signal = row.signal;
        call.signal_after_ms = 1500;
        Result r = RunSim(call);
        EXPECT_EQ(r.status, row.signal != 0 ? 128 + row.signal : 2) << r.err;
        EXPECT_TRUE(Has(r.err, row.expected)) << r.err;
        EXPECT_TRUE(std::filesystem::is_empty(tmp.path())) << "temporary data directory left";
        if (row.signal != 0) {
            EXPECT_EQ(testsupport::ReadText(plot).rfind("<svg", 0), 0u);
        } else if (row.stdout_path == "/dev/full") {
            EXPECT_TRUE(Has(testsupport::ReadText(log), "elaspsed time to terminate PowerMeter"));
        }
    }
}

// Every speed runs one turn per 10 simulated seconds, to the end.
TEST(EnergySimSpeedTest, EverySpeedRunsEveryTurn) {
    struct Row {
        const char* speed;
        int warns;  // 1: no machine keeps this speed; 0: any machine does; -1: it depends
    } rows[] = {{"fast", 0}, {"3600", 0}, {"1e5", -1}, {"1e9", 1}};
    for (const Row& row : rows) {
        Result r = RunSim({"--speed", row.speed, "--duration", "1h", "--log-level", "none"});
        EXPECT_EQ(r.status, 0) << row.speed << r.err;
        EXPECT_TRUE(Has(r.err, "turns            360\n")) << row.speed << r.err;
        const bool warned = Has(r.err, "warning: this machine could not keep");
        EXPECT_TRUE(row.warns < 0 || warned == (row.warns == 1)) << row.speed << r.err;
    }
}

// A restart starts a new meter at its time, at the same cadence; the first report after it
// covers the turns from the restart on. A 7-day plot keeps a single 10-second peak.
TEST(EnergySimScenarioTest, RestartAndLongPlot) {
    struct Row {
        const char* scenario;
        const char* duration;
        std::vector<std::string> err, out;  // parts of stderr and stdout
    } rows[] = {
        {"0 power on\n1h restart\n",
         "2h",
         {"turns            720\n", "restarts         1 ("},
         {"\"epoch\":1767575700,", "cumulativeDateUTC\\\":\\\"1767574800\\\""}},
        {"0 power standby\n3d12h power on\n+10s power standby\n",
         "7d",
         {"NORMAL               0d 00:00:10"},
         {}},
    };
    for (const Row& row : rows) {
        TempDir dir;
        testsupport::WriteText(dir.File("s.txt"), row.scenario);
        Result r = RunSim({"--scenario", dir.File("s.txt"), "--duration", row.duration,
                           "--log-level", "none", "--plot", dir.File("p.svg")});
        ASSERT_EQ(r.status, 0) << r.err;
        for (const std::string& part : row.err) {
            EXPECT_TRUE(Has(r.err, part)) << r.err;
        }
        for (const std::string& part : row.out) {
            EXPECT_TRUE(Has(r.out, part)) << r.out;
        }
        const std::string svg = testsupport::ReadText(dir.File("p.svg"));
        EXPECT_LT(svg.size(), 1000000u);
        const size_t peak = svg.find(">peak ");
        ASSERT_NE(peak, std::string::npos);
        EXPECT_GT(std::strtod(svg.c_str() + peak + 6, nullptr), 100.0);
    }
}

}  // namespace
