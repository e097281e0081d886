// PowerFactorLoader: which row is selected, every failure message, and data files that are
// missing, empty, random, huge or written with CRLF line endings.
#include <random>
#include <string>
#include <vector>

#include "PowerFactorLoader.h"
#include "PowerFactors.h"
#include "TestSupport.h"

namespace powermeter {

// Reaches the SW-model-blind lookup, which Load does not use.
class PowerFactorLoaderPeer {
  public:
    static bool FindByPanelOnly(PowerFactorLoader& loader, const std::string& panel,
                                PowerFactors& out) {
        return loader.find_one_with_panel_type(panel, out);
    }
};

}  // namespace powermeter

using powermeter::PowerFactorLoader;
using powermeter::PowerFactors;
using testsupport::SimTest;
using testsupport::TempDir;

namespace {

constexpr const char kEnergy[] = "ENERGY_SERVICE";
constexpr const char kVersion[] = "ECF-TEST-1";

// A valid row: ID, SW model, panel type; the factors carry the ID in CELL so that the
// selected row can be told apart.
std::string Row(int id, const std::string& sw, const std::string& panel) {
    return std::to_string(id) + ",2024,VX," + sw + ",55," + panel + ",LED,100,200,3,3,0,10,0,-," +
           std::to_string(id) + ",50,4,11";
}

class FactorLoaderTest : public SimTest {
  protected:
    void SetUp() override {
        SimTest::SetUp();
        tvsim::SetAppPath(tvsim::AppPath::kSharedResource, dir_.path());
    }
    void WriteData(const std::vector<std::string>& rows, const std::string& eol = "\n") {
        std::string text = std::string(kVersion) + eol;
        for (const auto& r : rows) {
            text += r + eol;
        }
        testsupport::WriteText(dir_.File("energy_factors.dat"), text);
    }
    // Load for this panel type and SW model; the selected row's ID, or -1.
    int Select(const std::string& panel, const std::string& sw) {
        PowerFactors out;
        PowerFactorLoader loader;
        return loader.Load(panel, sw, out) ? out.SequenceNumber() : -1;
    }
    TempDir dir_;
};

TEST_F(FactorLoaderTest, EqualPanelTypeBeatsAnEarlierSimilarOne) {
    WriteData(
        {Row(1, "SW_A", "AB12CD3EF0"), Row(2, "SW_A", "AB99CD9EF0"), Row(3, "SW_A", "AB12CD3EF0")});
    EXPECT_EQ(Select("AB99CD9EF0", "SW_A"), 2);
    EXPECT_EQ(Select("AB12CD3EF0", "SW_A"), 1);  // the first of two equal rows
    EXPECT_TRUE(Logged(DLOG_ERROR, kEnergy, "[Energy] Find a power factors for AB12CD3EF0"));
    EXPECT_TRUE(Logged(DLOG_INFO, kEnergy, "[Energy] Find a power factors for SW_A"));
    EXPECT_EQ(CountLogged(DLOG_DEBUG, kEnergy, "[Energy] candidate panel type"), 6u);
    EXPECT_TRUE(Logged(DLOG_INFO, kEnergy, "[Energy] Data File Version: ECF-TEST-1"));
}

TEST_F(FactorLoaderTest, FirstSimilarRowWinsEvenIfALaterOneIsCloser) {
    WriteData({Row(1, "SW_A", "ABxxCDyEF0"), Row(2, "SW_A", "AB12CD3EF9")});
    EXPECT_EQ(Select("AB12CD3EF0", "SW_A"), 1);
    EXPECT_EQ(Select("ABxxCDyEG0", "SW_A"), -1);
    EXPECT_TRUE(Logged(DLOG_ERROR, kEnergy, "[Energy] there is no proper factors"));
}

TEST_F(FactorLoaderTest, RowsOfOtherSwModelsAreNeverConsidered) {
    WriteData({Row(1, "SW_B", "AB12CD3EF0"), Row(2, "SW_A", "AB12CD3EF7")});
    EXPECT_EQ(Select("AB12CD3EF0", "SW_A"), 2);
    EXPECT_EQ(Select("AB12CD3EF0", "SW_C"), -1);
    EXPECT_TRUE(Logged(DLOG_ERROR, kEnergy, "[Energy] No matched SW Model"));
}

TEST_F(FactorLoaderTest, VersionLineIsNeverARow) {
    testsupport::WriteText(dir_.File("energy_factors.dat"), Row(1, "SW_A", "AB12CD3EF0") + "\n");
    EXPECT_EQ(Select("AB12CD3EF0", "SW_A"), -1);
    EXPECT_TRUE(Logged(DLOG_ERROR, kEnergy, "[Energy] No matched SW Model"));
    EXPECT_TRUE(
        Logged(DLOG_INFO, kEnergy, "[Energy] Data File Version: " + Row(1, "SW_A", "AB12CD3EF0")));
}

TEST_F(FactorLoaderTest, MalformedRowOfTheRightSwModelIsSkipped) {
    std::string short_row = Row(1, "SW_A", "AB12CD3EF0");
    short_row = short_row.substr(0, short_row.rfind(','));
    WriteData({short_row, Row(2, "SW_A", "AB12CD3E"), Row(3, "SW_A", "AB12CD3EF0")});
    EXPECT_EQ(Select("AB12CD3EF0", "SW_A"), 3);
    EXPECT_TRUE(Logged(DLOG_ERROR, kEnergy, "[Energy] The number of tokens is 18 (not 19)"));
    EXPECT_TRUE(Logged(DLOG_ERROR, kEnergy, "[Energy] Invalid Panel Type AB12CD3E"));
}

TEST_F(FactorLoaderTest, ShortPanelTypeIsRejectedBeforeTheFileIsRead) {
    WriteData({Row(1, "SW_A", "AB12CD3EF0")});
    EXPECT_EQ(Select("AB12CD3E", "SW_A"), -1);
    EXPECT_TRUE(Logged(DLOG_ERROR, kEnergy, "[Energy] Invalid Panel Type"));
    EXPECT_FALSE(Logged(DLOG_INFO, kEnergy, "[Energy] Data File Version: ECF-TEST-1"));
    EXPECT_EQ(Select("AB12CD3EF", "SW_A"), 1);  // 9 characters: similar to AB12CD3EF0
}

TEST_F(FactorLoaderTest, LoadReadsPanelTypeAndSwModelFromThePlatform) {
    WriteData({Row(4, "24_SW_55", "AB12CD3EF0")});
    tvsim::SetModelName("24_SW_55");
    tvsim::SetPanelType("AB12CD3EF0");
    PowerFactors out;
    PowerFactorLoader loader;
    ASSERT_TRUE(loader.Load(out));
    EXPECT_EQ(out.SequenceNumber(), 4);
    EXPECT_TRUE(Logged(DLOG_INFO, kEnergy, "[Energy] Panel Type: AB12CD3EF0"));
    EXPECT_TRUE(Logged(DLOG_INFO, kEnergy, "[Energy] SW Model: 24_SW_55"));
    EXPECT_TRUE(Logged(DLOG_DEBUG, kEnergy, "[Energy] data file path " + dir_.path()));
}

TEST_F(FactorLoaderTest, PlatformFailuresAreLoggedAndReturnFalse) {
    WriteData({Row(4, "24_SW_55", "AB12CD3EF0")});
    PowerFactors out;
    PowerFactorLoader loader;
    tvsim::SetModelName("24_SW_55");
    EXPECT_FALSE(loader.Load(out));  // no panel type: the simulator answers "no such key"
    EXPECT_TRUE(Logged(DLOG_ERROR, kEnergy, "[Energy] fail to get panel type: -2"));
    EXPECT_TRUE(Logged(DLOG_ERROR, kEnergy, "[Energy] Failed to get panel type"));

    tvsim::SetPanelType("AB12CD3EF0");
    tvsim::FailCall(tvsim::Call::kSystemInfoGetValueString, -5);
    EXPECT_FALSE(loader.Load(out));
    EXPECT_TRUE(Logged(DLOG_ERROR, kEnergy, "[Energy] fail to get panel type: -5"));

    tvsim::ClearAllFailures();
    tvsim::SetModelName(std::nullopt);
    EXPECT_FALSE(loader.Load(out));
    EXPECT_TRUE(Logged(DLOG_ERROR, kEnergy, "[Energy] fail to get sw model: -2"));
    EXPECT_TRUE(Logged(DLOG_ERROR, kEnergy, "[Energy] Failed to get sw model"));
    EXPECT_FALSE(out.IsValid());
}

TEST_F(FactorLoaderTest, EmptySharedResourcePathFallsBackToTheFrameworkDirectory) {
    tvsim::SetAppPath(tvsim::AppPath::kSharedResource, std::nullopt);
    EXPECT_EQ(Select("AB12CD3EF0", "SW_A"), -1);
    EXPECT_TRUE(Logged(DLOG_ERROR, kEnergy,
                       "[Energy] Cannot open to "
                       "/opt/usr/apps/com.veltrix.tv.wex-framework/shared/res/energy_factors.dat"));
    EXPECT_TRUE(Logged(DLOG_ERROR, kEnergy, "[Energy] No matched SW Model"));
}

TEST_F(FactorLoaderTest, BadDataFilesGiveFalseWithTheDocumentedMessages) {
    // Missing.
    EXPECT_EQ(Select("AB12CD3EF0", "SW_A"), -1);
    EXPECT_TRUE(
        Logged(DLOG_ERROR, kEnergy, "[Energy] Cannot open to " + dir_.File("energy_factors.dat")));
    EXPECT_TRUE(Logged(DLOG_ERROR, kEnergy, "[Energy] No matched SW Model"));

    // Empty, and version line only.
    const uint64_t before_empty = tvsim::LogMark();
    testsupport::WriteText(dir_.File("energy_factors.dat"), "");
    EXPECT_EQ(Select("AB12CD3EF0", "SW_A"), -1);
    EXPECT_TRUE(tvsim::Logged(DLOG_INFO, kEnergy, "[Energy] Data File Version: ", before_empty));
    EXPECT_TRUE(tvsim::Logged(DLOG_ERROR, kEnergy, "[Energy] No matched SW Model", before_empty));
    WriteData({});
    EXPECT_EQ(Select("AB12CD3EF0", "SW_A"), -1);

    // Random bytes, NULs and newlines included.
    std::mt19937 rng(20240611);
    std::vector<uint8_t> noise(64 * 1024);
    for (auto& b : noise) {
        b = static_cast<uint8_t>(rng());
    }
    testsupport::WriteBytes(dir_.File("energy_factors.dat"), noise);
    EXPECT_EQ(Select("AB12CD3EF0", "SW_A"), -1);

    // A 1 MiB line (19 tokens, the wrong SW model) between two real rows.
    std::string huge = Row(9, std::string(1 << 20, 'X'), "AB12CD3EF0");
    WriteData({Row(1, "SW_B", "AB12CD3EF0"), huge, Row(2, "SW_A", "AB12CD3EF0")});
    EXPECT_EQ(Select("AB12CD3EF0", "SW_A"), 2);
    // And one that is a single 1 MiB token.
    WriteData({std::string(1 << 20, ','), std::string(1 << 20, 'y')});
    EXPECT_EQ(Select("AB12CD3EF0", "SW_A"), -1);
}

TEST_F(FactorLoaderTest, CrlfLineEndsStayOnTheLastToken) {
    WriteData({Row(5, "SW_A", "AB12CD3EF0")}, "\r\n");
    PowerFactors out;
    PowerFactorLoader loader;
    ASSERT_TRUE(loader.Load("AB12CD3EF0", "SW_A", out));
    EXPECT_EQ(out.SequenceNumber(), 5);
    EXPECT_EQ(out.Components(powermeter::SPEAKER), 11.0);  // strtod stops at the '\r'
    EXPECT_TRUE(Logged(DLOG_INFO, kEnergy, "[Energy] Data File Version: ECF-TEST-1\r"));
    // A "-" in the last column is no longer the missing marker: "-\r" converts to 0.
    std::string row = Row(6, "SW_A", "AB12CD3EF0");
    row = row.substr(0, row.rfind(',') + 1) + "-";
    WriteData({row}, "\r\n");
    ASSERT_TRUE(loader.Load("AB12CD3EF0", "SW_A", out));
    EXPECT_EQ(out.Components(powermeter::SPEAKER), 0.0);
}

TEST_F(FactorLoaderTest, PanelOnlyLookupIgnoresTheSwModel) {
    WriteData(
        {Row(1, "SW_A", "AB77CD7EF0"), Row(2, "SW_B", "AB12CD3EF0"), Row(3, "SW_C", "AB12CD3EF0")});
    PowerFactorLoader loader;
    PowerFactors out;
    EXPECT_TRUE(powermeter::PowerFactorLoaderPeer::FindByPanelOnly(loader, "AB12CD3EF0", out));
    EXPECT_EQ(out.SequenceNumber(), 2);
    EXPECT_TRUE(powermeter::PowerFactorLoaderPeer::FindByPanelOnly(loader, "AB55CD5EF0", out));
    EXPECT_EQ(out.SequenceNumber(), 1);  // the first similar row
    EXPECT_FALSE(powermeter::PowerFactorLoaderPeer::FindByPanelOnly(loader, "ZZ55CD5EF0", out));
    EXPECT_FALSE(out.IsValid());
}

// The sample data set shipped in data/: every documented selection.
TEST_F(FactorLoaderTest, SampleDataSetSelections) {
    tvsim::SetAppPath(tvsim::AppPath::kSharedResource, std::string(EC_SOURCE_DIR) + "/data/");
    EXPECT_EQ(Select("VP43UA2X01", "24_LUMA_UHD_43"), 101);
    EXPECT_EQ(Select("VP55UA7X01", "24_QUASAR_55"), 104);  // equal beats the similar 103
    EXPECT_EQ(Select("VP55UA9X07", "24_QUASAR_55"), 103);  // similar to 103 and 104: first
    EXPECT_EQ(Select("VQ55UB2X03", "24_QUASAR_55"), 105);
    EXPECT_EQ(Select("CS65QB9K07", "24_QUASAR_65"), 107);
    EXPECT_EQ(Select("MC75MA0M01", "24_MICRA_75"), 111);
    // The 18-token, 20-token, empty-column and short-panel rows are never selected.
    EXPECT_EQ(Select("VP43UC2X01", "24_LUMA_UHD_43"), -1);
    EXPECT_EQ(Select("VP43UD2X01", "24_LUMA_UHD_43"), -1);
    EXPECT_EQ(Select("VP43UE2X01", "24_LUMA_UHD_43"), -1);
    EXPECT_EQ(Select("VP43UF2X01", "24_LUMA_UHD_43"), -1);
}

}  // namespace
