#include "EngineFixture.h"

#include <cstdio>
#include <cstdlib>
#include <regex>

namespace enginetest {

double Watts(const Row& row, int ana, int resolution) {
    const double k = resolution > 1080 ? 1.1 : 1.0;
    return ana * row.compensate + row.cell * k + row.main * k;
}

double TurnEnergy(double watts) {
    return watts * 10.0 / 3600.0;
}

double Sum(int turns, double watts) {
    double sum = 0.0;
    for (int turn = 0; turn < turns; ++turn) {
        sum += TurnEnergy(watts);
    }
    return sum;
}

std::string Report(double sum_wh, int64_t first_time) {
    char text[256];
    std::snprintf(
        text, sizeof text,
        "{\"cumulativePower\":\"%f\",\"cumulativeUnit\":\"Wh\",\"cumulativeDateUTC\":\"%lld\"}",
        sum_wh, static_cast<long long>(first_time));
    return text;
}

void PluginTest::SetUp() {
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

void PluginTest::TearDown() {
    if (created_) {
        // A test that stopped half-way: stop the worker before the library goes away.
        vclock::ClearLimit();
        Destroy();
    }
    plugin_.reset();
}

void PluginTest::WriteFactors(const Row& row) {
    char line[512];
    // ID, 6 text columns, OD_MIN..COMPENSATE_CONSTANT (TYPE 4), CELL, MAIN, MAIN_LPM, SPEAKER.
    std::snprintf(line, sizeof line,
                  "7,2024,%s,%s,55,%s,LED,100,200,3,3,0,10,4,%.17g,%.17g,%.17g,1,11\n", kModel,
                  kModel, kPanel, row.compensate, row.cell, row.main);
    testsupport::WriteText(shared_.File("energy_factors.dat"),
                           std::string("TEST-SET 1\n") + "8,2024,OTHER,OTHER,55," + kPanel +
                               ",LED,1,2,3,4,5,6,4,1,1,1,1,1\n" + line);
}

void PluginTest::SetRegisters(int ana, int resolution) {
    tvsim::SetVconf("memory/ave/powerconsumption", "{\"ANA\":\"" + std::to_string(ana) +
                                                       "\",\"DutySum\":\"300\",\"RESOLUTION\":\"" +
                                                       std::to_string(resolution) + "\"}");
}

void PluginTest::RunTo(int64_t seconds) {
    vclock::SetLimitSeconds(kStart + seconds);
    ASSERT_TRUE(vclock::WaitUntilParked());
}

int PluginTest::Create(bool keep_ready) {
    created_ = true;
    const int result = plugin_->Create();
    if (!keep_ready) {
        Status("corvane", WEXF_PROTOCOL_STATUS_DISCONNECTED);
    }
    return result;
}

int PluginTest::Destroy() {
    created_ = false;
    return plugin_->Destroy();
}

bool PluginTest::Status(const std::string& protocol, int status) {
    return wexfhost::FireProtocolStatus(kService, protocol,
                                        static_cast<wexf_protocol_status_e>(status));
}

std::vector<std::string> PluginTest::Reports() const {
    std::vector<std::string> out;
    for (const auto& n : wexfhost::Notifications()) {
        EXPECT_EQ(n.service, kService);
        EXPECT_EQ(n.property, "dailyPowerConsumption");
        out.push_back(n.json);
    }
    return out;
}

std::vector<long> PluginTest::TurnNumbers() const {
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

std::vector<std::string> PluginTest::AccumulatedTexts() const {
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

size_t PluginTest::CountPrefix(const std::string& prefix) const {
    size_t count = 0;
    for (const std::string& message : Messages(kTag)) {
        count += message.rfind(prefix, 0) == 0 ? 1 : 0;
    }
    return count;
}

}  // namespace enginetest
