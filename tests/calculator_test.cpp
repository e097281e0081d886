// Calculator: initialisation, every power state, every backlight type, the resolution
// threshold, the speaker curve and the failures, on the simulated TV. Expected watts were
// computed independently in IEEE double with the documented order of operations; the hex
// literals pin them to the bit.
#include <cmath>
#include <ctime>
#include <stdexcept>
#include <string>
#include <vector>

#include "Calculator.h"
#include "TestSupport.h"

using powermeter::Calculator;
using testsupport::SimTest;
using testsupport::TempDir;

namespace {

constexpr const char kEnergy[] = "ENERGY_SERVICE";
constexpr const char kSw[] = "24_CALC_TEST";
constexpr const char kPanel[] = "CT55AB1C01";

struct Factors {
    std::string od_min = "80", od_max = "240", vf_min = "36", vf_max = "44", alpha = "1.5",
                block = "4", type = "0", compensate = "-";
    std::string cell = "10", main = "50", main_lpm = "4", speaker = "11";
    int id = 42;
};

std::string RowOf(const Factors& f) {
    return std::to_string(f.id) + ",2024,VXCALC," + kSw + ",55," + kPanel + ",LED," + f.od_min +
           "," + f.od_max + "," + f.vf_min + "," + f.vf_max + "," + f.alpha + "," + f.block + "," +
           f.type + "," + f.compensate + "," + f.cell + "," + f.main + "," + f.main_lpm + "," +
           f.speaker;
}

class CalculatorTest : public SimTest {
  protected:
    void SetUp() override {
        SimTest::SetUp();
        tvsim::SetAppPath(tvsim::AppPath::kSharedResource, dir_.path());
        tvsim::SetModelName(std::string(kSw));
        tvsim::SetPanelType(std::string(kPanel));
        Picture(700, 800, 1080);
        Speaker(0, true);
        State(0, 0);
    }
    void WriteRow(const Factors& f) {
        testsupport::WriteText(dir_.File("energy_factors.dat"), "ECF-TEST\n" + RowOf(f) + "\n");
    }
    void Init(const Factors& f) {
        WriteRow(f);
        ASSERT_TRUE(calc_.Init());
    }
    void Picture(int ana, int duty_sum, int resolution) {
        tvsim::SetVconf("memory/ave/powerconsumption",
                        "{\"ANA\":\"" + std::to_string(ana) + "\",\"DutySum\":\"" +
                            std::to_string(duty_sum) + "\",\"RESOLUTION\":\"" +
                            std::to_string(resolution) + "\"}");
    }
    void Speaker(int volume, bool tv_speaker) {
        tvsim::SetMasterVolume(volume);
        tvsim::SetSpeakerSelection(tv_speaker ? 0 : 1);
    }
    void State(int state, int ambient) {
        tvsim::SetPowerState(state);
        tvsim::SetAmbientMode(ambient);
    }
    double Watts() {
        calc_.Calculate();
        return calc_.PowerConsumption();
    }
    // The term messages ("[Energy] BLU : ...", cell, main_power, speaker) logged since mark.
    std::vector<std::string> Terms(uint64_t mark) {
        std::vector<std::string> out;
        for (const auto& line : tvsim::LinesSince(mark)) {
            const std::string m = line.Message();
            if (m.rfind("[Energy] BLU", 0) == 0 || m.rfind("[Energy] cell", 0) == 0 ||
                m.rfind("[Energy] main_power", 0) == 0 || m.rfind("[Energy] speaker", 0) == 0) {
                out.push_back(m);
            }
        }
        return out;
    }
    TempDir dir_;
    Calculator calc_;
};

TEST_F(CalculatorTest, CalculateBeforeInitThrows) {
    EXPECT_FALSE(calc_.IsInitialized());
    try {
        calc_.Calculate();
        FAIL();
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "calculator has not been initialized");
    }
    EXPECT_EQ(calc_.PowerConsumption(), 0.0);
    EXPECT_EQ(calc_.Time(), 0u);
}

TEST_F(CalculatorTest, FailedInitPrintsDefaultsAndCanBeRetriedOnce) {
    EXPECT_FALSE(calc_.Init());  // no data file yet
    EXPECT_TRUE(Logged(DLOG_INFO, kEnergy, "[Energy] === -1 === "));
    EXPECT_TRUE(Logged(DLOG_INFO, kEnergy, "[Energy] OD_MIN: N/A"));
    EXPECT_THROW(calc_.Calculate(), std::runtime_error);

    Factors f;
    f.main = "50";
    WriteRow(f);
    EXPECT_TRUE(calc_.Init());
    EXPECT_TRUE(calc_.IsInitialized());
    EXPECT_TRUE(Logged(DLOG_INFO, kEnergy, "[Energy] === 42 === "));

    // A successful load is kept: a later Init does not reload.
    f.main = "80";
    WriteRow(f);
    EXPECT_TRUE(calc_.Init());
    EXPECT_TRUE(Logged(DLOG_ERROR, kEnergy, "[Energy] calculator has already been initialized"));
    State(2, 0);
    EXPECT_EQ(Watts(), 30.0);
}

TEST_F(CalculatorTest, EachPowerState) {
    Factors f;
    f.type = "3";
    f.od_min = "400";
    f.od_max = "1500";
    f.vf_min = "52";
    f.vf_max = "62";
    f.alpha = "0.8";
    f.block = "8";
    Init(f);
    Speaker(100, true);                       // speaker term 11^1 - 1 = 10
    const double blu = 0x1.d55315b98795cp+6;  // 117.33113756074948

    State(0, 0);
    EXPECT_EQ(Watts(), blu + 10.0 + 50.0 + 10.0);
    EXPECT_TRUE(Logged(DLOG_INFO, kEnergy, "[Energy Factors] Power Status: NORMAL"));
    State(4, 2);
    EXPECT_EQ(Watts(), 4.0);
    State(2, 0);
    EXPECT_EQ(Watts(), 30.0);
    State(2, 1);
    EXPECT_EQ(Watts(), blu + 10.0 + 50.0);
    State(1, 0);
    EXPECT_EQ(Watts(), 35.0 + 10.0);
    State(3, 0);
    const uint64_t mark = tvsim::LogMark();
    EXPECT_EQ(Watts(), 0.0);
    EXPECT_TRUE(Terms(mark).empty());
    EXPECT_TRUE(tvsim::Logged(DLOG_INFO, kEnergy, "[Energy Factors] Power Status: SUSPEND", mark));
}

TEST_F(CalculatorTest, PictureOffAddsSeventeenWattsForTypeFourOnly) {
    Factors f;
    f.type = "4";
    f.compensate = "0.13";
    Init(f);
    Speaker(100, false);
    State(1, 0);
    EXPECT_EQ(Watts(), 52.0);

    Calculator other;
    f.type = "3";
    WriteRow(f);
    ASSERT_TRUE(other.Init());
    other.Calculate();
    EXPECT_EQ(other.PowerConsumption(), 35.0);
}

TEST_F(CalculatorTest, BacklightTypesZeroToThree) {
    struct Case {
        const char* type;
        const char *od_min, *od_max, *vf_min, *vf_max, *alpha, *block;
        double expected;
    };
    const Case cases[] = {
        {"0", "80", "240", "36", "44", "1.5", "4", 0x1.a0089536d7ccbp+4},      // 26.0021
        {"1", "600", "1600", "38", "46", "1.2", "3", 0x1.12e88a638ce3fp+5},    // 34.3635
        {"2", "500", "1800", "48", "56", "1.0", "4", 0x1.036b266071d22p+6},    // 64.8546
        {"3", "400", "1500", "52", "62", "0.8", "8", 0x1.d55315b98795cp+6},    // 117.3311
        {"3.9", "400", "1500", "52", "62", "0.8", "8", 0x1.d55315b98795cp+6},  // truncated
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.type);
        Calculator calc;
        Factors f;
        f.type = c.type;
        f.od_min = c.od_min;
        f.od_max = c.od_max;
        f.vf_min = c.vf_min;
        f.vf_max = c.vf_max;
        f.alpha = c.alpha;
        f.block = c.block;
        f.cell = "0";
        f.main = "0";
        WriteRow(f);
        ASSERT_TRUE(calc.Init());
        State(2, 1);  // always-on screen: blu + cell + main, no speaker
        calc.Calculate();
        EXPECT_EQ(calc.PowerConsumption(), c.expected);
    }
}

TEST_F(CalculatorTest, BacklightFullScaleExamples) {
    // OD 100..200, ANA and DutySum at full scale, VF 3, BLOCK 10: current 0.2 A, 3 V.
    const struct {
        const char* type;
        int duty_sum;
        double expected;
    } cases[] = {{"0", 1023, 6.3}, {"1", 4095, 6.3}, {"2", 4095, 13.0}, {"3", 4095, 6.72}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.type);
        Calculator calc;
        Factors f;
        f.type = c.type;
        f.od_min = "100";
        f.od_max = "200";
        f.vf_min = "3";
        f.vf_max = "3";
        f.alpha = "0";
        f.block = "10";
        f.cell = "0";
        f.main = "0";
        WriteRow(f);
        ASSERT_TRUE(calc.Init());
        Picture(1023, c.duty_sum, 1080);
        State(2, 1);
        calc.Calculate();
        EXPECT_DOUBLE_EQ(calc.PowerConsumption(), c.expected);
    }
}

TEST_F(CalculatorTest, TypeFourUsesAnaTimesCompensateConstant) {
    Factors f;
    f.type = "4";
    f.od_min = f.od_max = f.vf_min = f.vf_max = f.alpha = f.block = "-";
    f.compensate = "0.13";
    Init(f);
    State(2, 1);
    EXPECT_EQ(Watts(), 91.0 + 10.0 + 50.0);
    EXPECT_TRUE(Logged(DLOG_INFO, kEnergy, "[Energy] BLU : 91.000000"));
}

TEST_F(CalculatorTest, UndefinedBacklightTypesContributeNothing) {
    for (const char* type : {"5", "6", "-2", "1e300"}) {
        SCOPED_TRACE(type);
        Calculator calc;
        Factors f;
        f.type = type;
        WriteRow(f);
        ASSERT_TRUE(calc.Init());
        const uint64_t mark = tvsim::LogMark();
        calc.Calculate();
        EXPECT_EQ(calc.PowerConsumption(), 0.0 + 10.0 + 50.0);
        const std::string shown = std::string(type) == "1e300" ? "-1" : type;
        EXPECT_TRUE(tvsim::Logged(DLOG_ERROR, kEnergy,
                                  "[Energy] BLU Type " + shown + " is undefined", mark));
        EXPECT_TRUE(tvsim::Logged(DLOG_INFO, kEnergy, "[Energy] BLU : 0.000000", mark));
    }
}

TEST_F(CalculatorTest, ResolutionThresholdIs1080) {
    Factors f;
    f.type = "5";  // no backlight term
    Init(f);
    Picture(700, 800, 1080);
    EXPECT_EQ(Watts(), 60.0);
    State(2, 1);
    EXPECT_EQ(Watts(), 60.0);

    Picture(700, 800, 1081);
    EXPECT_EQ(Watts(), 10.0 * 1.1 + 50.0 * 1.1);
    EXPECT_TRUE(Logged(DLOG_INFO, kEnergy, "[Energy] cell : 11.000000"));
    EXPECT_TRUE(Logged(DLOG_INFO, kEnergy, "[Energy] main_power : 55.000000"));
    State(0, 0);
    EXPECT_EQ(Watts(), 10.0 * 1.1 + 50.0 * 1.1);
    // The other states' main-board shares do not depend on the resolution.
    State(2, 0);
    EXPECT_EQ(Watts(), 30.0);
    State(1, 0);
    EXPECT_EQ(Watts(), 35.0);
    // Back to 1080: the constants are recomputed at every snapshot.
    Picture(700, 800, 1080);
    State(0, 0);
    EXPECT_EQ(Watts(), 60.0);
}

TEST_F(CalculatorTest, SpeakerCurve) {
    Factors f;
    f.type = "5";
    f.cell = "0";
    f.main = "0";
    Init(f);
    Speaker(100, true);
    EXPECT_EQ(Watts(), 10.0);
    Speaker(50, true);
    EXPECT_EQ(Watts(), std::sqrt(11.0) - 1.0);
    Speaker(0, true);
    EXPECT_EQ(Watts(), 0.0);
    Speaker(100, false);  // external output: volume taken as 0
    EXPECT_EQ(Watts(), 0.0);
    Speaker(100, true);
    tvsim::FailCall(tvsim::Call::kSoundGetTvMasterVolume, -38);
    EXPECT_EQ(Watts(), 0.0);
    EXPECT_TRUE(Logged(DLOG_ERROR, kEnergy, "[Energy] failed to get the master volme"));
}

TEST_F(CalculatorTest, TermsAndSnapshotAreLoggedInOrder) {
    Init(Factors{});
    Picture(700, 800, 2160);
    Speaker(20, true);
    const uint64_t mark = tvsim::LogMark();
    const time_t before = time(nullptr);
    const double watts = Watts();
    const time_t after = time(nullptr);
    EXPECT_GE(calc_.Time(), static_cast<unsigned long>(before));
    EXPECT_LE(calc_.Time(), static_cast<unsigned long>(after));
    // 26.0021 + 11 + 55 + (11^0.2 - 1)
    EXPECT_EQ(watts, 0x1.a0089536d7ccbp+4 + 11.000000000000002 + 55.00000000000001 +
                         (std::pow(11.0, 0.2) - 1.0));
    const std::vector<std::string> terms = {
        "[Energy] BLU : 26.002095",
        "[Energy] cell : 11.000000",
        "[Energy] main_power : 55.000000",
        "[Energy] speaker : 0.615394",
    };
    EXPECT_EQ(Terms(mark), terms);
    EXPECT_TRUE(Logged(DLOG_INFO, kEnergy, "[Energy Factors] enum: 42, blu_type: 0"));
    EXPECT_TRUE(Logged(DLOG_INFO, kEnergy,
                       "[Energy Factors] ana:700, dutysum:800, resolution: 2160, volume: 20"));
    EXPECT_TRUE(Logged(DLOG_INFO, kEnergy, "[Energy] ID: 42, Panel type: CT55AB1C01"));
}

TEST_F(CalculatorTest, MissingRegistersThrowAndKeepThePreviousResult) {
    Init(Factors{});
    State(2, 0);
    EXPECT_EQ(Watts(), 30.0);

    tvsim::SetVconf("memory/ave/powerconsumption", std::string(R"({"ANA":"700","DutySum":"800"})"));
    State(0, 0);
    try {
        calc_.Calculate();
        FAIL();
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "RESOLUTION is not available");
    }
    EXPECT_EQ(calc_.PowerConsumption(), 30.0);

    // Even a state that needs no register fails without ANA, DutySum or RESOLUTION.
    tvsim::SetVconf("memory/ave/powerconsumption",
                    std::string(R"({"DutySum":"800","RESOLUTION":"2160"})"));
    State(3, 0);
    try {
        calc_.Calculate();
        FAIL();
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "ANA is not available");
    }
    tvsim::SetVconf("memory/ave/powerconsumption", std::nullopt);
    EXPECT_THROW(calc_.Calculate(), std::runtime_error);
    EXPECT_EQ(calc_.PowerConsumption(), 30.0);
}

TEST_F(CalculatorTest, MissingFactorsEnterTheArithmetic) {
    Factors f;
    f.type = "5";
    f.cell = "-";
    Init(f);
    EXPECT_EQ(Watts(), -12345678.0 + 50.0);
    State(4, 2);
    f.main_lpm = "-";
    Calculator other;
    WriteRow(f);
    ASSERT_TRUE(other.Init());
    other.Calculate();
    EXPECT_EQ(other.PowerConsumption(), -12345678.0);
}

}  // namespace
