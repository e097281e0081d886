// What the plug-in and the support library read from the platform: picture-engine registers,
// sound, power state, application and system information, time, and the availability
// pre-check with its scan of the data set. Results and log lines for success and failure.
#include <sys/stat.h>

#include <functional>
#include <string>
#include <vector>

#include "AppInfoUtil.h"
#include "EnergyServicePrerequisite.h"
#include "PowerStatus.h"
#include "Registers.h"
#include "SharedJson.h"
#include "SystemInfoUtil.h"
#include "TestSupport.h"
#include "TimeUtil.h"

using common::service_prerequisite::EnergyServicePrerequisite;

namespace {

constexpr char kEnergy[] = "ENERGY_SERVICE";
constexpr char kCommon[] = "WEXF_COMMON";
constexpr char kKey[] = "memory/ave/powerconsumption";

class PlatformInputsTest : public testsupport::SimTest {};

// Each row: the configuration key's text (nullopt: unset) and the nine registers, "-" for not
// available, in the order ANA DutySum APL BLOSD RESOLUTION PC HDR IDS TEMP.
TEST_F(PlatformInputsTest, RegistersTable) {
    const powermeter::_SYSTEMREGISTER all[] = {
        powermeter::ANA,   powermeter::DutySum,    powermeter::APL,
        powermeter::BLOSD, powermeter::RESOLUTION, powermeter::PC,
        powermeter::HDR,   powermeter::IDS,        powermeter::TEMP};
    const struct {
        std::optional<std::string> text;
        std::string values;
    } rows[] = {
        {R"({"ANA":"512","DutySum":"300","RESOLUTION":"2160"})", "512 300 - - 2160 - - - -"},
        {R"({"ANA":"1","DutySum":"2","APL":"3","BLOSD":"4","RESOLUTION":"5","PC":"6","HDR":"7",)"
         R"("IDS":"8","TEMP":"9","ana":"10","Other":"11"})",
         "1 2 3 4 5 6 7 8 9"},
        // Numbers are read through their text form; junk converts its leading part or to 0.
        {R"({"ANA":512,"DutySum":700.9,"APL":"abc","BLOSD":"-12345678","RESOLUTION":" 1080x",)"
         R"("PC":"99999999999","HDR":"-99999999999","IDS":null,"TEMP":true})",
         "512 700 0 - 1080 2147483647 -2147483648 0 0"},
        {std::nullopt, "- - - - - - - - -"},
        {"-", "- - - - - - - - -"},
        {"{\"ANA\":\"1\"", "- - - - - - - - -"},
        {"", "- - - - - - - - -"},
        {"null", "- - - - - - - - -"},
        {"{}", "- - - - - - - - -"},
    };
    powermeter::Registers r;
    tvsim::SetVconf(kKey, R"({"TEMP":"40"})");
    r.Refresh();
    for (const auto& row : rows) {
        tvsim::SetVconf(kKey, row.text);
        r.Refresh();  // forgets the previous snapshot
        std::string values;
        for (auto reg : all) {
            values += (values.empty() ? "" : " ") +
                      (r.IsAvailable(reg) ? std::to_string(r.Value(reg)) : std::string("-"));
        }
        EXPECT_EQ(values, row.values) << row.text.value_or("(unset)");
    }
    try {
        r.Value(powermeter::TEMP);
        ADD_FAILURE();
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "TEMP is not available");
    }
    tvsim::SetVconf(kKey, std::string("{\"ANA\":\"5\"}"));
    tvsim::FailCall(tvsim::Call::kVconfGetStr, -1);
    r.Refresh();
    EXPECT_FALSE(r.IsAvailable(powermeter::ANA));
    // A document that is not an object, or a member without a text form, is a JSON error for
    // the metering turn; members read before it keep their values.
    tvsim::ClearAllFailures();
    tvsim::SetVconf(kKey, std::string("[1,2]"));
    EXPECT_THROW(r.Refresh(), common::json::JsonException);
    tvsim::SetVconf(kKey, std::string(R"({"ANA":"5","DutySum":{"x":1}})"));
    EXPECT_THROW(r.Refresh(), common::json::JsonException);
    EXPECT_EQ(r.Value(powermeter::ANA), 5);
    std::vector<std::string> lines = Catalogue(kEnergy);
    EXPECT_EQ(lines.at(0), "D [ENERGY] memory/ave/powerconsumption: {\"TEMP\":\"40\"}");
    EXPECT_EQ(lines.at(4), "E [ENERGY] failed to get vconf: memory/ave/powerconsumption");
    EXPECT_EQ(lines.at(5), "D [ENERGY] memory/ave/powerconsumption: -");
}

TEST_F(PlatformInputsTest, PowerStatusTable) {
    using namespace powermeter;
    for (int ambient : {-1, 0, 1, 2, 3}) {
        // States 0-5 and -1; the ambient mode decides for states 2 and 4.
        const _PowerStatusForEnergy expected[] = {
            NORMAL,
            PICTURE_OFF,
            ambient == 1 ? ALWAYS_ON_SCREEN : BACKGROUND_STANDBY,
            SUSPEND,
            ambient == 2 ? LPM : SUSPEND,
            SUSPEND,
            SUSPEND};
        for (int state = 0; state <= 6; ++state) {
            tvsim::SetPowerState(state == 6 ? -1 : state);
            tvsim::SetAmbientMode(ambient);
            EXPECT_EQ(PowerStatus::GetCurrent(), expected[state]) << state << " " << ambient;
        }
    }
    const uint64_t calls = tvsim::CallCount(tvsim::Call::kDevicePowerGetAmbientMode);
    tvsim::SetPowerState(0);
    PowerStatus::GetCurrent();  // the ambient mode is read even when not needed
    EXPECT_EQ(tvsim::CallCount(tvsim::Call::kDevicePowerGetAmbientMode), calls + 1);
    tvsim::FailCall(tvsim::Call::kDevicePowerGetState, -5);
    EXPECT_EQ(PowerStatus::GetCurrent(), SUSPEND);
    const uint64_t mark = tvsim::LogMark();
    for (int s = NORMAL; s <= MAX_POWER_STATUS_FOR_ENERGY + 1; ++s) {
        PowerStatus::Print(static_cast<_PowerStatusForEnergy>(s));
    }
    EXPECT_EQ(Catalogue(kEnergy, mark),
              (std::vector<std::string>{
                  "I [Energy Factors] Power Status: NORMAL", "I [Energy Factors] Power Status: LPM",
                  "I [Energy Factors] Power Status: BACKGROUND_STANDBY",
                  "I [Energy Factors] Power Status: ALWAYS_ON_SCREEN",
                  "I [Energy Factors] Power Status: PICTURE_OFF",
                  "I [Energy Factors] Power Status: SUSPEND",
                  "I [Energy Factors] Power Status: MAX_POWER_STATUS_FOR_ENERGY"}));
}

// Each row: the platform's answer set up, the getter, its result; the lines of the support
// library are compared as one catalogue at the end.
TEST_F(PlatformInputsTest, ApplicationAndSystemInformation) {
    const struct {
        std::function<void()> setup;
        std::function<std::string()> get;
        std::string result;
    } rows[] = {
        {[] { tvsim::FailCall(tvsim::Call::kAppGetVersion, -22); }, AppInfoUtil::GetAppVersion, ""},
        {[] { tvsim::SetPackageRootPath("pkg", tvsim::Text::Of("/apps/pkg")); },
         [] { return AppInfoUtil::GetRootPath("pkg"); }, "/apps/pkg"},
        {[] { tvsim::FailCall(tvsim::Call::kPackageInfoCreate, -3); },
         [] { return AppInfoUtil::GetRootPath("pkg"); }, ""},
        {[] { tvsim::FailCall(tvsim::Call::kPackageInfoGetRootPath, -5); },
         [] { return AppInfoUtil::GetRootPath("pkg"); }, ""},
        {[] { tvsim::SetLocaleSet("US_ATSC"); }, SystemInfoUtil::GetLocaleSet, "US_ATSC"},
        {[] { tvsim::SetLocaleSet(std::nullopt); }, SystemInfoUtil::GetLocaleSet, ""},
        {[] { tvsim::SetSystemInfoString(SYSTEM_INFO_KEY_LOCAL_SET, tvsim::Text::Null()); },
         SystemInfoUtil::GetLocaleSet, ""},
        {[] { tvsim::SetModelYear(22); },
         [] { return std::to_string(SystemInfoUtil::GetTVYear()); }, "22"},
        {[] { tvsim::SetModelYear(std::nullopt); },
         [] { return std::to_string(SystemInfoUtil::GetTVYear()); }, "-1"},
        {[] { tvsim::SetModelName("UN55"); }, SystemInfoUtil::GetModelName, "UN55"},
        {[] { tvsim::SetSystemInfoString(SYSTEM_INFO_KEY_MODEL, tvsim::Text::Null()); },
         SystemInfoUtil::GetModelName, ""},
        {[] { tvsim::SetModelName(std::nullopt); }, SystemInfoUtil::GetModelName, ""},
        {[] { tvsim::SetPanelType("AB55CD1EF"); }, SystemInfoUtil::GetPanelType, "AB55CD1EF"},
        {[] { tvsim::SetSystemInfoString(SYSTEM_INFO_KEY_PANEL_TYPE_STRING, tvsim::Text::Null()); },
         SystemInfoUtil::GetPanelType, ""},
        {[] { tvsim::FailCall(tvsim::Call::kSystemInfoGetValueString, -2); },
         SystemInfoUtil::GetPanelType, ""},
    };
    for (size_t i = 0; i < sizeof rows / sizeof rows[0]; ++i) {
        tvsim::ClearAllFailures();
        rows[i].setup();
        EXPECT_EQ(rows[i].get(), rows[i].result) << "row " << i;
    }
    EXPECT_EQ(tvsim::CallCount(tvsim::Call::kPackageInfoDestroy), 2u);
    EXPECT_EQ(Catalogue(kCommon),
              (std::vector<std::string>{
                  "E Fail to get app version",
                  "I package_info_get_root_path packageName:pkg  appRootPath[/apps/pkg]",
                  "E package_info_create failed err[-3] package_info[(nil)] pkg_id[pkg]",
                  "E package_info_get_root_path failed err[-5] appRootPath[(nil)]",
                  "I 90 value is US_ATSC", "I local set: US_ATSC", "E fail to get 90",
                  "I Fail to get SYSTEM_INFO_KEY_LOCAL_SET", "E 90 value is null",
                  "I Fail to get SYSTEM_INFO_KEY_LOCAL_SET", "E FMS tv_year failed to read",
                  "I modelname : UN55", "E retreived modelname is null",
                  "E SYSTEM_INFO_KEY_MODEL failed to read", "I paneltype : AB55CD1EF",
                  "E retreived modelname is null",
                  "E SYSTEM_INFO_KEY_PANEL_TYPE_STRING failed to read"}));
    const std::string text = tvsim::LinesSince(mark_).back().text;
    EXPECT_EQ(text.rfind("SystemInfoUtil.cpp : GetPanelType(", 0), 0u) << text;
}

TEST_F(PlatformInputsTest, TimeValidation) {
    const uint64_t conversions = tvsim::CallCount(tvsim::Call::kTimeFromSec);
    EXPECT_FALSE(powermeter::TimeUtil::ValidateTime(0));
    EXPECT_EQ(tvsim::CallCount(tvsim::Call::kTimeFromSec), conversions);  // 0 is not converted
    EXPECT_FALSE(powermeter::TimeUtil::ValidateTime(1609459199ul));       // 2020-12-31 23:59:59
    EXPECT_TRUE(powermeter::TimeUtil::ValidateTime(1609459200ul));        // 2021-01-01 00:00:00
    EXPECT_TRUE(powermeter::TimeUtil::ValidateTime(4294967295ul));
    EXPECT_GT(powermeter::TimeUtil::GetLinuxTime(), 1609459200ul);
}

// ---- The availability pre-check ----

std::string Row(const std::string& sw, const std::string& panel) {
    return "1,2024,VX," + sw + ",55," + panel + ",LED,100,200,3,3,0,10,0,-,10,50,4,11";
}

class PrerequisiteTest : public testsupport::SimTest {
  protected:
    void SetUp() override { tvsim::SetAppPath(tvsim::AppPath::kSharedResource, dir_.path()); }
    void WriteData(const std::vector<std::string>& rows) {
        std::string text = "ECF-TEST-1\n";
        for (const auto& r : rows) {
            text += r + "\n";
        }
        testsupport::WriteText(dir_.File("energy_factors.dat"), text);
    }
    testsupport::TempDir dir_;
};

// The decisions in their order: year, China region, identity, then the data set.
TEST_F(PrerequisiteTest, DecisionsInOrder) {
    WriteData({Row("24_SW_55", "AB12CD3EF0")});
    const struct {
        std::optional<int> year;
        const char* locale;
        std::optional<std::string> sw, panel;
        bool supported;
        const char* error;  // the last error line, or nullptr
        bool data_read;
    } rows[] = {
        {21, "CHI_DTV", "", "", false, "Energy Service Not Supported Under 22 year TV", false},
        {std::nullopt, "EU_DTV", "", "", false, "Energy Service Not Supported Under 22 year TV",
         false},
        {22, "EA_CHINA", "", "", false, "Energy Service Not Supported in China Region", false},
        {22, "CHI_DTV", "", "", false, "Energy Service Not Supported in China Region", false},
        {22, "EU_DTV", "24_SW_55", std::nullopt, true,
         "At this time, Failed to get sw model and panel type, so it returns true here", false},
        {22, "CHI_DTV2", std::nullopt, "AB12CD3EF0", true,
         "At this time, Failed to get sw model and panel type, so it returns true here", false},
        {24, "EU_DTV", "24_SW_55", "ABxyCDzEFextra", true, nullptr, true},
        {24, "EU_DTV", "24_SW_65", "AB12CD3EF0", false,
         "[EnergyServicePrerequisite] Could not find a proper data set: 24_SW_65, AB12CD3EF0",
         true},
    };
    for (const auto& r : rows) {
        tvsim::SetModelYear(r.year);
        tvsim::SetLocaleSet(std::string(r.locale));
        tvsim::SetModelName(r.sw);
        tvsim::SetPanelType(r.panel);
        const uint64_t reads = tvsim::CallCount(tvsim::Call::kAppGetSharedResourcePath);
        const uint64_t mark = tvsim::LogMark();
        EXPECT_EQ(SystemInfoUtil::IsSupportEnergyService(), r.supported) << r.locale;
        std::string last_error;
        for (const auto& line : tvsim::LinesSince(mark)) {
            if (line.priority == DLOG_ERROR && line.tag == kCommon) {
                last_error = line.Message();
            }
        }
        EXPECT_EQ(last_error, r.error ? r.error : "") << r.locale;
        EXPECT_EQ(tvsim::CallCount(tvsim::Call::kAppGetSharedResourcePath) > reads, r.data_read);
    }
}

TEST_F(PrerequisiteTest, ScanOfTheDataSet) {
    std::string r18 = Row("24_SW_55", "AB12CD3EF0");
    r18.resize(r18.rfind(','));
    std::string empty_field = Row("24_SW_55", "AB12CD3EF0");
    empty_field.replace(empty_field.find(",55,"), 4, ",,");
    WriteData({r18, Row("24_SW_55", "AB12CD3EF0") + ",9", empty_field,
               Row("24_sw_55", "AB12CD3EF0"), Row("24_SW_55", "ZZ12CD3EF0"),
               Row("24_SW_55", "AB12CD3E"), Row("24_SW_55", "AB99CD9EF9")});
    EXPECT_TRUE(EnergyServicePrerequisite("24_SW_55", "AB12CD3EF0").IsAvailable());
    EXPECT_FALSE(EnergyServicePrerequisite("24_SW_55", "AB12CD3E").IsAvailable());
    std::vector<std::string> lines = Catalogue(kCommon);
    lines.erase(std::remove_if(lines.begin(), lines.end(),
                               [](const std::string& l) { return l[0] == 'D'; }),
                lines.end());
    const std::string p = "[EnergyServicePrerequisite] ";
    const std::vector<std::string> scan = {"I " + p + "energy data version: ECF-TEST-1",
                                           "E " + p + "The number of tokens is 18 (not 19)",
                                           "E " + p + "The number of tokens is 20 (not 19)",
                                           "E " + p + "The number of tokens is 18 (not 19)"};
    std::vector<std::string> expected = scan;
    expected.insert(expected.end(),
                    {"E " + p + "Invalid Panel Type AB12CD3EF0 and AB12CD3E",
                     "I " + p + "find one from energy data set: 24_SW_55, AB99CD9EF9",
                     "I " + p + "Availability Check for 24_SW_55, AB12CD3EF0: 1"});
    expected.insert(expected.end(), scan.begin(), scan.end());
    expected.insert(expected.end(),
                    {"E " + p + "Invalid Panel Type AB12CD3E and ZZ12CD3EF0",
                     "E " + p + "Invalid Panel Type AB12CD3E and AB12CD3E",
                     "E " + p + "Invalid Panel Type AB12CD3E and AB99CD9EF9",
                     "E " + p + "Could not find a proper data set: 24_SW_55, AB12CD3E",
                     "I " + p + "Availability Check for 24_SW_55, AB12CD3E: 0"});
    EXPECT_EQ(lines, expected);

    // No file, the framework's default directory, a file that cannot be read, the version
    // line alone.
    const uint64_t mark = tvsim::LogMark();
    std::remove(dir_.File("energy_factors.dat").c_str());
    EXPECT_FALSE(EnergyServicePrerequisite("24_SW_55", "AB12CD3EF0").IsAvailable());
    tvsim::SetAppPath(tvsim::AppPath::kSharedResource, std::nullopt);
    EXPECT_FALSE(EnergyServicePrerequisite("24_SW_55", "AB12CD3EF0").IsAvailable());
    EXPECT_TRUE(tvsim::Logged(DLOG_ERROR, kCommon,
                              p + "Cannot open to " + dir_.File("energy_factors.dat"), mark));
    EXPECT_TRUE(tvsim::Logged(DLOG_ERROR, kCommon,
                              p + "Cannot open to /opt/usr/apps/com.veltrix.tv.wex-framework/"
                                  "shared/res/energy_factors.dat",
                              mark));
    tvsim::SetAppPath(tvsim::AppPath::kSharedResource, dir_.path());
    ASSERT_EQ(mkdir(dir_.File("energy_factors.dat").c_str(), 0700), 0);
    EXPECT_FALSE(EnergyServicePrerequisite("24_SW_55", "AB12CD3EF0").IsAvailable());
    EXPECT_NE(Catalogue(kCommon, mark).back().find(p + "Exception !! - "), std::string::npos);
    rmdir(dir_.File("energy_factors.dat").c_str());
    testsupport::WriteText(dir_.File("energy_factors.dat"), Row("24_SW_55", "AB12CD3EF0") + "\n");
    EXPECT_FALSE(EnergyServicePrerequisite("24_SW_55", "AB12CD3EF0").IsAvailable());
}

}  // namespace
