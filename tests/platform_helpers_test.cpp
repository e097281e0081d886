// AppInfoUtil, SystemInfoUtil and TimeUtil against the simulated platform: results and exact log
// lines for every success and failure path.
#include "AppInfoUtil.h"
#include "SystemInfoUtil.h"
#include "TestSupport.h"
#include "TimeUtil.h"

using testsupport::SimTest;

namespace {

constexpr const char kCommon[] = "WEXF_COMMON";
constexpr const char kEnergy[] = "ENERGY_SERVICE";

class AppInfoUtilTest : public SimTest {};

TEST_F(AppInfoUtilTest, PathsAreReturnedAsThePlatformGivesThem) {
    tvsim::SetAppPath(tvsim::AppPath::kData, "/opt/usr/home/owner/apps_rw/x/data/");
    tvsim::SetAppPath(tvsim::AppPath::kSharedResource, "/res/no-trailing-slash");
    tvsim::SetAppPath(tvsim::AppPath::kSharedData, "/shared/data/");
    tvsim::SetAppPath(tvsim::AppPath::kResource, "/resource/");
    tvsim::SetAppId("com.veltrix.tv.wex-framework");
    EXPECT_EQ(AppInfoUtil::GetDataPath(), "/opt/usr/home/owner/apps_rw/x/data/");
    EXPECT_EQ(AppInfoUtil::GetSharedResourcePath(), "/res/no-trailing-slash");
    EXPECT_EQ(AppInfoUtil::GetSharedDataPath(), "/shared/data/");
    EXPECT_EQ(AppInfoUtil::GetResourcePath(), "/resource/");
    EXPECT_EQ(AppInfoUtil::GetId(), "com.veltrix.tv.wex-framework");
}

TEST_F(AppInfoUtilTest, MissingOrFailingPathsGiveEmptyAndLogNothing) {
    EXPECT_EQ(AppInfoUtil::GetDataPath(), "");
    tvsim::SetAppPath(tvsim::AppPath::kSharedResource, "/res/");
    tvsim::FailCall(tvsim::Call::kAppGetSharedResourcePath, -1);
    EXPECT_EQ(AppInfoUtil::GetSharedResourcePath(), "");
    tvsim::SetAppId("id");
    tvsim::FailCall(tvsim::Call::kAppGetId, -22);
    EXPECT_EQ(AppInfoUtil::GetId(), "");
    EXPECT_TRUE(Messages(kCommon).empty());
}

TEST_F(AppInfoUtilTest, AppVersion) {
    tvsim::SetAppVersion("6.2.1");
    EXPECT_EQ(AppInfoUtil::GetAppVersion(), "6.2.1");
    tvsim::FailCall(tvsim::Call::kAppGetVersion, -22);
    EXPECT_EQ(AppInfoUtil::GetAppVersion(), "");
    EXPECT_TRUE(Logged(DLOG_ERROR, kCommon, "Fail to get app version"));
}

TEST_F(AppInfoUtilTest, RootPathSuccessAndFailures) {
    tvsim::SetPackageRootPath("pkg", tvsim::Text::Of("/opt/usr/globalapps/pkg"));
    EXPECT_EQ(AppInfoUtil::GetRootPath("pkg"), "/opt/usr/globalapps/pkg");
    EXPECT_TRUE(
        Logged(DLOG_INFO, kCommon,
               "package_info_get_root_path packageName:pkg  appRootPath[/opt/usr/globalapps/pkg]"));

    tvsim::FailCall(tvsim::Call::kPackageInfoCreate, -3);
    EXPECT_EQ(AppInfoUtil::GetRootPath("pkg"), "");
    EXPECT_TRUE(Logged(DLOG_ERROR, kCommon,
                       "package_info_create failed err[-3] package_info[(nil)] pkg_id[pkg]"));
    tvsim::ClearAllFailures();

    tvsim::FailCall(tvsim::Call::kPackageInfoGetRootPath, -5);
    uint64_t destroys = tvsim::CallCount(tvsim::Call::kPackageInfoDestroy);
    EXPECT_EQ(AppInfoUtil::GetRootPath("pkg"), "");
    EXPECT_TRUE(Logged(DLOG_ERROR, kCommon,
                       "package_info_get_root_path failed err[-5] appRootPath[(nil)]"));
    EXPECT_EQ(tvsim::CallCount(tvsim::Call::kPackageInfoDestroy), destroys + 1);
}

class SystemInfoUtilTest : public SimTest {};

TEST_F(SystemInfoUtilTest, StringKeySuccessNullAndFailure) {
    std::string out = "unchanged";
    tvsim::SetLocaleSet("EU_DTV");
    EXPECT_TRUE(SystemInfoUtil::getStringFromSystemInfo(SYSTEM_INFO_KEY_LOCAL_SET, out));
    EXPECT_EQ(out, "EU_DTV");
    EXPECT_TRUE(Logged(DLOG_INFO, kCommon, "90 value is EU_DTV"));

    tvsim::SetSystemInfoString(SYSTEM_INFO_KEY_LOCAL_SET, tvsim::Text::Null());
    out = "unchanged";
    EXPECT_FALSE(SystemInfoUtil::getStringFromSystemInfo(SYSTEM_INFO_KEY_LOCAL_SET, out));
    EXPECT_EQ(out, "unchanged");
    EXPECT_TRUE(Logged(DLOG_ERROR, kCommon, "90 value is null"));

    tvsim::FailCall(tvsim::Call::kSystemInfoGetValueString, -5);
    EXPECT_FALSE(SystemInfoUtil::getStringFromSystemInfo(SYSTEM_INFO_KEY_LOCAL_SET, out));
    EXPECT_TRUE(Logged(DLOG_ERROR, kCommon, "fail to get 90"));
}

TEST_F(SystemInfoUtilTest, LocaleSet) {
    tvsim::SetLocaleSet("US_ATSC");
    EXPECT_EQ(SystemInfoUtil::GetLocaleSet(), "US_ATSC");
    EXPECT_TRUE(Logged(DLOG_INFO, kCommon, "local set: US_ATSC"));
    tvsim::SetLocaleSet(std::nullopt);
    EXPECT_EQ(SystemInfoUtil::GetLocaleSet(), "");
    EXPECT_TRUE(Logged(DLOG_INFO, kCommon, "Fail to get SYSTEM_INFO_KEY_LOCAL_SET"));
}

TEST_F(SystemInfoUtilTest, TvYear) {
    tvsim::SetModelYear(22);
    EXPECT_EQ(SystemInfoUtil::GetTVYear(), 22);
    tvsim::SetModelYear(std::nullopt);
    EXPECT_EQ(SystemInfoUtil::GetTVYear(), -1);
    EXPECT_TRUE(Logged(DLOG_ERROR, kCommon, "FMS tv_year failed to read"));
    tvsim::SetModelYear(25);
    tvsim::FailCall(tvsim::Call::kSystemInfoGetCustomInt, -5);
    EXPECT_EQ(SystemInfoUtil::GetTVYear(), -1);
}

TEST_F(SystemInfoUtilTest, ModelName) {
    tvsim::SetModelName("UN55TU7000");
    EXPECT_EQ(SystemInfoUtil::GetModelName(), "UN55TU7000");
    EXPECT_TRUE(Logged(DLOG_INFO, kCommon, "modelname : UN55TU7000"));
    tvsim::SetSystemInfoString(SYSTEM_INFO_KEY_MODEL, tvsim::Text::Null());
    EXPECT_EQ(SystemInfoUtil::GetModelName(), "");
    EXPECT_TRUE(Logged(DLOG_ERROR, kCommon, "retreived modelname is null"));
    tvsim::SetModelName(std::nullopt);
    EXPECT_EQ(SystemInfoUtil::GetModelName(), "");
    EXPECT_TRUE(Logged(DLOG_ERROR, kCommon, "SYSTEM_INFO_KEY_MODEL failed to read"));
}

TEST_F(SystemInfoUtilTest, PanelTypeSharesTheModelNameNullMessage) {
    tvsim::SetPanelType("AB55CD1EF");
    EXPECT_EQ(SystemInfoUtil::GetPanelType(), "AB55CD1EF");
    EXPECT_TRUE(Logged(DLOG_INFO, kCommon, "paneltype : AB55CD1EF"));
    tvsim::SetSystemInfoString(SYSTEM_INFO_KEY_PANEL_TYPE_STRING, tvsim::Text::Null());
    EXPECT_EQ(SystemInfoUtil::GetPanelType(), "");
    EXPECT_TRUE(Logged(DLOG_ERROR, kCommon, "retreived modelname is null"));
    tvsim::FailCall(tvsim::Call::kSystemInfoGetValueString, -2);
    EXPECT_EQ(SystemInfoUtil::GetPanelType(), "");
    EXPECT_TRUE(Logged(DLOG_ERROR, kCommon, "SYSTEM_INFO_KEY_PANEL_TYPE_STRING failed to read"));
}

TEST_F(SystemInfoUtilTest, LinesCarryFileFunctionAndLinePrefix) {
    tvsim::SetModelName("M");
    SystemInfoUtil::GetModelName();
    auto lines = tvsim::LinesSince(mark_);
    ASSERT_FALSE(lines.empty());
    const std::string& text = lines.back().text;
    EXPECT_EQ(text.rfind("SystemInfoUtil.cpp : GetModelName(", 0), 0u) << text;
    EXPECT_NE(text.find(")  modelname : M"), std::string::npos) << text;
}

class TimeUtilTest : public SimTest {};

TEST_F(TimeUtilTest, ValidateTimeFrom2021On) {
    uint64_t before = tvsim::CallCount(tvsim::Call::kTimeFromSec);
    EXPECT_FALSE(powermeter::TimeUtil::ValidateTime(0));
    EXPECT_EQ(tvsim::CallCount(tvsim::Call::kTimeFromSec), before);  // 0 is not converted
    EXPECT_FALSE(powermeter::TimeUtil::ValidateTime(1609459199ul));  // 2020-12-31 23:59:59
    EXPECT_TRUE(powermeter::TimeUtil::ValidateTime(1609459200ul));   // 2021-01-01 00:00:00
    EXPECT_TRUE(powermeter::TimeUtil::ValidateTime(4294967295ul));
}

TEST_F(TimeUtilTest, PrintTimeWithAndWithoutLabel) {
    powermeter::TimeUtil::PrintTime(1609459199ul, "Current Time: ");
    powermeter::TimeUtil::PrintTime(1609459200ul, nullptr);
    powermeter::TimeUtil::PrintTime(0, "");
    EXPECT_TRUE(Logged(DLOG_INFO, kEnergy, "[Energy] Current Time:  UTC: 2020-12-31 23:59:59"));
    EXPECT_TRUE(Logged(DLOG_INFO, kEnergy, "[Energy] UTC: 2021-1-1 0:0:0"));
    EXPECT_TRUE(Logged(DLOG_INFO, kEnergy, "[Energy]  UTC: 1970-1-1 0:0:0"));
}

TEST_F(TimeUtilTest, GetLinuxTimeReadsTheClock) {
    unsigned long now = powermeter::TimeUtil::GetLinuxTime();
    EXPECT_GT(now, 1609459200ul);
    EXPECT_TRUE(Messages(kEnergy).empty());
}

}  // namespace
