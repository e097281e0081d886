// SystemInfoUtil::IsSupportEnergyService and EnergyServicePrerequisite: the order of the
// decisions and the scan of the data set.
#include <sys/stat.h>

#include <string>
#include <vector>

#include "EnergyServicePrerequisite.h"
#include "SystemInfoUtil.h"
#include "TestSupport.h"

using common::service_prerequisite::EnergyServicePrerequisite;
using testsupport::SimTest;
using testsupport::TempDir;

namespace {

constexpr const char kCommon[] = "WEXF_COMMON";

std::string Row(const std::string& sw, const std::string& panel) {
    return "1,2024,VX," + sw + ",55," + panel + ",LED,100,200,3,3,0,10,0,-,10,50,4,11";
}

class PrerequisiteTest : public SimTest {
  protected:
    void SetUp() override {
        SimTest::SetUp();
        tvsim::SetAppPath(tvsim::AppPath::kSharedResource, dir_.path());
    }
    void WriteData(const std::vector<std::string>& rows) {
        std::string text = "ECF-TEST-1\n";
        for (const auto& r : rows) {
            text += r + "\n";
        }
        testsupport::WriteText(dir_.File("energy_factors.dat"), text);
    }
    void Identity(int year, const std::string& locale, const std::string& sw,
                  const std::string& panel) {
        tvsim::SetModelYear(year);
        tvsim::SetLocaleSet(locale);
        tvsim::SetModelName(sw);
        tvsim::SetPanelType(panel);
    }
    std::vector<std::string> Errors() const {
        std::vector<std::string> out;
        for (const auto& line : tvsim::LinesSince(mark_)) {
            if (line.tag == kCommon && line.priority == DLOG_ERROR) {
                out.push_back(line.Message());
            }
        }
        return out;
    }
    TempDir dir_;
};

TEST_F(PrerequisiteTest, YearIsDecidedFirst) {
    Identity(21, "CHI_DTV", "", "");
    EXPECT_FALSE(SystemInfoUtil::IsSupportEnergyService());
    EXPECT_EQ(Errors(), std::vector<std::string>{"Energy Service Not Supported Under 22 year TV"});
    EXPECT_EQ(tvsim::CallCount(tvsim::Call::kSystemInfoGetValueString), 0u);

    tvsim::SetModelYear(std::nullopt);  // unreadable year counts as too old
    EXPECT_FALSE(SystemInfoUtil::IsSupportEnergyService());
    EXPECT_TRUE(Logged(DLOG_ERROR, kCommon, "FMS tv_year failed to read"));
}

TEST_F(PrerequisiteTest, ChinaRegionIsDecidedBeforeIdentity) {
    for (const char* locale : {"EA_CHINA", "CHI_DTV"}) {
        Identity(22, locale, "", "");
        EXPECT_FALSE(SystemInfoUtil::IsSupportEnergyService());
    }
    EXPECT_EQ(CountLogged(DLOG_ERROR, kCommon, "Energy Service Not Supported in China Region"), 2u);
    EXPECT_FALSE(Logged(DLOG_ERROR, kCommon, "SYSTEM_INFO_KEY_MODEL failed to read"));
    // Only the exact texts mean China.
    Identity(22, "CHI_DTV2", "", "");
    EXPECT_TRUE(SystemInfoUtil::IsSupportEnergyService());
}

TEST_F(PrerequisiteTest, UnknownIdentityIsAllowedWithoutReadingTheData) {
    Identity(22, "EU_DTV", "24_SW_55", "");
    tvsim::SetPanelType(std::nullopt);
    EXPECT_TRUE(SystemInfoUtil::IsSupportEnergyService());
    EXPECT_TRUE(
        Logged(DLOG_ERROR, kCommon,
               "At this time, Failed to get sw model and panel type, so it returns true here"));
    EXPECT_EQ(tvsim::CallCount(tvsim::Call::kAppGetSharedResourcePath), 0u);

    tvsim::SetModelName(std::nullopt);
    tvsim::SetPanelType("AB12CD3EF0");
    EXPECT_TRUE(SystemInfoUtil::IsSupportEnergyService());
    EXPECT_EQ(tvsim::CallCount(tvsim::Call::kAppGetSharedResourcePath), 0u);
}

TEST_F(PrerequisiteTest, KnownIdentityIsDecidedByTheData) {
    WriteData({Row("24_SW_55", "AB12CD3EF0")});
    Identity(24, "EU_DTV", "24_SW_55", "ABxyCDzEFextra");
    EXPECT_TRUE(SystemInfoUtil::IsSupportEnergyService());
    EXPECT_TRUE(Logged(DLOG_INFO, kCommon,
                       "[EnergyServicePrerequisite] find one from energy data set: 24_SW_55, "
                       "AB12CD3EF0"));
    EXPECT_TRUE(Logged(DLOG_INFO, kCommon,
                       "[EnergyServicePrerequisite] Availability Check for 24_SW_55, "
                       "ABxyCDzEFextra: 1"));
    tvsim::SetModelName("24_SW_65");
    EXPECT_FALSE(SystemInfoUtil::IsSupportEnergyService());
}

TEST_F(PrerequisiteTest, ScanSkipsMalformedAndForeignRows) {
    std::string r18 = Row("24_SW_55", "AB12CD3EF0");
    r18 = r18.substr(0, r18.rfind(','));
    std::string r20 = Row("24_SW_55", "AB12CD3EF0") + ",9";
    std::string empty_field = Row("24_SW_55", "AB12CD3EF0");
    empty_field.replace(empty_field.find(",55,"), 4, ",,");
    WriteData({r18, r20, empty_field, Row("24_sw_55", "AB12CD3EF0"), Row("24_SW_55", "ZZ12CD3EF0"),
               Row("24_SW_55", "AB12CD3E"), Row("24_SW_55", "AB99CD9EF9")});
    EnergyServicePrerequisite check("24_SW_55", "AB12CD3EF0");
    EXPECT_TRUE(check.IsAvailable());
    EXPECT_TRUE(Logged(DLOG_ERROR, kCommon,
                       "[EnergyServicePrerequisite] The number of tokens is 18 (not 19)"));
    EXPECT_TRUE(Logged(DLOG_ERROR, kCommon,
                       "[EnergyServicePrerequisite] The number of tokens is 20 (not 19)"));
    EXPECT_EQ(CountLogged(DLOG_ERROR, kCommon,
                          "[EnergyServicePrerequisite] The number of tokens is 18 (not 19)"),
              2u);
    EXPECT_TRUE(Logged(DLOG_ERROR, kCommon,
                       "[EnergyServicePrerequisite] Invalid Panel Type AB12CD3EF0 and AB12CD3E"));
    EXPECT_TRUE(Logged(DLOG_INFO, kCommon,
                       "[EnergyServicePrerequisite] find one from energy data set: 24_SW_55, "
                       "AB99CD9EF9"));
    EXPECT_TRUE(
        Logged(DLOG_INFO, kCommon, "[EnergyServicePrerequisite] energy data version: ECF-TEST-1"));
}

TEST_F(PrerequisiteTest, ShortOwnPanelTypeNeverMatches) {
    WriteData({Row("24_SW_55", "AB12CD3EF0")});
    EnergyServicePrerequisite check("24_SW_55", "AB12CD3E");
    EXPECT_FALSE(check.IsAvailable());
    EXPECT_TRUE(Logged(DLOG_ERROR, kCommon,
                       "[EnergyServicePrerequisite] Invalid Panel Type AB12CD3E and AB12CD3EF0"));
    EXPECT_TRUE(Logged(DLOG_ERROR, kCommon,
                       "[EnergyServicePrerequisite] Could not find a proper data set: 24_SW_55, "
                       "AB12CD3E"));
    EXPECT_TRUE(Logged(DLOG_INFO, kCommon,
                       "[EnergyServicePrerequisite] Availability Check for 24_SW_55, AB12CD3E: 0"));
}

TEST_F(PrerequisiteTest, VersionLineIsNeverMatched) {
    testsupport::WriteText(dir_.File("energy_factors.dat"), Row("24_SW_55", "AB12CD3EF0") + "\n");
    EXPECT_FALSE(EnergyServicePrerequisite("24_SW_55", "AB12CD3EF0").IsAvailable());
    testsupport::WriteText(dir_.File("energy_factors.dat"), "");
    EXPECT_FALSE(EnergyServicePrerequisite("24_SW_55", "AB12CD3EF0").IsAvailable());
}

TEST_F(PrerequisiteTest, DataFileLocation) {
    EXPECT_FALSE(EnergyServicePrerequisite("24_SW_55", "AB12CD3EF0").IsAvailable());
    EXPECT_TRUE(
        Logged(DLOG_DEBUG, kCommon, "[EnergyServicePrerequisite] data file path " + dir_.path()));
    EXPECT_TRUE(
        Logged(DLOG_ERROR, kCommon,
               "[EnergyServicePrerequisite] Cannot open to " + dir_.File("energy_factors.dat")));

    tvsim::SetAppPath(tvsim::AppPath::kSharedResource, std::nullopt);
    EXPECT_FALSE(EnergyServicePrerequisite("24_SW_55", "AB12CD3EF0").IsAvailable());
    EXPECT_TRUE(Logged(DLOG_DEBUG, kCommon, "[EnergyServicePrerequisite] data file path "));
    EXPECT_TRUE(Logged(DLOG_ERROR, kCommon,
                       "[EnergyServicePrerequisite] Cannot open to "
                       "/opt/usr/apps/com.veltrix.tv.wex-framework/shared/res/energy_factors.dat"));
}

TEST_F(PrerequisiteTest, ReadErrorIsReportedAsAnException) {
    // A directory opens but cannot be read.
    ASSERT_EQ(mkdir(dir_.File("energy_factors.dat").c_str(), 0700), 0);
    EXPECT_FALSE(EnergyServicePrerequisite("24_SW_55", "AB12CD3EF0").IsAvailable());
    bool reported = false;
    for (const auto& m : Messages(kCommon)) {
        reported |= m.rfind("[EnergyServicePrerequisite] Exception !! - ", 0) == 0;
    }
    EXPECT_TRUE(reported);
    EXPECT_FALSE(Logged(DLOG_INFO, kCommon,
                        "[EnergyServicePrerequisite] Availability Check for 24_SW_55, "
                        "AB12CD3EF0: 0"));
}

}  // namespace
