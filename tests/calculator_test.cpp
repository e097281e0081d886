// Calculator: every power state for every backlight type at both sides of the resolution
// threshold, the speaker, the failures and the log catalogue, on the simulated TV.
// Backlight watts were computed independently in IEEE double with the documented order of
// operations; the hex literals pin them to the bit.
#include <cmath>
#include <ctime>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "Calculator.h"
#include "TestSupport.h"

using powermeter::Calculator;
using ::testing::ThrowsMessage;

namespace {

constexpr char kEnergy[] = "ENERGY_SERVICE";
constexpr char kSw[] = "24_CALC_TEST";
constexpr char kPanel[] = "CT55AB1C01";

// Columns 7-14 of a row: OD min and max, VF min and max, alpha, block, type, compensation.
constexpr char kType0[] = "80,240,36,44,1.5,4,0,-";

class CalculatorTest : public testsupport::SimTest {
  protected:
    void SetUp() override {
        tvsim::SetAppPath(tvsim::AppPath::kSharedResource, dir_.path());
        tvsim::SetModelName(std::string(kSw));
        tvsim::SetPanelType(std::string(kPanel));
        Picture(1080);
    }
    // The data set's one row: backlight columns, then cell, main, main LPM and speaker.
    void WriteRow(const std::string& blu, const std::string& components = "10,50,4,11") {
        testsupport::WriteText(dir_.File("energy_factors.dat"),
                               "ECF-TEST\n42,2024,VXCALC," + std::string(kSw) + ",55," + kPanel +
                                   ",LED," + blu + "," + components + "\n");
    }
    // The picture engine's registers: ANA 700, DutySum 800 and this resolution.
    static void Picture(int resolution) {
        tvsim::SetVconf(
            "memory/ave/powerconsumption",
            R"({"ANA":"700","DutySum":"800","RESOLUTION":")" + std::to_string(resolution) + "\"}");
    }
    static void Set(int state, int ambient, int volume = 100, int speaker = 0) {
        tvsim::SetPowerState(state);
        tvsim::SetAmbientMode(ambient);
        tvsim::SetMasterVolume(volume);
        tvsim::SetSpeakerSelection(speaker);
    }
    static double Watts(Calculator& calc) {
        calc.Calculate();
        return calc.PowerConsumption();
    }
    testsupport::TempDir dir_;
};

TEST_F(CalculatorTest, EveryStateForEveryBacklightType) {
    const struct {
        const char* blu;
        double watts;      // at ANA 700, DutySum 800
        const char* type;  // as the calculator shows it
    } types[] = {
        {kType0, 0x1.a0089536d7ccbp+4, "0"},
        {"600,1600,38,46,1.2,3,1,-", 0x1.12e88a638ce3fp+5, "1"},
        {"500,1800,48,56,1.0,4,2,-", 0x1.036b266071d22p+6, "2"},
        {"400,1500,52,62,0.8,8,3,-", 0x1.d55315b98795cp+6, "3"},
        {"400,1500,52,62,0.8,8,3.9,-", 0x1.d55315b98795cp+6, "3"},
        {"-,-,-,-,-,-,4,0.13", 91.0, "4"},
        {"80,240,36,44,1.5,4,5,-", 0.0, "5"},
        {"80,240,36,44,1.5,4,-2,-", 0.0, "-2"},
        {"80,240,36,44,1.5,4,1e300,-", 0.0, "-1"},
    };
    // Cell 10, main 50, main LPM 4, speaker 11 at volume 100 (11^1 - 1 = 10); k = 1.1 on the
    // cell and main-board shares of the on and always-on states above 1080 lines.
    struct State {
        int state, ambient;
        std::function<double(double blu, double k, bool type4)> watts;
    };
    const State states[] = {
        {0, 0, [](double blu, double k, bool) { return blu + 10.0 * k + 50.0 * k + 10.0; }},
        {4, 2, [](double, double, bool) { return 4.0; }},
        {2, 0, [](double, double, bool) { return 30.0; }},
        {2, 1, [](double blu, double k, bool) { return blu + 10.0 * k + 50.0 * k; }},
        {1, 0, [](double, double, bool type4) { return 35.0 + 10.0 + (type4 ? 17.0 : 0.0); }},
        {3, 0, [](double, double, bool) { return 0.0; }},
        // Suspended as well: low power without its ambient mode, and states 5 and -1.
        {4, 1, [](double, double, bool) { return 0.0; }},
        {5, 2, [](double, double, bool) { return 0.0; }},
        {-1, 1, [](double, double, bool) { return 0.0; }},
    };
    for (const auto& t : types) {
        WriteRow(t.blu);
        Calculator calc;
        ASSERT_TRUE(calc.Init());
        for (int resolution : {1080, 1081}) {
            Picture(resolution);
            for (const State& s : states) {
                SCOPED_TRACE(std::string(t.blu) + ", state " + std::to_string(s.state) + "/" +
                             std::to_string(s.ambient) + ", " + std::to_string(resolution));
                Set(s.state, s.ambient);
                const uint64_t mark = tvsim::LogMark();
                EXPECT_EQ(Watts(calc),
                          s.watts(t.watts, resolution > 1080 ? 1.1 : 1.0, t.type[0] == '4'));
                const bool blu_computed = s.state == 0 || (s.state == 2 && s.ambient == 1);
                EXPECT_EQ(tvsim::Logged(
                              DLOG_ERROR, kEnergy,
                              "[Energy] BLU Type " + std::string(t.type) + " is undefined", mark),
                          blu_computed && t.watts == 0.0);
            }
        }
    }
}

// With the picture off, the speaker adds nothing on an external output or when the platform
// cannot say which output is used or at what volume.
TEST_F(CalculatorTest, NoSpeakerTermWithoutTheTvSpeaker) {
    WriteRow(kType0);
    Calculator calc;
    ASSERT_TRUE(calc.Init());
    Set(1, 0, 100, 2);
    EXPECT_EQ(Watts(calc), 35.0);
    Set(1, 0);
    for (auto failing :
         {tvsim::Call::kSoundGetSpeakerSelection, tvsim::Call::kSoundGetTvMasterVolume}) {
        tvsim::ClearAllFailures();
        tvsim::FailCall(failing, -38);
        EXPECT_EQ(Watts(calc), 35.0);
    }
    EXPECT_EQ(CountLogged(DLOG_ERROR, kEnergy, "[Energy] failed to get the master volme"), 1u);
}

// Before a successful Init nothing is computed; the first loaded row is kept; one snapshot's
// watts and lines; a register missing leaves the previous result.
TEST_F(CalculatorTest, LifecycleAndOneSnapshot) {
    Calculator calc;
    const auto calculate = [&] { calc.Calculate(); };
    using Error = std::runtime_error;
    EXPECT_FALSE(calc.IsInitialized());
    EXPECT_THAT(calculate, ThrowsMessage<Error>("calculator has not been initialized"));
    EXPECT_EQ(calc.Time(), 0u);
    EXPECT_FALSE(calc.Init());  // no data file yet
    EXPECT_THAT(calculate, ThrowsMessage<Error>("calculator has not been initialized"));
    EXPECT_EQ(calc.PowerConsumption(), 0.0);

    WriteRow(kType0, "-,50,4,11");  // a missing factor enters the arithmetic as its marker
    ASSERT_TRUE(calc.Init());
    WriteRow(kType0, "10,80,4,11");
    ASSERT_TRUE(calc.Init());  // not reloaded
    EXPECT_TRUE(Logged(DLOG_ERROR, kEnergy, "[Energy] calculator has already been initialized"));
    Picture(2160);
    Set(0, 0, 20);
    const uint64_t mark = tvsim::LogMark();
    const time_t before = time(nullptr);
    const double watts =
        0x1.a0089536d7ccbp+4 + -12345678.0 * 1.1 + 50.0 * 1.1 + (std::pow(11.0, 0.2) - 1.0);
    EXPECT_EQ(Watts(calc), watts);
    EXPECT_GE(calc.Time(), static_cast<unsigned long>(before));
    EXPECT_LE(calc.Time(), static_cast<unsigned long>(time(nullptr)));
    std::string lines;
    for (const std::string& line : Catalogue(kEnergy, mark)) {
        lines += (line.rfind("I [Energy] UTC: ", 0) == 0 ? "(time)" : line) + "|";
    }
    EXPECT_EQ(lines,
              "D [ENERGY] memory/ave/powerconsumption: "
              "{\"ANA\":\"700\",\"DutySum\":\"800\",\"RESOLUTION\":\"2160\"}|(time)|"
              "I [Energy Factors] enum: 42, blu_type: 0|"
              "I [Energy Factors] ana:700, dutysum:800, resolution: 2160, volume: 20|"
              "I [Energy Factors] Power Status: NORMAL|I [Energy] ID: 42, Panel type: CT55AB1C01|"
              "I [Energy] BLU : 26.002095|I [Energy] cell : -13580245.800000|"
              "I [Energy] main_power : 55.000000|I [Energy] speaker : 0.615394|");

    tvsim::SetVconf("memory/ave/powerconsumption", std::string(R"({"ANA":"700","DutySum":"800"})"));
    EXPECT_THAT(calculate, ThrowsMessage<Error>("RESOLUTION is not available"));
    // Even a state that needs no register fails without ANA, DutySum or RESOLUTION.
    tvsim::SetVconf("memory/ave/powerconsumption",
                    std::string(R"({"DutySum":"800","RESOLUTION":"2160"})"));
    Set(3, 0);
    EXPECT_THAT(calculate, ThrowsMessage<Error>("ANA is not available"));
    EXPECT_EQ(calc.PowerConsumption(), watts);
}

}  // namespace
