// What the plug-in and the support library read from the platform: picture-engine registers,
// power state, application and system information, and time. Results and log lines for
// success and failure.
#include <functional>
#include <string>
#include <vector>

#include "AppInfoUtil.h"
#include "PowerStatus.h"
#include "Registers.h"
#include "SharedJson.h"
#include "SystemInfoUtil.h"
#include "TestSupport.h"
#include "TimeUtil.h"

namespace {

constexpr char kEnergy[] = "ENERGY_SERVICE";
constexpr char kCommon[] = "WEXF_COMMON";
constexpr char kKey[] = "memory/ave/powerconsumption";

class PlatformInputsTest : public testsupport::SimTest {};

// Catalogue lines as one text, "|" after each, with `prefix` dropped from their messages.
std::string Joined(const std::vector<std::string>& lines, const std::string& prefix = "") {
    std::string text;
    for (std::string line : lines) {
        if (!prefix.empty() && line.compare(2, prefix.size(), prefix) == 0) {
            line.erase(2, prefix.size());
        }
        text += line + "|";
    }
    return text;
}

// Each row: the configuration key's text (nullopt: unset) and the nine registers, "-" for not
// available, in the order ANA DutySum APL BLOSD RESOLUTION PC HDR IDS TEMP. Each Refresh
// forgets the previous snapshot.
TEST_F(PlatformInputsTest, RegistersTable) {
    using namespace powermeter;
    const _SYSTEMREGISTER all[] = {ANA, DutySum, APL, BLOSD, RESOLUTION, PC, HDR, IDS, TEMP};
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
        {"{\"ANA\":\"1\"", "- - - - - - - - -"},
        {"null", "- - - - - - - - -"},
    };
    Registers r;
    for (const auto& row : rows) {
        tvsim::SetVconf(kKey, row.text);
        r.Refresh();
        std::string values;
        for (auto reg : all) {
            values += (values.empty() ? "" : " ") +
                      (r.IsAvailable(reg) ? std::to_string(r.Value(reg)) : std::string("-"));
        }
        EXPECT_EQ(values, row.values) << row.text.value_or("(unset)");
    }
    EXPECT_TRUE(Logged(DLOG_ERROR, kEnergy, "[ENERGY] failed to get vconf: " + std::string(kKey)));
    EXPECT_TRUE(Logged(DLOG_DEBUG, kEnergy, "[ENERGY] memory/ave/powerconsumption: -"));
    // A document that is not an object, or a member without a text form, is a JSON error for
    // the metering turn; members read before it keep their values.
    tvsim::SetVconf(kKey, std::string("[1,2]"));
    EXPECT_THROW(r.Refresh(), common::json::JsonException);
    tvsim::SetVconf(kKey, std::string(R"({"ANA":"5","DutySum":{"x":1}})"));
    EXPECT_THROW(r.Refresh(), common::json::JsonException);
    EXPECT_EQ(r.Value(ANA), 5);
}

// Which state the platform's power state and ambient mode give is pinned by the calculator's
// state table, in watts; here the names printed.
TEST_F(PlatformInputsTest, PowerStatusNames) {
    using namespace powermeter;
    for (int s = NORMAL; s <= MAX_POWER_STATUS_FOR_ENERGY + 1; ++s) {
        PowerStatus::Print(static_cast<_PowerStatusForEnergy>(s));
    }
    EXPECT_EQ(Joined(Catalogue(kEnergy), "[Energy Factors] Power Status: "),
              "I NORMAL|I LPM|I BACKGROUND_STANDBY|I ALWAYS_ON_SCREEN|I PICTURE_OFF|I SUSPEND|"
              "I MAX_POWER_STATUS_FOR_ENERGY|");
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
        {[] { tvsim::SetModelYear(std::nullopt); },
         [] { return std::to_string(SystemInfoUtil::GetTVYear()); }, "-1"},
        {[] { tvsim::SetModelName("UN55"); }, SystemInfoUtil::GetModelName, "UN55"},
        {[] { tvsim::SetSystemInfoString(SYSTEM_INFO_KEY_MODEL, tvsim::Text::Null()); },
         SystemInfoUtil::GetModelName, ""},
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
    EXPECT_EQ(Joined(Catalogue(kCommon)),
              "E Fail to get app version|"
              "I package_info_get_root_path packageName:pkg  appRootPath[/apps/pkg]|"
              "E package_info_create failed err[-3] package_info[(nil)] pkg_id[pkg]|"
              "E package_info_get_root_path failed err[-5] appRootPath[(nil)]|"
              "I 90 value is US_ATSC|I local set: US_ATSC|E fail to get 90|"
              "I Fail to get SYSTEM_INFO_KEY_LOCAL_SET|E 90 value is null|"
              "I Fail to get SYSTEM_INFO_KEY_LOCAL_SET|E FMS tv_year failed to read|"
              "I modelname : UN55|E retreived modelname is null|I paneltype : AB55CD1EF|"
              "E retreived modelname is null|E SYSTEM_INFO_KEY_PANEL_TYPE_STRING failed to read|");
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

}  // namespace
