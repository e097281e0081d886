// Calculator: every power state for every backlight type at both sides of the resolution
// threshold, the speaker curve, the failures and the log catalogue, on the simulated TV.
// Backlight watts were computed independently in IEEE double with the documented order of
// operations; the hex literals pin them to the bit.
#include <cmath>
#include <ctime>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Calculator.h"
#include "TestSupport.h"

using powermeter::Calculator;

namespace {

constexpr char kEnergy[] = "ENERGY_SERVICE";
constexpr char kSw[] = "24_CALC_TEST";
constexpr char kPanel[] = "CT55AB1C01";

struct Factors {
    std::string type = "0", od_min = "80", od_max = "240", vf_min = "36", vf_max = "44",
                alpha = "1.5", block = "4", compensate = "-", cell = "10", main = "50",
                main_lpm = "4", speaker = "11";
};

class CalculatorTest : public testsupport::SimTest {
  protected:
    void SetUp() override {
        tvsim::SetAppPath(tvsim::AppPath::kSharedResource, dir_.path());
        tvsim::SetModelName(std::string(kSw));
        tvsim::SetPanelType(std::string(kPanel));
        Picture(700, 800, 1080);
    }
    void WriteRow(const Factors& f) {
        testsupport::WriteText(dir_.File("energy_factors.dat"),
                               "ECF-TEST\n42,2024,VXCALC," + std::string(kSw) + ",55," + kPanel +
                                   ",LED," + f.od_min + "," + f.od_max + "," + f.vf_min + "," +
                                   f.vf_max + "," + f.alpha + "," + f.block + "," + f.type + "," +
                                   f.compensate + "," + f.cell + "," + f.main + "," + f.main_lpm +
                                   "," + f.speaker + "\n");
    }
    void Picture(int ana, int duty_sum, int resolution) {
        tvsim::SetVconf("memory/ave/powerconsumption",
                        "{\"ANA\":\"" + std::to_string(ana) + "\",\"DutySum\":\"" +
                            std::to_string(duty_sum) + "\",\"RESOLUTION\":\"" +
                            std::to_string(resolution) + "\"}");
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
    struct Type {
        Factors factors;
        double blu;  // at ANA 700, DutySum 800
        const char* shown;
    };
    auto type = [](const char* t, const char* od_min, const char* od_max, const char* vf_min,
                   const char* vf_max, const char* alpha, const char* block) {
        Factors f;
        f.type = t, f.od_min = od_min, f.od_max = od_max, f.vf_min = vf_min, f.vf_max = vf_max;
        f.alpha = alpha, f.block = block;
        return f;
    };
    Factors four;
    four.type = "4";
    four.od_min = four.od_max = four.vf_min = four.vf_max = four.alpha = four.block = "-";
    four.compensate = "0.13";
    const Type types[] = {
        {type("0", "80", "240", "36", "44", "1.5", "4"), 0x1.a0089536d7ccbp+4, "0"},
        {type("1", "600", "1600", "38", "46", "1.2", "3"), 0x1.12e88a638ce3fp+5, "1"},
        {type("2", "500", "1800", "48", "56", "1.0", "4"), 0x1.036b266071d22p+6, "2"},
        {type("3", "400", "1500", "52", "62", "0.8", "8"), 0x1.d55315b98795cp+6, "3"},
        {type("3.9", "400", "1500", "52", "62", "0.8", "8"), 0x1.d55315b98795cp+6, "3"},
        {four, 91.0, "4"},
        {type("5", "80", "240", "36", "44", "1.5", "4"), 0.0, "5"},
        {type("-2", "80", "240", "36", "44", "1.5", "4"), 0.0, "-2"},
        {type("1e300", "80", "240", "36", "44", "1.5", "4"), 0.0, "-1"},
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
    };
    for (const Type& t : types) {
        WriteRow(t.factors);
        Calculator calc;
        ASSERT_TRUE(calc.Init());
        for (int resolution : {1080, 1081}) {
            Picture(700, 800, resolution);
            for (const State& s : states) {
                SCOPED_TRACE("type " + t.factors.type + ", state " + std::to_string(s.state) +
                             ", ambient " + std::to_string(s.ambient) + ", " +
                             std::to_string(resolution) + " lines");
                Set(s.state, s.ambient);
                const uint64_t mark = tvsim::LogMark();
                EXPECT_EQ(Watts(calc),
                          s.watts(t.blu, resolution > 1080 ? 1.1 : 1.0, t.factors.type == "4"));
                const bool blu_computed = s.state == 0 || (s.state == 2 && s.ambient == 1);
                EXPECT_EQ(tvsim::Logged(
                              DLOG_ERROR, kEnergy,
                              "[Energy] BLU Type " + std::string(t.shown) + " is undefined", mark),
                          blu_computed && t.blu == 0.0);
            }
        }
    }
}

TEST_F(CalculatorTest, SpeakerCurveInPictureOff) {
    Factors f;
    f.type = "5";
    WriteRow(f);
    Calculator calc;
    ASSERT_TRUE(calc.Init());
    const struct {
        int volume, speaker;
        tvsim::Call failing;
        double term;
    } rows[] = {{100, 0, tvsim::Call::kDlogPrint, 10.0},
                {50, 0, tvsim::Call::kDlogPrint, std::sqrt(11.0) - 1.0},
                {0, 0, tvsim::Call::kDlogPrint, 0.0},
                {100, 2, tvsim::Call::kDlogPrint, 0.0},  // an external output: volume taken as 0
                {100, 0, tvsim::Call::kSoundGetSpeakerSelection, 0.0},
                {100, 0, tvsim::Call::kSoundGetTvMasterVolume, 0.0}};
    for (const auto& r : rows) {
        Set(1, 0, r.volume, r.speaker);
        tvsim::ClearAllFailures();
        if (r.failing != tvsim::Call::kDlogPrint) {
            tvsim::FailCall(r.failing, -38);
        }
        EXPECT_EQ(Watts(calc), 35.0 + r.term) << r.volume << " " << r.speaker;
    }
    EXPECT_EQ(CountLogged(DLOG_ERROR, kEnergy, "[Energy] failed to get the master volme"), 1u);
}

TEST_F(CalculatorTest, FailuresKeepThePreviousResult) {
    Calculator calc;
    auto error_of = [&] {
        try {
            calc.Calculate();
        } catch (const std::runtime_error& e) {
            return std::string(e.what());
        }
        return std::string("none");
    };
    EXPECT_FALSE(calc.IsInitialized());
    EXPECT_EQ(error_of(), "calculator has not been initialized");
    EXPECT_EQ(calc.PowerConsumption(), 0.0);
    EXPECT_EQ(calc.Time(), 0u);
    EXPECT_FALSE(calc.Init());  // no data file yet
    EXPECT_EQ(error_of(), "calculator has not been initialized");

    Factors f;
    f.cell = "-";  // a missing factor enters the arithmetic as its marker
    WriteRow(f);
    ASSERT_TRUE(calc.Init());
    EXPECT_TRUE(calc.IsInitialized());
    f.main = "80";
    WriteRow(f);
    ASSERT_TRUE(calc.Init());  // a successful load is kept: no reload
    Set(2, 0);
    EXPECT_EQ(Watts(calc), 30.0);
    Set(2, 1);
    EXPECT_EQ(Watts(calc), 0x1.a0089536d7ccbp+4 + -12345678.0 + 50.0);

    tvsim::SetVconf("memory/ave/powerconsumption", std::string(R"({"ANA":"700","DutySum":"800"})"));
    EXPECT_EQ(error_of(), "RESOLUTION is not available");
    // Even a state that needs no register fails without ANA, DutySum or RESOLUTION.
    tvsim::SetVconf("memory/ave/powerconsumption",
                    std::string(R"({"DutySum":"800","RESOLUTION":"2160"})"));
    Set(3, 0);
    EXPECT_EQ(error_of(), "ANA is not available");
    tvsim::SetVconf("memory/ave/powerconsumption", std::nullopt);
    EXPECT_EQ(error_of(), "RESOLUTION is not available");
    EXPECT_EQ(calc.PowerConsumption(), 0x1.a0089536d7ccbp+4 + -12345678.0 + 50.0);
}

TEST_F(CalculatorTest, LogCatalogueOfOneSnapshot) {
    WriteRow(Factors{});
    Calculator calc;
    ASSERT_TRUE(calc.Init());
    ASSERT_TRUE(calc.Init());
    Picture(700, 800, 2160);
    Set(0, 0, 20);
    const uint64_t mark = tvsim::LogMark();
    const time_t before = time(nullptr);
    EXPECT_EQ(Watts(calc), 0x1.a0089536d7ccbp+4 + 11.000000000000002 + 55.00000000000001 +
                               (std::pow(11.0, 0.2) - 1.0));
    EXPECT_GE(calc.Time(), static_cast<unsigned long>(before));
    EXPECT_LE(calc.Time(), static_cast<unsigned long>(time(nullptr)));
    std::vector<std::string> lines = Catalogue(kEnergy, mark);
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[1].rfind("I [Energy] UTC: ", 0), 0u);  // the snapshot's time
    lines.erase(lines.begin() + 1);
    EXPECT_EQ(lines, (std::vector<std::string>{
                         "D [ENERGY] memory/ave/powerconsumption: "
                         "{\"ANA\":\"700\",\"DutySum\":\"800\",\"RESOLUTION\":\"2160\"}",
                         "I [Energy Factors] enum: 42, blu_type: 0",
                         "I [Energy Factors] ana:700, dutysum:800, resolution: 2160, volume: 20",
                         "I [Energy Factors] Power Status: NORMAL",
                         "I [Energy] ID: 42, Panel type: CT55AB1C01",
                         "I [Energy] BLU : 26.002095",
                         "I [Energy] cell : 11.000000",
                         "I [Energy] main_power : 55.000000",
                         "I [Energy] speaker : 0.615394",
                     }));
    EXPECT_TRUE(Logged(DLOG_ERROR, kEnergy, "[Energy] calculator has already been initialized"));
}

}  // namespace
