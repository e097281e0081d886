// energy-sim: its start-time and clock parsers, then the program run as a separate process: a
// day of reports computed independently from the factor row, hostile input, failing outputs,
// signals, every speed, restarts, wall-clock jumps, failed turns and block mode.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <sstream>

#include "Error.h"
#include "Options.h"
#include "Profile.h"
#include "Runner.h"
#include "Scenario.h"
#include "SharedJson.h"
#include "SimProcess.h"
#include "TestSupport.h"

namespace {

using common::json::JsonValue;
using simtest::Has;
using simtest::Result;
using simtest::RunSim;
using testsupport::TempDir;

// Writes `scenario` to a file and runs it with the given further arguments, without a log.
Result RunScenario(const TempDir& dir, const std::string& scenario, std::vector<std::string> args) {
    testsupport::WriteText(dir.File("s.txt"), scenario);
    args.insert(args.end(), {"--scenario", dir.File("s.txt"), "--log-level", "none"});
    return RunSim(args);
}

TEST(EnergySimParseTest, StartTimesAreRealDatesAndCommandsReadAsWritten) {
    int64_t epoch = 0;
    EXPECT_TRUE(energysim::ParseStart("2024-02-29T23:59:59Z", &epoch));
    EXPECT_EQ(epoch, 1709251199);
    for (const char* bad : {"2026-02-31T00:00:00Z", "2026-01-05T99:99:99Z", "2025-02-29T00:00:00Z",
                            "2026-01-05T00:00:60Z", "2026-1-5T00:00:00Z",
                            "2026-01-05T00:00:00Zjunk", "1969-12-31T23:59:59Z"}) {
        EXPECT_FALSE(energysim::ParseStart(bad, &epoch)) << bad;
    }
    // Each command as the plot labels it (a new command adds its row), and refused lines. A
    // clock jump takes one signed duration: no sign reads like a time. A protocol status is one
    // of the framework's four values, by name or number.
    const std::pair<const char*, const char*> described[] = {
        {"0 clock -01:00:01", "clock -1h1s"},
        {"0 protocol corvane 3", "protocol corvane error"},
        {"0 protocol x 0", "protocol x connected"}};
    for (const auto& [line, text] : described) {
        EXPECT_EQ(energysim::Describe(energysim::ParseScenario(line, "s").entries.at(0).command),
                  text);
    }
    for (const char* bad :
         {"0 clock 15m", "0 clock", "0 clock +", "0 clock -0", "0 clock +5x", "0 clock +5m +1m",
          "0 clock +-5m", "0 protocol corvane 4", "0 protocol corvane -1"}) {
        EXPECT_THROW(energysim::ParseScenario(bad, "s.txt"), energysim::SimError) << bad;
    }
    const auto jump = energysim::ParseScenario("0 clock -01:00:01", "s").entries.at(0).command;
    EXPECT_EQ(jump.numbers, std::vector<int64_t>{-3601});
}

// --speed: from 0.01 (a simulated minute in 100 real minutes) to 1e9, or fast.
TEST(EnergySimParseTest, SpeedBounds) {
    for (const char* speed : {"0.01", "1e9", "fast"}) {
        const char* argv[] = {"energy-sim", "--speed", speed};
        EXPECT_NO_THROW(energysim::ParseCommandLine(3, const_cast<char**>(argv))) << speed;
    }
    for (const char* speed : {"0.00999", "1.000001e9", "nan", "-1"}) {
        const char* argv[] = {"energy-sim", "--speed", speed};
        EXPECT_THROW(energysim::ParseCommandLine(3, const_cast<char**>(argv)), energysim::SimError)
            << speed;
    }
}

// A run of 366 days from 2026-01-05 may end at 2106-02-07T06:28:15Z at the latest and never
// read a wall clock before 1970, whatever its jumps; an entry at the end is never applied.
TEST(EnergySimParseTest, ClockJumpsStayWithinThe32BitRange) {
    struct Row {
        const char* scenario;
        bool allowed;
    } rows[] = {
        {"1d clock +28886d6h28m15s", true},  // ends on the last second
        {"1d clock +28886d6h28m16s", false},
        // Ahead from 1d to 2d only, up to the last second; a day longer is too far.
        {"1d clock +29250d6h28m15s\n2d clock -29250d6h28m15s", true},
        {"1d clock +29250d6h28m15s\n2d note x\n3d clock -29250d6h28m15s", false},
        {"366d clock +29000d", true},
        {"1h clock -20458d1h", true},  // back to 00:00:00 on 1970-01-01
        {"1h clock -20458d1h1s", false},
        {"1h clock -10000d\n2h clock -10458d2h1s", false},
    };
    for (const Row& row : rows) {
        const auto scenario = energysim::ParseScenario(row.scenario, "s");
        if (row.allowed) {
            EXPECT_NO_THROW(energysim::CheckClockJumps(scenario, 1767571200, 366 * 86400))
                << row.scenario;
        } else {
            EXPECT_THROW(energysim::CheckClockJumps(scenario, 1767571200, 366 * 86400),
                         energysim::SimError)
                << row.scenario;
        }
    }
}

// Row 103 of the sample data set (24_QUASAR_55, VP55UA2X01), backlight type 2:
// OD 500-1800, VF 48-56, ALPHA 1.0, 4 blocks, CELL 12, MAIN 30, SPEAKER 12.
// Watts watching at ANA 900, DutySum 1000, 2160 lines, volume 30 on the TV speaker.
double WattsWatching() {
    const double ana = 900, duty = 1000;
    const double od = (1800 - 500) * ana / 1023.0 + 500;
    const double current = od * duty / 4095.0 / 1000.0;
    const double vf = (56 - 48) * ana / 1023.0 * duty / 1023.0 + 48;
    return current * (vf + 1.0) * 4 + 7.0 + 12 * 1.1 + 30 * 1.1 + std::pow(12, 0.3) - 1.0;
}

// The cloud protocol drops from 2 h to 3 h: the reports due then are dropped.
TEST(EnergySimRunTest, DayOfReportsMatchesAnIndependentComputation) {
    TempDir dir;
    // 3 h watching, 1 h picture off (speaker on), then standby until the end of the day.
    Result r = RunScenario(dir,
                           "0 power on\n0 picture ANA=900 DutySum=1000 RESOLUTION=2160\n"
                           "0 volume 30\n2h protocol corvane disconnected\n3h protocol corvane "
                           "ready\n3h power picture-off\n4h power standby\n",
                           {"--plot", dir.File("p.svg")});
    ASSERT_EQ(r.status, 0) << r.err;

    const double watching = WattsWatching(), picture_off = 30 * 0.7 + std::pow(12, 0.3) - 1.0;
    const uint64_t start = 1767571200;  // the default start
    std::vector<std::string> expected;
    double acc = 0, all = 0, dropped = 0;
    for (uint64_t t = start, first = start; t < start + 86400; t += 10) {
        const uint64_t off = t - start;
        const double w = off < 3 * 3600 ? watching : off < 4 * 3600 ? picture_off : 30 * 0.6;
        acc += w * 10.0 / 3600.0;
        all += w * 10.0 / 3600.0;
        if (t - first < 900) {
            continue;
        }
        if (off >= 2 * 3600 && off < 3 * 3600) {
            dropped += acc;
        } else {
            char buf[64];
            std::snprintf(buf, sizeof buf, "%f", acc);
            expected.push_back(std::string("{\"cumulativePower\":\"") + buf +
                               "\",\"cumulativeUnit\":\"Wh\",\"cumulativeDateUTC\":\"" +
                               std::to_string(first) + "\"}");
        }
        acc = 0;
        first = t + 10;
    }

    std::vector<std::string> got;
    double reported = 0;
    std::istringstream lines(r.out);
    for (std::string line; std::getline(lines, line);) {
        const auto doc = JsonValue::Create(line);
        ASSERT_EQ(doc["property"].asString(), "dailyPowerConsumption");
        got.push_back(doc["json"].asString());
        reported += std::stod(JsonValue::Create(got.back())["cumulativePower"].asString());
    }
    EXPECT_EQ(got, expected);

    // The summary: "sent" is the sum of the reports as sent, to the printed precision; the
    // rest is from the turns.
    char sent[64];
    std::snprintf(sent, sizeof sent, "reports          90 sent (%.6f Wh), 4 dropped", reported);
    ASSERT_TRUE(Has(r.err, sent)) << r.err;
    double dropped_wh = 0, total = 0, pending = 0;
    ASSERT_EQ(std::sscanf(r.err.c_str() + r.err.find("4 dropped"),
                          "4 dropped (%lf Wh)\ntotal energy %lf Wh (%lf Wh not yet reported)",
                          &dropped_wh, &total, &pending),
              3)
        << r.err;
    EXPECT_NEAR(dropped_wh, dropped, 1e-3);
    EXPECT_NEAR(total, all, 1e-3);
    EXPECT_NEAR(pending, acc, 1e-3);
    EXPECT_EQ(testsupport::ReadText(dir.File("p.svg")).rfind("<svg", 0), 0u);
}

TEST(EnergySimRunTest, CheckGivesTheReason) {
    Result r = RunSim({"check", "--profile", simtest::Data("devices/china-region.json")});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(Has(r.out, "reason: Energy Service Not Supported in China Region")) << r.out;
}

// A profile lists what differs from the built-in default; null says "not published".
TEST(EnergySimProfileTest, FieldsLeftOutKeepTheDefaultAndNullIsNotPublished) {
    const energysim::DeviceProfile d = energysim::DefaultProfile();
    const auto parse = [](const std::string& text) { return energysim::ParseProfile(text, "p"); };
    const energysim::DeviceProfile empty = parse("{\"dataDir\": \"/d\"}");
    EXPECT_EQ(std::tie(empty.model, empty.panel_type, empty.locale_set, empty.model_year),
              std::tie(d.model, d.panel_type, d.locale_set, d.model_year));
    EXPECT_EQ(std::tie(empty.picture, empty.volume, empty.data_dir),
              std::tie(d.picture, d.volume, "/d/"));
    const energysim::DeviceProfile some =
        parse("{\"model\": null, \"modelYear\": null, \"picture\": {\"ANA\": 5, \"HDR\": null}}");
    EXPECT_EQ(std::tie(some.model, some.model_year, some.panel_type),
              std::tie(std::nullopt, std::nullopt, d.panel_type));
    std::map<std::string, std::string> picture = d.picture;
    picture["ANA"] = "5";
    picture.erase("HDR");
    EXPECT_EQ(some.picture, picture);
    EXPECT_TRUE(parse("{\"picture\": null}").picture.empty());
}

// Bad input: one line, exit status 2, refused before the run.
TEST(EnergySimInputTest, EachBadInputIsOneLine) {
    TempDir dir;
    testsupport::WriteText(dir.File("junk.txt"), "0 \x01\x02\xfe" + std::string(200, 'z') + "\n");
    testsupport::WriteText(dir.File("long.txt"), "0 note " + std::string(70000, 'n') + "\n");
    testsupport::WriteText(dir.File("far.txt"), "999999999d999999999d power on\n");
    testsupport::WriteText(dir.File("status.txt"), "0 protocol corvane 1000\n");
    // A brace in a string does not end the object; a second document after it is refused.
    testsupport::WriteText(dir.File("two.json"), "{\"name\": \"}\"}\n {\"volume\": 5}\n");
    // One second past each end of the wall clock's range, for a run of 366 days from the
    // default start.
    testsupport::WriteText(dir.File("ahead.txt"), "1d clock +28886d6h28m16s\n");
    testsupport::WriteText(dir.File("behind.txt"), "1h clock -20458d1h1s\n");
    const std::string none = dir.File("no/such/dir"), far = dir.File("far.txt");
    // A FIFO blocks an ordinary open and read, /dev/zero never ends: inputs are regular files.
    const std::string fifo = dir.File("fifo"), big = dir.File("big.json"), edge = dir.File("1m");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    // A profile of exactly the 1 MiB bound is read (and refused for its field), one byte more is
    // not read at all.
    const std::string volume = "{\"volume\": 500}";
    testsupport::WriteText(edge, volume + std::string((1 << 20) - volume.size(), ' '));
    testsupport::WriteText(big, volume + std::string((1 << 20) + 1 - volume.size(), ' '));
    struct Row {
        std::vector<std::string> args;
        std::string expected;  // the whole message after "energy-sim: "
    } rows[] = {
        {{"--scenario", dir.path()}, "cannot read scenario " + dir.path() + ": not a regular file"},
        {{"--scenario", fifo}, "cannot read scenario " + fifo + ": not a regular file"},
        {{"--profile", fifo}, "cannot read profile " + fifo + ": not a regular file"},
        {{"--profile", "/dev/zero"}, "cannot read profile /dev/zero: not a regular file"},
        {{"--profile", dir.path()}, "cannot read profile " + dir.path() + ": not a regular file"},
        {{"--profile", edge}, edge + ": field \"volume\": must be between 0 and 100"},
        {{"--profile", big}, "cannot read profile " + big + ": larger than 1 MiB"},
        {{"--profile", dir.File("two.json")},
         dir.File("two.json") + ":2: text after the JSON object: '{\"volume\": 5}'"},
        {{"--speed", "1e-300"}, "bad --speed '1e-300' (a number from 0.01 to 1e9, or 'fast')"},
        {{"--speed", "0.0099"}, "bad --speed '0.0099' (a number from 0.01 to 1e9, or 'fast')"},
        {{"--plugin", fifo}, "cannot load plug-in '" + fifo + "': not a regular file"},
        {{"--scenario", far},
         far + ":1: bad time '999999999d999999999d' (use e.g. 90s, 15m, 3h, 1h30m, 2d or "
               "HH:MM[:SS])"},
        {{"--scenario", dir.File("junk.txt")},
         dir.File("junk.txt") + ":1: unknown command '\\x01\\x02\\xfe" + std::string(37, 'z') +
             "...'"},
        {{"--scenario", dir.File("status.txt")},
         dir.File("status.txt") +
             ":1: protocol takes NAME and ready|connected|disconnected|error|N (N from 0 to 3)"},
        {{"--scenario", dir.File("ahead.txt")},
         dir.File("ahead.txt") +
             ":1: after clock +28886d6h28m16s the run would end after 2106-02-07T06:28:15Z, "
             "past 32-bit time stamps"},
        {{"--scenario", dir.File("behind.txt")},
         dir.File("behind.txt") + ":1: clock -20458d1h1s would move the wall clock before 1970"},
        {{"--scenario", dir.File("long.txt")},
         dir.File("long.txt") + ":1: line longer than 65536 bytes"},
        {{"--start", "2026-02-31T99:99:99Z"},
         "bad --start '2026-02-31T99:99:99Z' (use YYYY-MM-DDTHH:MM:SSZ)"},
        {{"--plot", none}, "cannot write plot " + none + ": No such file or directory"},
        {{"--log", none}, "cannot write log file " + none + ": No such file or directory"},
        {{"--queue", "daily"}, "bad --queue 'daily' (total or blocks)"},
        {{"check", "--plugin", "/x.so"}, "unknown option '--plugin' for check (see --help)"},
        {{"--plugin", "/x.so"},
         "cannot load plug-in '/x.so': /x.so: cannot open shared object file: No such file or "
         "directory"},
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

// A failing output, an exception or a signal ends the run: a message, its status, no temporary
// data left; a failure mid-run stops the worker through DestroyPlugin and leaves no partial
// plot, a signal ends it after the current turn with the summary and the plot.
TEST(EnergySimStopTest, ErrorsAndSignalsStopCleanly) {
    TempDir out;
    const std::string log = out.File("log"), plot = out.File("p.svg");
    const std::vector<std::string> paced = {"--speed", "3600",   "--log-level",
                                            "none",    "--plot", plot};
    struct Row {
        int signal;  // 0: an output fails, exit status 2; else 128 + the signal
        std::string stdout_path;
        std::vector<std::string> args;
        std::string expected;  // part of stderr
        std::string duration = "1h";
        std::string stdout_reader = "";
        std::string stderr_path = "";
        bool missing_tmpdir = false;  // $TMPDIR names a directory that does not exist
    } rows[] = {
        {0,
         "/dev/full",
         {"--log", log, "--log-level", "info", "--plot", plot},
         "write the reports to stdout: No"},
        // A reader that goes away: the write fails with EPIPE (more than a pipe's buffer).
        {0,
         "",
         {"--log-level", "none", "--plot", plot},
         "energy-sim: cannot write the reports to stdout: Broken pipe\n",
         "7d",
         "head -c 1 >/dev/null"},
        {0, "", {"--log", "/dev/full", "--log-level", "info"}, "write log file /dev/full: No"},
        {0, "", {"--plot", "/dev/full"}, "energy-sim: cannot write plot /dev/full: No space left"},
        {0, "", {"--log-level", "none"}, "", "1h", "", "/dev/full"},  // the summary is lost
        {0,
         "",
         {"--plot", plot},
         "/energy-sim-XXXXXX: No such file or directory\n",
         "1h",
         "",
         "",
         true},
        {SIGINT, "", paced, ", interrupted by SIGINT", "10h"},
        {SIGTERM, "", paced, ", interrupted by SIGTERM", "10h"},
        {SIGHUP, "", paced, ", interrupted by SIGHUP", "10h"},
        // As when a write of the run passes the file-size limit.
        {SIGXFSZ, "", paced, ", interrupted by SIGXFSZ", "10h"},
    };
    for (const Row& row : rows) {
        TempDir tmp;
        std::filesystem::remove(plot);
        simtest::SimCall call;
        call.args = row.args;
        call.args.insert(call.args.end(), {"--duration", row.duration});
        call.stdout_path = row.stdout_path;
        call.stdout_reader = row.stdout_reader;
        call.stderr_path = row.stderr_path;
        call.tmpdir = tmp.path() + (row.missing_tmpdir ? "missing" : "");
        call.signal = row.signal;
        Result r = RunSim(call);
        EXPECT_EQ(r.status, row.signal != 0 ? 128 + row.signal : 2) << row.expected << r.err;
        EXPECT_TRUE(Has(r.err, row.expected)) << r.err;
        EXPECT_TRUE(std::filesystem::is_empty(tmp.path())) << "temporary data directory left";
        if (row.signal != 0) {
            EXPECT_EQ(testsupport::ReadText(plot).rfind("<svg", 0), 0u);
        } else {
            EXPECT_FALSE(testsupport::Exists(plot)) << "partial plot left";
        }
        if (row.stdout_path == "/dev/full") {
            EXPECT_TRUE(Has(testsupport::ReadText(log), "elaspsed time to terminate PowerMeter"));
        }
    }
}

// Sets the stop flag, as the signal handler does, when the first report is written: from the
// plug-in's thread, inside the turn that sends it.
class SignalOnWrite : public std::streambuf {
  public:
    explicit SignalOnWrite(std::atomic<int>* flag) : flag_(flag) {}

  protected:
    std::streamsize xsputn(const char*, std::streamsize n) override {
        flag_->store(SIGINT);
        return n;
    }
    int_type overflow(int_type c) override {
        flag_->store(SIGINT);
        return c;
    }

  private:
    std::atomic<int>* flag_;
};

// At full speed the worker runs an hour between two checks of the host; a signal still ends
// the run after the turn that was running (the first report's, at 00:15:00), not at 01:00:00.
using EnergySimSignalTest = testsupport::SimTest;
TEST_F(EnergySimSignalTest, FullSpeedStopsAfterTheCurrentTurn) {
    std::atomic<int> flag{0};
    SignalOnWrite buffer(&flag);
    std::ostream out(&buffer);
    std::ostringstream err;
    energysim::RunOptions o;
    o.plugin_path = EC_PLUGIN_PATH;
    o.profile = energysim::DefaultProfile();
    o.profile.shared_dir = simtest::Data("");
    o.start = 1767571200;
    o.log_level = 99;
    o.interrupt = &flag;
    EXPECT_EQ(energysim::Run(o, out, err), 128 + SIGINT);
    EXPECT_TRUE(Has(err.str(), "simulated time   0d 00:15:10 (910 s), interrupted by SIGINT\n"))
        << err.str();
}

// Every speed runs one turn per 10 simulated seconds, to the end.
TEST(EnergySimSpeedTest, EverySpeedRunsEveryTurn) {
    for (const std::string speed : {"fast", "3600", "1e5", "1e9"}) {
        Result r = RunSim({"--speed", speed, "--duration", "1h", "--log-level", "none"});
        EXPECT_EQ(r.status, 0) << speed << r.err;
        EXPECT_TRUE(Has(r.err, "turns            360\n")) << speed << r.err;
        // No machine keeps 1e9, any keeps fast and 3600; 1e5 depends on the machine.
        if (speed != "1e5") {
            EXPECT_EQ(Has(r.err, "warning: this machine could not keep"), speed == "1e9") << r.err;
        }
    }
}

// A restart starts a new meter at its time, at the same cadence; the first report after it
// covers the turns from the restart on. Wall-clock jumps back and forth keep one turn every
// 10 s; the report after each is stamped on the jumped clock. A 7-day plot keeps a single
// 10-second peak. Dates and stamps stay right after 2038 and up to the last 32-bit second.
TEST(EnergySimScenarioTest, RestartsJumpsAndLongPlot) {
    struct Row {
        const char* scenario;
        std::vector<std::string> args;
        std::vector<std::string> parts;  // of stdout or stderr
    } rows[] = {
        {"0 power on\n1h restart\n",
         {"--duration", "2h"},
         {"turns            720\n", "restarts         1 (", "\"epoch\":1767575700,",
          "cumulativeDateUTC\\\":\\\"1767574800\\\""}},
        {"0 power on\n1h clock -2d\n2h clock +2d\n",
         {"--duration", "3h"},  // reports 01-03 01:00, 01-05 02:00
         {"turns            1080\n", "\"epoch\":1767402000,", "\"epoch\":1767578400,"}},
        {"0 power on\n10m config missing\n20m config restore\n",
         {"--duration", "1h"},
         {"no estimate          0d 00:10:00"}},
        {"0 power standby\n3d12h power on\n+10s power standby\n",
         {"--duration", "7d"},
         {"NORMAL               0d 00:00:10"}},
        // Time stamps across the end of a 32-bit time_t, and up to the last 32-bit second.
        {"0 power on\n",
         {"--start", "2038-01-19T03:00:00Z", "--duration", "31m"},
         {"\"time\":\"2038-01-19T03:30:10Z\",\"epoch\":2147484610,",
          "cumulativeDateUTC\\\":\\\"2147483710\\\""}},
        {"0 power on\n",
         {"--start", "2106-02-07T06:13:05Z", "--duration", "15m10s"},
         {"\"time\":\"2106-02-07T06:28:05Z\",\"epoch\":4294967285,",
          "cumulativeDateUTC\\\":\\\"4294966385\\\""}},
        // The same last second reached by a jump from the default start.
        {"0 power on\n0 clock +29252d6h13m5s\n",
         {"--duration", "15m10s"},
         {"\"time\":\"2106-02-07T06:28:05Z\",\"epoch\":4294967285,"}},
    };
    for (const Row& row : rows) {
        TempDir dir;
        std::vector<std::string> args = row.args;
        args.insert(args.end(), {"--plot", dir.File("p.svg")});
        Result r = RunScenario(dir, row.scenario, args);
        ASSERT_EQ(r.status, 0) << r.err;
        for (const std::string& part : row.parts) {
            EXPECT_TRUE(Has(r.out + r.err, part)) << part << "\n" << r.err;
        }
        const std::string svg = testsupport::ReadText(dir.File("p.svg"));
        EXPECT_LT(svg.size(), 1000000u);
        const size_t peak = svg.find(">peak ");
        ASSERT_NE(peak, std::string::npos);
        EXPECT_GT(std::strtod(svg.c_str() + peak + 6, nullptr), 100.0);
    }
}

// Block mode over a night with a restart: one daily report of 24 hourly blocks, each hour
// once, whose energy the summary reads from the blocks.
TEST(EnergySimBlocksTest, DailyReportHoldsEachHourOnce) {
    Result r = RunSim({"--queue", "blocks", "--scenario", simtest::Data("scenarios/week.txt"),
                       "--duration", "1d1h", "--log-level", "none"});
    ASSERT_EQ(r.status, 0) << r.err;
    ASSERT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), 1) << r.out;
    const auto line = JsonValue::Create(r.out.substr(0, r.out.find('\n')));
    const auto report = JsonValue::Create(line["json"].asString());
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
    EXPECT_TRUE(Has(r.err, sent)) << r.err;
}

}  // namespace
