// energy-sim, run as a separate process: the reports of a known day computed independently
// from the factor row, the summary's accounting, the availability check and bad input.
#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "SharedJson.h"
#include "SimProcess.h"
#include "TestSupport.h"

namespace {

using simtest::Data;
using simtest::Lines;
using simtest::Result;
using simtest::RunSim;
using testsupport::TempDir;

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
    Result r = RunSim(
        {"--scenario", dir.File("day.txt"), "--log-level", "none", "--plot", dir.File("p.svg")});
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
    EXPECT_EQ(testsupport::ReadText(dir.File("p.svg")).rfind("<svg", 0), 0u);
}

TEST(EnergySimRunTest, CheckGivesTheReasonAndBadInputOneLine) {
    Result r = RunSim({"check", "--profile", Data("devices/china-region.json")});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("reason: Energy Service Not Supported in China Region"), std::string::npos)
        << r.out;
    r = RunSim({"--plugin", "/nonexistent/libenergy.so"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(Lines(r.err), 1) << r.err;
    EXPECT_NE(r.err.find("No such file or directory"), std::string::npos) << r.err;
}

}  // namespace
