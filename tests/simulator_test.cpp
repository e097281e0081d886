// The simulated TV: values, failure switches, the log sink and the time conversion.
#include <app_common.h>
#include <device_power.h>
#include <sound_manager.h>
#include <system_info.h>
#include <tu_time.h>
#include <vconf.h>

#include <ctime>
#include <thread>

#include "CString.h"
#include "TestSupport.h"

using testsupport::SimTest;

namespace {

class SimulatorTest : public SimTest {};

TEST_F(SimulatorTest, LogSinkKeepsPriorityTagAndText) {
    dlog_print(DLOG_ERROR, "TAG_A", "%s : %s(%d)  value %d", "file.cpp", "Func", 42, 7);
    dlog_print(DLOG_INFO, "TAG_B", "no prefix here");
    auto lines = tvsim::LinesSince(mark_);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].priority, DLOG_ERROR);
    EXPECT_EQ(lines[0].tag, "TAG_A");
    EXPECT_EQ(lines[0].text, "file.cpp : Func(42)  value 7");
    EXPECT_EQ(lines[0].Message(), "value 7");
    EXPECT_EQ(lines[1].Message(), "no prefix here");
    EXPECT_TRUE(tvsim::Logged(DLOG_ERROR, "TAG_A", "value 7", mark_));
    EXPECT_FALSE(tvsim::Logged(DLOG_INFO, "TAG_A", "value 7", mark_));
    EXPECT_FALSE(tvsim::Logged(DLOG_ERROR, "TAG_B", "value 7", mark_));
}

TEST_F(SimulatorTest, MessageKeepsParenthesesInsideTheMessage) {
    dlog_print(DLOG_INFO, "T", "a.cpp : F(1)  x (2)  y");
    EXPECT_EQ(tvsim::LinesSince(mark_).at(0).Message(), "x (2)  y");
}

TEST_F(SimulatorTest, MarksSelectLaterLinesAndRetentionDropsOldOnes) {
    dlog_print(DLOG_INFO, "T", "one");
    uint64_t mark = tvsim::LogMark();
    dlog_print(DLOG_INFO, "T", "two");
    auto since = tvsim::LinesSince(mark);
    ASSERT_EQ(since.size(), 1u);
    EXPECT_EQ(since[0].text, "two");

    tvsim::SetLogRetention(2);
    dlog_print(DLOG_INFO, "T", "three");
    auto all = tvsim::AllLines();
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[0].text, "two");
    tvsim::SetLogRetention(200000);
}

TEST_F(SimulatorTest, LongLinesAreKeptWhole) {
    std::string big(5000, 'x');
    dlog_print(DLOG_DEBUG, "T", "%s", big.c_str());
    EXPECT_EQ(tvsim::LinesSince(mark_).at(0).text, big);
}

TEST_F(SimulatorTest, ObserverSeesEveryLine) {
    std::vector<std::string> seen;
    tvsim::SetLogObserver([&](const tvsim::LogLine& l) { seen.push_back(l.tag + ":" + l.text); });
    dlog_print(DLOG_INFO, "T", "hello");
    tvsim::SetLogObserver(nullptr);
    dlog_print(DLOG_INFO, "T", "unseen");
    EXPECT_EQ(seen, std::vector<std::string>{"T:hello"});
}

TEST_F(SimulatorTest, EchoWritesPriorityNameToStderr) {
    tvsim::SetLogEcho(true, DLOG_INFO);
    testing::internal::CaptureStderr();
    dlog_print(DLOG_DEBUG, "T", "quiet");
    dlog_print(DLOG_ERROR, "T", "loud");
    std::string err = testing::internal::GetCapturedStderr();
    tvsim::SetLogEcho(false);
    EXPECT_EQ(err, "ERROR T: loud\n");
}

TEST_F(SimulatorTest, ValuesAndClearing) {
    tvsim::SetVconf("memory/x", "abc");
    EXPECT_EQ(common::TakeString(vconf_get_str("memory/x")), "abc");
    tvsim::SetVconf("memory/x", std::nullopt);
    EXPECT_EQ(vconf_get_str("memory/x"), nullptr);

    char* text = nullptr;
    EXPECT_EQ(system_info_get_value_string(SYSTEM_INFO_KEY_MODEL, &text),
              SYSTEM_INFO_ERROR_NO_SUCH_KEY);
    tvsim::SetModelName("QN65Z9");
    ASSERT_EQ(system_info_get_value_string(SYSTEM_INFO_KEY_MODEL, &text), 0);
    EXPECT_EQ(common::TakeString(text), "QN65Z9");
    tvsim::SetSystemInfoString(SYSTEM_INFO_KEY_PANEL_TYPE_STRING, tvsim::Text::Null());
    text = reinterpret_cast<char*>(1);
    ASSERT_EQ(system_info_get_value_string(SYSTEM_INFO_KEY_PANEL_TYPE_STRING, &text), 0);
    EXPECT_EQ(text, nullptr);

    int year = 0;
    EXPECT_NE(system_info_get_custom_int("com.veltrix/featureconf/product.tv_year", &year), 0);
    tvsim::SetModelYear(24);
    EXPECT_EQ(system_info_get_custom_int("com.veltrix/featureconf/product.tv_year", &year), 0);
    EXPECT_EQ(year, 24);

    tvsim::SetMasterVolume(35);
    tvsim::SetSpeakerSelection(2);
    tvsim::SetPowerState(4);
    tvsim::SetAmbientMode(2);
    int v = -1, sel = -1;
    EXPECT_EQ(sound_manager_get_tv_master_volume(&v), 0);
    EXPECT_EQ(sound_manager_get_speaker_selection(&sel), 0);
    EXPECT_EQ(v, 35);
    EXPECT_EQ(sel, 2);
    EXPECT_EQ(device_power_get_state(), 4);
    EXPECT_EQ(device_power_get_ambient_mode(), 2);

    tvsim::SetAppPath(tvsim::AppPath::kData, "/tmp/data/");
    EXPECT_EQ(common::TakeString(app_get_data_path()), "/tmp/data/");
    EXPECT_EQ(app_get_shared_resource_path(), nullptr);

    tvsim::Reset();
    EXPECT_EQ(app_get_data_path(), nullptr);
    EXPECT_EQ(device_power_get_state(), 0);
}

TEST_F(SimulatorTest, EveryFailureSwitchMakesItsCallFail) {
    tvsim::SetVconf("k", "v");
    tvsim::SetModelName("M");
    tvsim::SetCustomString("c", tvsim::Text::Of("s"));
    tvsim::SetModelYear(23);
    tvsim::SetAppPath(tvsim::AppPath::kData, "/d/");
    tvsim::SetAppId("id");

    tvsim::FailCall(tvsim::Call::kVconfGetStr, -1);
    EXPECT_EQ(vconf_get_str("k"), nullptr);
    char* text = nullptr;
    tvsim::FailCall(tvsim::Call::kSystemInfoGetValueString, -5);
    EXPECT_EQ(system_info_get_value_string(SYSTEM_INFO_KEY_MODEL, &text), -5);
    tvsim::FailCall(tvsim::Call::kSystemInfoGetCustomString, -6);
    EXPECT_EQ(system_info_get_custom_string("c", &text), -6);
    int i = 0;
    tvsim::FailCall(tvsim::Call::kSystemInfoGetCustomInt, -7);
    EXPECT_EQ(system_info_get_custom_int("com.veltrix/featureconf/product.tv_year", &i), -7);
    tvsim::FailCall(tvsim::Call::kSoundGetTvMasterVolume, -8);
    EXPECT_EQ(sound_manager_get_tv_master_volume(&i), -8);
    tvsim::FailCall(tvsim::Call::kSoundGetSpeakerSelection, -9);
    EXPECT_EQ(sound_manager_get_speaker_selection(&i), -9);
    tvsim::FailCall(tvsim::Call::kDevicePowerGetState, -10);
    EXPECT_EQ(device_power_get_state(), -10);
    tvsim::FailCall(tvsim::Call::kDevicePowerGetAmbientMode, -11);
    EXPECT_EQ(device_power_get_ambient_mode(), -11);
    tvsim::FailCall(tvsim::Call::kAppGetDataPath, -1);
    EXPECT_EQ(app_get_data_path(), nullptr);
    tvsim::FailCall(tvsim::Call::kAppGetId, -12);
    EXPECT_EQ(app_get_id(&text), -12);
    TU_PTTime t{};
    t.year = 77;
    tvsim::FailCall(tvsim::Call::kTimeFromSec, -13);
    EXPECT_EQ(TU_GetPTTimeFromSec(&t, 0), -13);
    EXPECT_EQ(t.year, 77);

    tvsim::ClearAllFailures();
    EXPECT_EQ(common::TakeString(vconf_get_str("k")), "v");
    EXPECT_EQ(device_power_get_state(), 0);
    EXPECT_EQ(common::TakeString(app_get_data_path()), "/d/");
    EXPECT_EQ(tvsim::CallCount(tvsim::Call::kVconfGetStr), 2u);
}

TEST_F(SimulatorTest, FailedLogCallRecordsNothing) {
    tvsim::FailCall(tvsim::Call::kDlogPrint, -1);
    EXPECT_EQ(dlog_print(DLOG_ERROR, "T", "lost"), -1);
    tvsim::ClearFailure(tvsim::Call::kDlogPrint);
    EXPECT_TRUE(tvsim::LinesSince(mark_).empty());
}

TEST_F(SimulatorTest, TimeConversionAgreesWithGmtimeOnBoundaries) {
    const unsigned long cases[] = {0ul,
                                   1609459199ul /* 2020-12-31 23:59:59 */,
                                   1609459200ul /* 2021-01-01 00:00:00 */,
                                   2147483647ul /* 2038-01-19 03:14:07 */,
                                   2147483648ul,
                                   951782400ul /* 2000-02-29 */,
                                   4294967295ul /* 2106-02-07 06:28:15 */};
    for (unsigned long s : cases) {
        TU_PTTime t{};
        ASSERT_EQ(TU_GetPTTimeFromSec(&t, s), 0) << s;
        std::time_t tt = static_cast<std::time_t>(s);
        std::tm tm{};
        ASSERT_NE(gmtime_r(&tt, &tm), nullptr);
        EXPECT_EQ(t.year, tm.tm_year + 1900) << s;
        EXPECT_EQ(t.month, tm.tm_mon + 1) << s;
        EXPECT_EQ(t.day, tm.tm_mday) << s;
        EXPECT_EQ(t.hour, tm.tm_hour) << s;
        EXPECT_EQ(t.minute, tm.tm_min) << s;
        EXPECT_EQ(t.second, tm.tm_sec) << s;
    }
    TU_PTTime t{};
    TU_GetPTTimeFromSec(&t, 1609459199ul);
    EXPECT_EQ((std::vector<int>{t.year, t.month, t.day, t.hour, t.minute, t.second}),
              (std::vector<int>{2020, 12, 31, 23, 59, 59}));
    TU_GetPTTimeFromSec(&t, 4294967295ul);
    EXPECT_EQ((std::vector<int>{t.year, t.month, t.day, t.hour, t.minute, t.second}),
              (std::vector<int>{2106, 2, 7, 6, 28, 15}));
}

TEST_F(SimulatorTest, ReadersAndWritersOnDifferentThreads) {
    std::thread writer([] {
        for (int i = 0; i < 2000; ++i) {
            tvsim::SetMasterVolume(i % 101);
            tvsim::SetVconf("k", std::to_string(i));
        }
    });
    for (int i = 0; i < 2000; ++i) {
        int v = -1;
        ASSERT_EQ(sound_manager_get_tv_master_volume(&v), 0);
        ASSERT_GE(v, 0);
        ASSERT_LE(v, 100);
        common::TakeString(vconf_get_str("k"));
        dlog_print(DLOG_DEBUG, "T", "%d", i);
    }
    writer.join();
}

}  // namespace
