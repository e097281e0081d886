// energy-sim, run as a separate process: bad input, the reports of a known day computed
// independently from the factor row, and the summary's accounting. Also its parsers.
#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "Profile.h"
#include "Scenario.h"
#include "SharedJson.h"
#include "SimProcess.h"
#include "TestSupport.h"

namespace {

using testsupport::TempDir;

using simtest::Data;
using simtest::Lines;
using simtest::Result;
using simtest::RunSim;

// ---- bad input: exit status 2 and one line naming what is wrong ----

TEST(EnergySimCliTest, UnknownOptionAndHelp) {
    Result r = RunSim({"--frobnicate"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err, "energy-sim: unknown option '--frobnicate' for run (see --help)\n");
    r = RunSim({"--help"});
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("--scenario FILE"), std::string::npos);
    r = RunSim({"--duration"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(Lines(r.err), 1);
    r = RunSim({"--duration", "100000d"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err, "energy-sim: --duration is longer than 366 days\n");
    r = RunSim({"--start", "2105-12-31T00:00:00Z", "--duration", "60d"});
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find("past 32-bit time stamps"), std::string::npos) << r.err;
    r = RunSim({"--duration", "soon"});
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find("bad --duration 'soon'"), std::string::npos);
}

TEST(EnergySimCliTest, MissingOrUnloadablePlugin) {
    Result r = RunSim({"--plugin", "/nonexistent/libenergy.so", "--duration", "1m"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(Lines(r.err), 1);
    EXPECT_NE(r.err.find("No such file or directory"), std::string::npos) << r.err;
    TempDir dir;
    testsupport::WriteText(dir.File("lib.so"), std::string(4096, 'z'));
    r = RunSim({"--plugin", dir.File("lib.so"), "--duration", "1m"});
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find("invalid ELF header"), std::string::npos) << r.err;
}

TEST(EnergySimCliTest, BadProfilesNameTheField) {
    TempDir dir;
    struct Case {
        const char* text;
        const char* expected;
    } cases[] = {
        {"{\"volume\": 101}", "field \"volume\": must be between 0 and 100"},
        {"{\"volume\": \"loud\"}", "field \"volume\": must be a whole number"},
        {"{\"model\": 5}", "field \"model\": must be a string"},
        {"{\"picture\": {\"ANA\": true}}",
         "field \"picture.ANA\": must be a whole number or a string"},
        {"{\"picture\": {\"GAMMA\": 1}}", "field \"picture.GAMMA\": unknown register"},
        {"{\"powerState\": \"asleep\"}", "field \"powerState\": must be one of on, picture-off"},
        {"{\"colour\": \"red\"}", "field \"colour\": unknown field"},
        {"[1,2]", "not a JSON object"},
        {"{not json", "not valid JSON"},
    };
    for (const Case& c : cases) {
        testsupport::WriteText(dir.File("p.json"), c.text);
        Result r = RunSim({"--profile", dir.File("p.json"), "--duration", "1m"});
        EXPECT_EQ(r.status, 2) << c.text;
        EXPECT_EQ(Lines(r.err), 1) << r.err;
        EXPECT_NE(r.err.find(c.expected), std::string::npos) << c.text << " -> " << r.err;
    }
    Result r = RunSim({"--profile", dir.File("absent.json")});
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find("cannot read profile"), std::string::npos);
}

TEST(EnergySimCliTest, BadScenarioLineIsNamed) {
    TempDir dir;
    testsupport::WriteText(dir.File("s.txt"), "# ok\n0 power on\n\n2h volume 300\n");
    Result r = RunSim({"--scenario", dir.File("s.txt")});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err, "energy-sim: " + dir.File("s.txt") +
                         ":4: volume takes a whole number from 0 to 100\n");
}

// ---- the parsers ----

TEST(ScenarioParserTest, TimesCommandsAndErrors) {
    uint64_t s = 0;
    EXPECT_TRUE(energysim::ParseDuration("1h30m", &s));
    EXPECT_EQ(s, 5400u);
    EXPECT_TRUE(energysim::ParseDuration("07:05", &s));
    EXPECT_EQ(s, 7 * 3600u + 300);
    EXPECT_TRUE(energysim::ParseDuration("2d", &s));
    EXPECT_EQ(s, 172800u);
    EXPECT_TRUE(energysim::ParseDuration("45", &s));
    EXPECT_EQ(s, 45u);
    for (const char* bad : {"", "h", "1h30", "1x", "10:60", "1:2:3:4", "-5", "1e3"}) {
        EXPECT_FALSE(energysim::ParseDuration(bad, &s)) << bad;
    }
    auto sc = energysim::ParseScenario(
        "0 protocol corvane disconnected\n1h power standby # c\n+30m picture ANA=5 TEMP=-\n"
        "+0 config-raw {not json\n",
        "x");
    ASSERT_EQ(sc.entries.size(), 4u);
    EXPECT_TRUE(sc.SetsCorvaneAtStart());
    EXPECT_EQ(sc.entries[2].offset, 5400u);
    EXPECT_EQ(energysim::Describe(sc.entries[3].command), "config-raw {not json");
    auto error_of = [](const std::string& text) {
        try {
            energysim::ParseScenario(text, "f");
        } catch (const std::runtime_error& e) {
            return std::string(e.what());
        }
        return std::string("no error");
    };
    EXPECT_EQ(error_of("2h power on\n1h power off\n"),
              "f:2: time goes back (entries must be in time order)");
    EXPECT_EQ(error_of("1h dance\n"), "f:1: unknown command 'dance'");
    EXPECT_EQ(error_of("1h\n"), "f:1: missing command after the time");
    EXPECT_EQ(error_of("1h picture ANA\n"),
              "f:1: 'ANA' is not REGISTER=VALUE with a known register");
    EXPECT_EQ(error_of("1h picture ANA=99999999999\n"),
              "f:1: value of ANA must be a whole number or '-'");
    EXPECT_EQ(error_of("1h fail no_such_call 3\n"),
              "f:1: fail takes a platform call name and an error code");
}

TEST(ProfileParserTest, PictureTextKeepsRegisterOrder) {
    auto p = energysim::ParseProfile(
        "{\"picture\":{\"TEMP\":40,\"ANA\":\"0700\",\"RESOLUTION\":1080},\"dataDir\":\"/d\"}", "p");
    EXPECT_EQ(energysim::PictureJson(p.picture),
              "{\"ANA\":\"0700\",\"RESOLUTION\":\"1080\",\"TEMP\":\"40\"}");
    EXPECT_EQ(p.data_dir, "/d/");
}

// ---- a known day, computed independently from the factor row ----

struct Row {
    double od_min, od_max, vf_min, vf_max, alpha, block, type, cell, main, main_lpm, speaker;
};

// Row 103 of the sample data set (24_QUASAR_55, VP55UA2X01), backlight type 2.
Row QuasarRow() {
    std::ifstream in(Data("energy_factors.dat"));
    std::string line;
    while (std::getline(in, line)) {
        if (line.rfind("103,", 0) == 0) {
            std::vector<std::string> t;
            std::stringstream ss(line);
            std::string tok;
            while (std::getline(ss, tok, ','))
                t.push_back(tok);
            auto d = [&](int i) { return std::strtod(t.at(i).c_str(), nullptr); };
            return {d(7), d(8), d(9), d(10), d(11), d(12), d(13), d(15), d(16), d(17), d(18)};
        }
    }
    ADD_FAILURE() << "row 103 missing";
    return {};
}

// Watts of a type-2 set watching (ANA, DutySum, resolution, volume on the TV speaker).
double WattsWatching(const Row& f, double ana, double duty, double res, double volume) {
    double od = (f.od_max - f.od_min) * ana / 1023.0 + f.od_min;
    double current = od * duty / 4095.0 / 1000.0;
    double vf = (f.vf_max - f.vf_min) * ana / 1023.0 * duty / 1023.0 + f.vf_min;
    double blu = current * (vf + f.alpha) * f.block + 7.0;
    double cell = res > 1080 ? f.cell * 1.1 : f.cell;
    double main = f.main * (res > 1080 ? 1.1 : 1.0);
    double speaker = std::pow(f.speaker, volume / 100.0) - 1.0;
    return blu + cell + main + speaker;
}

TEST(EnergySimRunTest, DayOfReportsMatchesAnIndependentComputation) {
    TempDir dir;
    // 3 h watching, 1 h picture off (speaker on), then standby until the end of the day.
    testsupport::WriteText(dir.File("day.txt"),
                           "0 power on\n0 picture ANA=900 DutySum=1000 RESOLUTION=2160\n"
                           "0 volume 30\n3h power picture-off\n4h power standby\n");
    Result r = RunSim({"--scenario", dir.File("day.txt"), "--log-level", "none"});
    ASSERT_EQ(r.status, 0) << r.err;

    Row f = QuasarRow();
    const double watching = WattsWatching(f, 900, 1000, 2160, 30);
    const double picture_off = f.main * 0.7 + (std::pow(f.speaker, 0.3) - 1.0) + 0.0;
    const double standby = f.main * 0.6;
    const uint64_t start = 1767571200;  // the default start
    auto energy_at = [&](uint64_t t) {
        uint64_t off = t - start;
        double w = off < 3 * 3600 ? watching : off < 4 * 3600 ? picture_off : standby;
        double e = w * 10.0 / 3600.0;
        return e > 22.0 ? 0.0 : e;
    };

    std::vector<std::string> expected;
    double acc = 0;
    uint64_t first = 0;
    for (uint64_t i = 0; i < 8640; ++i) {
        uint64_t t = start + 10 * i;
        if (first == 0)
            first = t;
        acc += energy_at(t);
        if (t - first >= 900) {
            char buf[64];
            std::snprintf(buf, sizeof buf, "%f", acc);
            expected.push_back(std::string("{\"cumulativePower\":\"") + buf +
                               "\",\"cumulativeUnit\":\"Wh\",\"cumulativeDateUTC\":\"" +
                               std::to_string(first) + "\"}");
            acc = 0;
            first = 0;
        }
    }

    std::vector<std::string> got;
    std::istringstream lines(r.out);
    std::string line;
    while (std::getline(lines, line)) {
        auto doc = common::json::JsonValue::Create(line);
        ASSERT_EQ(doc["property"].asString(), "dailyPowerConsumption");
        got.push_back(doc["json"].asString());
    }
    ASSERT_EQ(got.size(), 94u);
    EXPECT_EQ(got, expected);

    // The summary's total is what the reports carried plus what was not yet reported.
    double reported = 0;
    for (const std::string& g : got) {
        reported += std::strtod(
            common::json::JsonValue::Create(g)["cumulativePower"].asString().c_str(), nullptr);
    }
    double total = 0, pending = 0;
    size_t pos = r.err.find("total energy");
    ASSERT_NE(pos, std::string::npos) << r.err;
    ASSERT_EQ(std::sscanf(r.err.c_str() + pos, "total energy %lf Wh (%lf Wh not yet reported)",
                          &total, &pending),
              2);
    EXPECT_NEAR(total, reported + pending, 1e-3);
    // "sent" is the sum of the reports as sent, to the printed precision.
    char sent[64];
    std::snprintf(sent, sizeof sent, "94 sent (%.6f Wh)", reported);
    EXPECT_NE(r.err.find(sent), std::string::npos) << r.err;
    EXPECT_NEAR(pending, acc, 1e-3);
    EXPECT_NE(r.err.find("turns            8640"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("94 sent"), std::string::npos) << r.err;
}

TEST(EnergySimRunTest, CorvaneDownDropsReportsAndCheckExplains) {
    TempDir dir;
    testsupport::WriteText(dir.File("s.txt"),
                           "0 protocol corvane disconnected\n1h protocol corvane ready\n");
    Result r = RunSim({"--scenario", dir.File("s.txt"), "--duration", "2h", "--log-level", "none",
                       "--plot", dir.File("p.svg")});
    ASSERT_EQ(r.status, 0) << r.err;
    // 720 turns: uploads at 900 s, 1810 s, 2720 s (dropped), 3630 s ... 6360 s (sent).
    EXPECT_NE(r.err.find("reports          4 sent"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find(", 3 dropped"), std::string::npos) << r.err;
    EXPECT_EQ(Lines(r.out), 4);
    std::string svg = testsupport::ReadText(dir.File("p.svg"));
    EXPECT_EQ(svg.rfind("<svg", 0), 0u);
    EXPECT_NE(svg.find("protocol corvane ready"), std::string::npos);

    r = RunSim({"check", "--profile", Data("devices/china-region.json")});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("reason: Energy Service Not Supported in China Region"), std::string::npos)
        << r.out;
    r = RunSim({"check", "--profile", Data("devices/vx65s9000.json")});
    EXPECT_EQ(r.status, 0) << r.out;
    EXPECT_EQ(r.out.rfind("supported:", 0), 0u);
}

TEST(EnergySimRunTest, EveryShippedProfileAndScenarioRuns) {
    for (const char* p : {"vx43l5000", "vx50l6000", "vx55q7000", "vx55q7010", "vx65q8000",
                          "vx85q9000", "vx65s9000", "vx77s9000", "vx75m9900"}) {
        Result r = RunSim({"--profile", Data(std::string("devices/") + p + ".json"), "--duration",
                           "20m", "--log-level", "none"});
        EXPECT_EQ(r.status, 0) << p << r.err;
        EXPECT_EQ(Lines(r.out), 1) << p << r.err;
    }
    for (const char* s : {"typical-day", "bright-film", "evening-with-faults"}) {
        Result r = RunSim(
            {"--scenario", Data(std::string("scenarios/") + s + ".txt"), "--log-level", "none"});
        EXPECT_EQ(r.status, 0) << s << r.err;
    }
}

}  // namespace
