// The fixture for the metering engine inside the real plug-in: a simulated TV with a small factor
// data set, picture-engine registers and the virtual clock, so that hours of metering run at
// once; the plug-in is loaded with dlopen by the framework host.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "TestSupport.h"

namespace enginetest {

constexpr int64_t kStart = 1700000000;  // 2023-11-14 22:13:20 UTC
constexpr int64_t kTurn = 10;           // seconds between turns
constexpr char kTag[] = "ENERGY_SERVICE";
constexpr char kService[] = "energy-consumption";
constexpr char kModel[] = "VXTEST55";
constexpr char kPanel[] = "PT55TEST01";
// The default backlight level. 139.3 W is a power whose turn energy depends on the order of
// W * 10 / 3600 in the last bit, so exact comparisons catch a reordered conversion.
constexpr int kAna = 693;

// The factors of a type-4 backlight row, the simplest formula: with the speaker off and the
// set on, watts = ANA * compensate + cell * k + main * k, k = 1.1 above 1080 lines, else 1.0.
struct Row {
    double compensate = 0.1;
    double cell = 20.0;
    double main = 50.0;
};

class PluginTest : public testsupport::SimTest {
  protected:
    void SetUp() override;
    void TearDown() override;

    void WriteFactors(const Row& row);
    void SetRegisters(int ana, int resolution);

    // Lets the worker run the turn due `seconds` after the start and park right after it.
    void RunTo(int64_t seconds);

    // The plug-in's entry points. The ready flag outlives a Destroy, so Create reports the
    // protocol disconnected unless `keep_ready`: each test starts not ready.
    int Create(bool keep_ready = false);
    int Destroy();
    bool Status(const std::string& protocol, int status);
    bool Ready(int status = 0) { return Status("corvane", status); }
    std::vector<std::string> Reports() const;

    // The counter printed in each turn's header line, relative to the first one of the test
    // (the counter runs on over the whole process).
    std::vector<long> TurnNumbers() const;
    // The accumulated energy printed at the end of each successful turn, as text.
    std::vector<std::string> AccumulatedTexts() const;
    // Number of messages of this test (any priority) that begin with `prefix`.
    size_t CountPrefix(const std::string& prefix) const;

    Row row_;
    testsupport::TempDir data_;
    testsupport::TempDir shared_;
    std::unique_ptr<wexfhost::Plugin> plugin_;
    bool created_ = false;  // Create called and not yet followed by Destroy
};

// The same arithmetic as the calculator, written out here.
inline double Watts(const Row& row, int ana, int resolution) {
    const double k = resolution > 1080 ? 1.1 : 1.0;
    return ana * row.compensate + row.cell * k + row.main * k;
}

// Energy of one 10-second turn, in Wh.
inline double TurnEnergy(double watts) {
    return watts * 10.0 / 3600.0;
}

// Sum of `turns` turns at `watts`, added turn by turn as the meter does.
inline double Sum(int turns, double watts) {
    double sum = 0.0;
    for (int turn = 0; turn < turns; ++turn) {
        sum += TurnEnergy(watts);
    }
    return sum;
}

// The running-total report for this sum and first time stamp.
inline std::string Report(double sum_wh, int64_t first_time) {
    char text[256];
    std::snprintf(
        text, sizeof text,
        "{\"cumulativePower\":\"%f\",\"cumulativeUnit\":\"Wh\",\"cumulativeDateUTC\":\"%lld\"}",
        sum_wh, static_cast<long long>(first_time));
    return text;
}

inline void PluginTest::SetUp() {
    tvsim::SetAppPath(tvsim::AppPath::kData, data_.path());
    tvsim::SetAppPath(tvsim::AppPath::kSharedResource, shared_.path());
    tvsim::SetModelName(std::string(kModel));
    tvsim::SetPanelType(std::string(kPanel));
    tvsim::SetSpeakerSelection(1);  // an external output: no speaker term
    WriteFactors(row_);
    SetRegisters(kAna, 1080);
    vclock::Enable(kStart);
    vclock::SetLimitSeconds(kStart);  // the first turn runs, then the worker parks
    std::string error;
    plugin_ = wexfhost::Plugin::Load(EC_PLUGIN_PATH, &error);
    ASSERT_NE(plugin_, nullptr) << error;
}

inline void PluginTest::TearDown() {
    if (created_) {
        // A test that stopped half-way: stop the worker before the library goes away.
        vclock::ClearLimit();
        Destroy();
    }
    plugin_.reset();
}

inline void PluginTest::WriteFactors(const Row& row) {
    char line[512];
    // ID, 6 text columns, OD_MIN..COMPENSATE_CONSTANT (TYPE 4), CELL, MAIN, MAIN_LPM, SPEAKER.
    std::snprintf(line, sizeof line,
                  "7,2024,%s,%s,55,%s,LED,100,200,3,3,0,10,4,%.17g,%.17g,%.17g,1,11\n", kModel,
                  kModel, kPanel, row.compensate, row.cell, row.main);
    testsupport::WriteText(shared_.File("energy_factors.dat"),
                           std::string("TEST-SET 1\n") + "8,2024,OTHER,OTHER,55," + kPanel +
                               ",LED,1,2,3,4,5,6,4,1,1,1,1,1\n" + line);
}

inline void PluginTest::SetRegisters(int ana, int resolution) {
    tvsim::SetVconf("memory/ave/powerconsumption", "{\"ANA\":\"" + std::to_string(ana) +
                                                       "\",\"DutySum\":\"300\",\"RESOLUTION\":\"" +
                                                       std::to_string(resolution) + "\"}");
}

inline void PluginTest::RunTo(int64_t seconds) {
    vclock::SetLimitSeconds(kStart + seconds);
    ASSERT_TRUE(vclock::WaitUntilParked());
}

inline int PluginTest::Create(bool keep_ready) {
    created_ = true;
    const int result = plugin_->Create();
    if (!keep_ready) {
        Status("corvane", WEXF_PROTOCOL_STATUS_DISCONNECTED);
    }
    return result;
}

inline int PluginTest::Destroy() {
    created_ = false;
    return plugin_->Destroy();
}

inline bool PluginTest::Status(const std::string& protocol, int status) {
    return wexfhost::FireProtocolStatus(kService, protocol,
                                        static_cast<wexf_protocol_status_e>(status));
}

inline std::vector<std::string> PluginTest::Reports() const {
    std::vector<std::string> out;
    for (const auto& n : wexfhost::Notifications()) {
        EXPECT_EQ(n.service, kService);
        EXPECT_EQ(n.property, "dailyPowerConsumption");
        out.push_back(n.json);
    }
    return out;
}

inline std::vector<long> PluginTest::TurnNumbers() const {
    static const std::regex header("^=+(-?[0-9]+)=+$");
    std::vector<long> out;
    for (const std::string& message : Messages(kTag)) {
        std::smatch m;
        if (std::regex_match(message, m, header)) {
            out.push_back(std::strtol(m[1].str().c_str(), nullptr, 10));
        }
    }
    for (size_t i = out.size(); i-- > 0;) {
        out[i] -= out[0];
    }
    return out;
}

inline std::vector<std::string> PluginTest::AccumulatedTexts() const {
    static const std::regex total("^\\[Energy\\] Accumulated Power: (\\S+) from  UTC: .*$");
    std::vector<std::string> out;
    for (const std::string& message : Messages(kTag)) {
        std::smatch m;
        if (std::regex_match(message, m, total)) {
            out.push_back(m[1].str());
        }
    }
    return out;
}

inline size_t PluginTest::CountPrefix(const std::string& prefix) const {
    size_t count = 0;
    for (const std::string& message : Messages(kTag)) {
        count += message.rfind(prefix, 0) == 0 ? 1 : 0;
    }
    return count;
}

}  // namespace enginetest
