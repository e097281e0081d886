// Registers, Sound and PowerStatus against the simulated platform.
#include <string>

#include "PowerStatus.h"
#include "Registers.h"
#include "SharedJson.h"
#include "Sound.h"
#include "TestSupport.h"

using powermeter::Registers;
using testsupport::SimTest;

namespace {

constexpr const char kEnergy[] = "ENERGY_SERVICE";
constexpr const char kKey[] = "memory/ave/powerconsumption";

const powermeter::_SYSTEMREGISTER kAll[] = {
    powermeter::ANA,   powermeter::DutySum,    powermeter::APL,
    powermeter::BLOSD, powermeter::RESOLUTION, powermeter::PC,
    powermeter::HDR,   powermeter::IDS,        powermeter::TEMP,
};

class RegistersTest : public SimTest {
  protected:
    Registers Refreshed(const std::string& text) {
        tvsim::SetVconf(kKey, text);
        Registers r;
        r.Refresh();
        return r;
    }
    static int Available(const Registers& r) {
        int n = 0;
        for (auto reg : kAll) {
            n += r.IsAvailable(reg) ? 1 : 0;
        }
        return n;
    }
};

TEST_F(RegistersTest, DecimalStringMembersAreRead) {
    Registers r = Refreshed(R"({"ANA":"512","DutySum":"300","RESOLUTION":"2160"})");
    EXPECT_EQ(r.Value(powermeter::ANA), 512);
    EXPECT_EQ(r.Value(powermeter::DutySum), 300);
    EXPECT_EQ(r.Value(powermeter::RESOLUTION), 2160);
    EXPECT_EQ(Available(r), 3);
    try {
        r.Value(powermeter::TEMP);
        FAIL() << "TEMP should not be available";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "TEMP is not available");
    }
    EXPECT_TRUE(Logged(DLOG_DEBUG, kEnergy,
                       std::string("[ENERGY] memory/ave/powerconsumption: ") +
                           R"({"ANA":"512","DutySum":"300","RESOLUTION":"2160"})"));
}

TEST_F(RegistersTest, AllNineNamesAndOthersIgnored) {
    Registers r =
        Refreshed(R"({"ANA":"1","DutySum":"2","APL":"3","BLOSD":"4","RESOLUTION":"5","PC":"6",)"
                  R"("HDR":"7","IDS":"8","TEMP":"9","ana":"10","Other":"11"})");
    for (int i = 0; i < 9; ++i) {
        EXPECT_EQ(r.Value(kAll[i]), i + 1);
    }
}

TEST_F(RegistersTest, NoTextDashOrNonJsonLeavesAllUnavailable) {
    Registers r;
    r.Refresh();  // key not set
    EXPECT_EQ(Available(r), 0);
    EXPECT_TRUE(
        Logged(DLOG_ERROR, kEnergy, "[ENERGY] failed to get vconf: memory/ave/powerconsumption"));
    EXPECT_TRUE(Logged(DLOG_DEBUG, kEnergy, "[ENERGY] memory/ave/powerconsumption: -"));
    EXPECT_EQ(Available(Refreshed("-")), 0);
    EXPECT_EQ(Available(Refreshed("{\"ANA\":\"1\"")), 0);
    EXPECT_EQ(Available(Refreshed("")), 0);
    EXPECT_EQ(Available(Refreshed("null")), 0);
    EXPECT_EQ(Available(Refreshed("{}")), 0);
    try {
        r.Value(powermeter::RESOLUTION);
        FAIL();
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "RESOLUTION is not available");
    }
}

TEST_F(RegistersTest, MemberTextConversion) {
    // JSON numbers are read through their text form, like decimal strings.
    Registers r = Refreshed(
        R"({"ANA":512,"DutySum":700.9,"APL":"abc","BLOSD":"-12345678","RESOLUTION":" 1080x",)"
        R"("PC":"99999999999","HDR":"-99999999999","IDS":null,"TEMP":true})");
    EXPECT_EQ(r.Value(powermeter::ANA), 512);
    EXPECT_EQ(r.Value(powermeter::DutySum), 700);
    EXPECT_EQ(r.Value(powermeter::APL), 0);
    EXPECT_FALSE(r.IsAvailable(powermeter::BLOSD));  // the marker itself
    EXPECT_EQ(r.Value(powermeter::RESOLUTION), 1080);
    EXPECT_EQ(r.Value(powermeter::PC), 2147483647);  // saturates as on the set
    EXPECT_EQ(r.Value(powermeter::HDR), -2147483647 - 1);
    EXPECT_EQ(r.Value(powermeter::IDS), 0);
    EXPECT_EQ(r.Value(powermeter::TEMP), 0);
    EXPECT_EQ(Refreshed(R"({"ANA":-12345678})").IsAvailable(powermeter::ANA), false);
}

TEST_F(RegistersTest, RefreshForgetsThePreviousSnapshot) {
    tvsim::SetVconf(kKey, std::string(R"({"ANA":"5","TEMP":"40"})"));
    Registers r;
    r.Refresh();
    EXPECT_EQ(Available(r), 2);
    tvsim::SetVconf(kKey, std::string(R"({"ANA":"6"})"));
    r.Refresh();
    EXPECT_EQ(r.Value(powermeter::ANA), 6);
    EXPECT_FALSE(r.IsAvailable(powermeter::TEMP));
    tvsim::FailCall(tvsim::Call::kVconfGetStr, -1);
    r.Refresh();
    EXPECT_EQ(Available(r), 0);
}

TEST_F(RegistersTest, ContainerValuesThrowOutOfRefresh) {
    // A document that is not an object, or a member that has no text form, is a JSON error
    // that the metering turn reports; members read before it keep their values.
    tvsim::SetVconf(kKey, std::string("[1,2]"));
    Registers r;
    EXPECT_THROW(r.Refresh(), common::json::JsonException);
    tvsim::SetVconf(kKey, std::string(R"({"ANA":"5","DutySum":{"x":1}})"));
    EXPECT_THROW(r.Refresh(), common::json::JsonException);
    EXPECT_EQ(r.Value(powermeter::ANA), 5);
    EXPECT_FALSE(r.IsAvailable(powermeter::DutySum));
}

class SoundTest : public SimTest {};

TEST_F(SoundTest, VolumeAndItsFailure) {
    tvsim::SetMasterVolume(37);
    EXPECT_EQ(powermeter::Sound::Volume(), 37);
    tvsim::FailCall(tvsim::Call::kSoundGetTvMasterVolume, -38);
    EXPECT_EQ(powermeter::Sound::Volume(), 0);
    EXPECT_TRUE(Logged(DLOG_ERROR, kEnergy, "[Energy] failed to get the master volme"));
}

TEST_F(SoundTest, OnlyASuccessfulZeroSelectionIsTheTvSpeaker) {
    tvsim::SetSpeakerSelection(0);
    EXPECT_TRUE(powermeter::Sound::IsTVSpeaker());
    tvsim::SetSpeakerSelection(2);
    EXPECT_FALSE(powermeter::Sound::IsTVSpeaker());
    tvsim::SetSpeakerSelection(0);
    tvsim::FailCall(tvsim::Call::kSoundGetSpeakerSelection, -38);
    EXPECT_FALSE(powermeter::Sound::IsTVSpeaker());
    EXPECT_TRUE(Messages(kEnergy).empty());
}

class PowerStatusTest : public SimTest {
  protected:
    powermeter::_PowerStatusForEnergy Map(int state, int ambient) {
        tvsim::SetPowerState(state);
        tvsim::SetAmbientMode(ambient);
        return powermeter::PowerStatus::GetCurrent();
    }
};

TEST_F(PowerStatusTest, MappingTable) {
    using namespace powermeter;
    for (int ambient : {-1, 0, 1, 2, 3}) {
        SCOPED_TRACE(ambient);
        EXPECT_EQ(Map(0, ambient), NORMAL);
        EXPECT_EQ(Map(1, ambient), PICTURE_OFF);
        EXPECT_EQ(Map(2, ambient), ambient == 1 ? ALWAYS_ON_SCREEN : BACKGROUND_STANDBY);
        EXPECT_EQ(Map(3, ambient), SUSPEND);
        EXPECT_EQ(Map(4, ambient), ambient == 2 ? LPM : SUSPEND);
        EXPECT_EQ(Map(5, ambient), SUSPEND);
        EXPECT_EQ(Map(-1, ambient), SUSPEND);
    }
    // The ambient mode is read even when the state does not need it.
    const uint64_t calls = tvsim::CallCount(tvsim::Call::kDevicePowerGetAmbientMode);
    Map(0, 0);
    EXPECT_EQ(tvsim::CallCount(tvsim::Call::kDevicePowerGetAmbientMode), calls + 1);
    // A failing state query is an error code, hence SUSPEND.
    tvsim::SetPowerState(0);
    tvsim::FailCall(tvsim::Call::kDevicePowerGetState, -5);
    EXPECT_EQ(PowerStatus::GetCurrent(), SUSPEND);
}

TEST_F(PowerStatusTest, PrintNamesEveryStateAndNothingElse) {
    using namespace powermeter;
    for (int s = NORMAL; s <= MAX_POWER_STATUS_FOR_ENERGY + 1; ++s) {
        PowerStatus::Print(static_cast<_PowerStatusForEnergy>(s));
    }
    const std::vector<std::string> expected = {
        "[Energy Factors] Power Status: NORMAL",
        "[Energy Factors] Power Status: LPM",
        "[Energy Factors] Power Status: BACKGROUND_STANDBY",
        "[Energy Factors] Power Status: ALWAYS_ON_SCREEN",
        "[Energy Factors] Power Status: PICTURE_OFF",
        "[Energy Factors] Power Status: SUSPEND",
        "[Energy Factors] Power Status: MAX_POWER_STATUS_FOR_ENERGY",
    };
    EXPECT_EQ(Messages(kEnergy), expected);
}

}  // namespace
