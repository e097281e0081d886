// The data set energy_factors.dat: the row format (PowerFactors), the panel-type comparisons,
// which row PowerFactorLoader selects from files good and bad, and the support library's
// availability pre-check, which scans the same file.
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include "EnergyServicePrerequisite.h"
#include "PowerFactorLoader.h"
#include "PowerFactors.h"
#include "SystemInfoUtil.h"
#include "TestSupport.h"

using common::service_prerequisite::EnergyServicePrerequisite;
using powermeter::PowerFactorLoader;
using powermeter::PowerFactors;

namespace powermeter {
// Reaches the lookup that ignores the SW model (Load never calls it): the selected row's ID,
// or 0 when it reports nothing found (no row here has ID 0).
class PowerFactorLoaderPeer {
  public:
    static int FindByPanel(const std::string& panel) {
        PowerFactors out;
        return PowerFactorLoader().find_one_with_panel_type(panel, out) ? out.SequenceNumber() : 0;
    }
};
}  // namespace powermeter

namespace {

constexpr char kEnergy[] = "ENERGY_SERVICE";
constexpr char kCommon[] = "WEXF_COMMON";
constexpr double kMissing = PowerFactors::kMissing;

// A valid row of 19 columns, column `column` replaced by `value`.
std::string RowWith(int column, const std::string& value) {
    std::string row =
        "7,2024,VX55Q7000,24_SW_55,55,AB12CD3EF0,LED,100,200,3,3.5,0.25,10,0,-,10,50,4,11";
    size_t start = 0;
    for (int i = 0; i < column; ++i) {
        start = row.find(',', start) + 1;
    }
    return row.replace(start, row.find(',', start) - start, value);
}

// A factor column (7-18) of a parsed row.
double Factor(const PowerFactors& f, int column) {
    return column < 15 ? f.BLUFactors(static_cast<powermeter::_BLU>(column - 7))
                       : f.Components(static_cast<powermeter::_COMPONENT>(column - 15));
}

// Rows of the data set are (ID, panel type, SW model); the factors do not matter here.
std::string Row(int id, const std::string& panel, const std::string& sw = "SW_A") {
    return std::to_string(id) + ",2024,VX," + sw + ",55," + panel + ",LED,100,200,3,3,0,10,0,-," +
           std::to_string(id) + ",50,4,11";
}

class FactorsTest : public testsupport::SimTest {
  protected:
    void SetUp() override { tvsim::SetAppPath(tvsim::AppPath::kSharedResource, dir_.path()); }
    void WriteData(const std::vector<std::string>& rows, const std::string& eol = "\n") {
        std::string text = std::string("ECF-TEST-1") + eol;
        for (const auto& r : rows) {
            text += r + eol;
        }
        testsupport::WriteText(dir_.File("energy_factors.dat"), text);
    }
    // Load for this panel type and SW model; the selected row's ID, or 0.
    static int Select(const std::string& panel, const std::string& sw) {
        PowerFactors out;
        return PowerFactorLoader().Load(panel, sw, out) ? out.SequenceNumber() : 0;
    }
    // A tag's lines since `since` as one text, "|" after each: the priority letter and the
    // message without `prefix`; debug lines left out.
    std::string Printed(uint64_t since, const char* tag = kEnergy,
                        const std::string& prefix = "[Energy] ") const {
        std::string text;
        for (std::string line : Catalogue(tag, since)) {
            if (line.compare(2, prefix.size(), prefix) == 0) {
                line.erase(2, prefix.size());
            }
            text += line[0] == 'D' ? "" : line + "|";
        }
        return text;
    }
    // The pre-check for SW model SW_A and this panel type; its lines as Printed writes them.
    bool Available(const std::string& panel, std::string& lines) {
        const uint64_t mark = tvsim::LogMark();
        const bool available = EnergyServicePrerequisite("SW_A", panel).IsAvailable();
        lines = Printed(mark, kCommon, "[EnergyServicePrerequisite] ");
        return available;
    }
    testsupport::TempDir dir_;
};

// Each row changes one column of a valid row; a record that fails to parse keeps what it had
// when the check failed.
TEST_F(FactorsTest, RowFormat) {
    const struct {
        int column;
        std::string value;
        bool parses;
        int id;             // SequenceNumber() afterwards
        double factor;      // the changed column afterwards, or column 7 for a column below 7
        const char* error;  // the lines logged
    } rows[] = {
        {18, "11,1", false, -1, kMissing, "E The number of tokens is 20 (not 19)|"},
        {4, "", false, -1, kMissing, "E The number of tokens is 18 (not 19)|"},
        {1, ",,2024", true, 7, 100.0, ""},  // empty tokens are dropped, not counted
        {5, "AB12CD3E", false, 7, kMissing, "E Invalid Panel Type AB12CD3E|"},
        {5, "AB12CD3EF", true, 7, 100.0, ""},
        {0, "-1", true, -1, 100.0, ""},
        {8, "1.5e2W", true, 7, 150.0, ""},
        {13, "-", true, 7, kMissing, ""},
        {15, "--", true, 7, 0.0, ""},
    };
    for (const auto& r : rows) {
        const std::string text = RowWith(r.column, r.value);
        SCOPED_TRACE(text);
        const uint64_t mark = tvsim::LogMark();
        PowerFactors f;
        EXPECT_EQ(f.Parse(text), r.parses);
        EXPECT_EQ(f.SequenceNumber(), r.id);
        EXPECT_EQ(f.IsValid(), r.id != -1);
        EXPECT_EQ(Factor(f, std::max(r.column, 7)), r.factor);
        EXPECT_EQ(Printed(mark), r.error);
    }
}

// Similar: the same first two, fifth and sixth, and eighth and ninth characters. Seven or
// eight characters compare a shorter last slice; fewer than seven throw.
TEST_F(FactorsTest, SimilarPanelType) {
    PowerFactors f;
    ASSERT_TRUE(f.Parse(RowWith(5, "ABxxCDyEF")));
    const struct {
        const char* other;
        int similar;  // 1, 0, or -1 for a throw
    } rows[] = {{"ABzzCDwEF", 1}, {"ABzzCDwEFGH", 1}, {"ABzzCDwEG", 0}, {"AxzzCDwEF", 0},
                {"ABzzCxwEF", 0}, {"ABzzCDwE", 0},    {"ABzzCDw", 0},   {"ABzzCD", -1}};
    for (const auto& r : rows) {
        int similar = -1;
        try {
            similar = f.IsSimilarPanelType(r.other) ? 1 : 0;
        } catch (const std::out_of_range&) {
        }
        EXPECT_EQ(similar, r.similar) << r.other;
    }
}

TEST_F(FactorsTest, PrintCatalogue) {
    PowerFactors f;
    ASSERT_TRUE(f.Parse(RowWith(0, "7")));
    f.Print();
    f.PrintInfo();
    EXPECT_EQ(Printed(mark_),
              "I === 7 === |I 2024|I VX55Q7000|I 24_SW_55|I 55|I AB12CD3EF0|I LED|"
              "I OD_MIN: 100.000000|I OD_MAX: 200.000000|I VF_MIN: 3.000000|"
              "I VF_MAX: 3.500000|I ALPHA: 0.250000|I BLOCK: 10.000000|"
              "I TYPE: 0.000000|I COMPENSATE_CONSTANT: N/A|I CELL: 10.000000|"
              "I MAIN: 50.000000|I MAIN_LPM: 4.000000|I SPEAKER: 11.000000|"
              "I ID: 7, Panel type: AB12CD3EF0|");
}

// Load selects among the rows of its SW model; the lookup that ignores the SW model ("blind")
// takes the first equal panel type of any model, else the first similar one it remembered.
TEST_F(FactorsTest, LoaderSelection) {
    const char* const p = "AB12CD3EF0";
    const std::string huge = Row(8, p, std::string(1 << 20, 'X'));
    const std::string similar = "ABxxCDyEF0";
    const struct {
        std::vector<std::string> rows;
        const char* panel;
        int selected;  // 0: nothing
        bool blind = false;
    } cases[] = {
        // An equal panel type beats an earlier similar one; of two equal rows, the first. The
        // other rules of Load are held to the oracle by the differential test.
        {{Row(1, similar), Row(2, "AB99CD9EF0"), Row(3, "AB99CD9EF0")}, "AB99CD9EF0", 2},
        // Huge rows are skipped.
        {{huge, Row(3, p)}, p, 3},
        {{std::string(1 << 20, ','), std::string(1 << 20, 'y')}, p, 0},
        // A panel type of eight characters is refused before the file is read; nine are enough.
        {{Row(1, p)}, "AB12CD3E", 0},
        {{Row(1, p)}, "AB12CD3EF", 1},
        {{Row(1, similar), Row(2, "ABzzCDwEF1", "SW_B"), Row(3, "ZZ9ZZ9ZZ9", "SW_B")}, p, 1, true},
        {{Row(1, similar), Row(2, p, "SW_B")}, p, 2, true},
        {{Row(1, "ZZ99ZZ9ZZ9")}, p, 0, true},
    };
    for (const auto& c : cases) {
        WriteData(c.rows);
        EXPECT_EQ(c.blind ? powermeter::PowerFactorLoaderPeer::FindByPanel(c.panel)
                          : Select(c.panel, "SW_A"),
                  c.selected)
            << c.panel;
    }
    std::remove(dir_.File("energy_factors.dat").c_str());
    EXPECT_EQ(powermeter::PowerFactorLoaderPeer::FindByPanel(p), 0);
    // A FIFO (with no writer a blocking open waits for ever) is no data set.
    const std::string path = dir_.File("energy_factors.dat");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const uint64_t mark = tvsim::LogMark();
    EXPECT_EQ(Select(p, "SW_A"), 0);
    EXPECT_EQ(powermeter::PowerFactorLoaderPeer::FindByPanel(p), 0);
    EXPECT_EQ(tvsim::CountLogged(DLOG_ERROR, kEnergy, "[Energy] Cannot open to " + path, mark), 2u);
    std::remove(path.c_str());
    // The version line is never a row.
    testsupport::WriteText(dir_.File("energy_factors.dat"), Row(1, p) + "\n");
    EXPECT_EQ(Select(p, "SW_A"), 0);
    // CRLF line ends stay on the last token, where "-\r" is no marker: strtod reads 0.
    const std::string row = Row(5, p);
    WriteData({row.substr(0, row.size() - 2) + "-"}, "\r\n");
    PowerFactors out;
    ASSERT_TRUE(PowerFactorLoader().Load(p, "SW_A", out));
    EXPECT_EQ(out.Components(powermeter::SPEAKER), 0.0);
}

// Load from the platform's panel type and SW model, and its failures; the lines of the row
// scan itself are held to the parse-every-row oracle by the differential test.
TEST_F(FactorsTest, LoadFromThePlatform) {
    WriteData({Row(4, "AB12CD3EF0", "24_SW_55")});
    tvsim::SetModelName("24_SW_55");
    tvsim::SetPanelType("AB12CD3EF0");
    PowerFactors out;
    ASSERT_TRUE(PowerFactorLoader().Load(out));
    EXPECT_EQ(out.SequenceNumber(), 4);
    // No panel type, a failing call, no SW model; then no file in the default directory.
    tvsim::SetPanelType(std::nullopt);
    EXPECT_FALSE(PowerFactorLoader().Load(out));
    tvsim::SetPanelType("AB12CD3EF0");
    tvsim::FailCall(tvsim::Call::kSystemInfoGetValueString, -5);
    EXPECT_FALSE(PowerFactorLoader().Load(out));
    tvsim::ClearAllFailures();
    tvsim::SetModelName(std::nullopt);
    EXPECT_FALSE(PowerFactorLoader().Load(out));
    tvsim::SetAppPath(tvsim::AppPath::kSharedResource, std::nullopt);
    EXPECT_EQ(Select("AB12CD3EF0", "24_SW_55"), 0);
    EXPECT_EQ(Printed(mark_),
              "I Panel Type: AB12CD3EF0|I SW Model: 24_SW_55|"
              "I Find a power factors for 24_SW_55|I Data File Version: ECF-TEST-1|"
              "I ID: 4, Panel type: AB12CD3EF0|E Find a power factors for AB12CD3EF0|"
              "E fail to get panel type: -2|E Failed to get panel type|"
              "E fail to get panel type: -5|E Failed to get panel type|"
              "I Panel Type: AB12CD3EF0|E fail to get sw model: -2|"
              "E Failed to get sw model|I Find a power factors for 24_SW_55|"
              "E Cannot open to /opt/usr/apps/com.veltrix.tv.wex-framework/shared/res/"
              "energy_factors.dat|E No matched SW Model|");
}

// The decisions in their order: year, China region, identity, then the data set.
TEST_F(FactorsTest, PrerequisiteDecisionsInOrder) {
    WriteData({Row(1, "AB12CD3EF0")});
    const struct {
        int year;
        const char* locale;
        std::optional<std::string> sw, panel;
        bool supported;
        const char* line;  // a line logged, after its priority letter
        bool data_read;
    } rows[] = {
        {21, "CHI_DTV", "", "", false, "E Energy Service Not Supported Under 22 year TV", false},
        {22, "EA_CHINA", "", "", false, "E Energy Service Not Supported in China Region", false},
        {22, "CHI_DTV", "", "", false, "E Energy Service Not Supported in China Region", false},
        {22, "EU_DTV", "SW_A", std::nullopt, true,
         "E At this time, Failed to get sw model and panel type, so it returns true here", false},
        {22, "CHI_DTV2", std::nullopt, "AB12CD3EF0", true,
         "E At this time, Failed to get sw model and panel type, so it returns true here", false},
        {24, "EU_DTV", "SW_A", "ABxyCDzEFextra", true,
         "I [EnergyServicePrerequisite] Availability Check for SW_A, ABxyCDzEFextra: 1", true},
        {24, "EU_DTV", "SW_B", "AB12CD3EF0", false,
         "E [EnergyServicePrerequisite] Could not find a proper data set: SW_B, AB12CD3EF0", true},
    };
    for (const auto& r : rows) {
        tvsim::SetModelYear(r.year);
        tvsim::SetLocaleSet(std::string(r.locale));
        tvsim::SetModelName(r.sw);
        tvsim::SetPanelType(r.panel);
        const uint64_t reads = tvsim::CallCount(tvsim::Call::kAppGetSharedResourcePath);
        const uint64_t mark = tvsim::LogMark();
        EXPECT_EQ(SystemInfoUtil::IsSupportEnergyService(), r.supported) << r.locale;
        EXPECT_NE(Printed(mark, kCommon, "").find(std::string(r.line) + "|"), std::string::npos)
            << r.locale;
        EXPECT_EQ(tvsim::CallCount(tvsim::Call::kAppGetSharedResourcePath) > reads, r.data_read);
    }
}

// The scan: malformed rows reported, the SW model compared exactly, panel types of fewer than
// nine characters refused (nine taken), the first similar row taken.
TEST_F(FactorsTest, PrerequisiteScanOfTheDataSet) {
    std::string empty_field = Row(1, "AB12CD3EF0");  // empty tokens do not count: 18
    empty_field.replace(empty_field.find(",55,"), 4, ",,");
    WriteData({empty_field, Row(1, "AB12CD3EF0") + ",9", Row(1, "AB12CD3EF0", "sw_a"),
               Row(1, "ZZ12CD3EF0"), Row(1, "AB12CD3E"), Row(1, "AB99CD9EF")});
    const std::string scan =
        "I energy data version: ECF-TEST-1|"
        "E The number of tokens is 18 (not 19)|"
        "E The number of tokens is 20 (not 19)|";
    std::string lines;
    EXPECT_TRUE(Available("AB12CD3EF0", lines));
    EXPECT_EQ(lines, scan +
                         "E Invalid Panel Type AB12CD3EF0 and AB12CD3E|"
                         "I find one from energy data set: SW_A, AB99CD9EF|"
                         "I Availability Check for SW_A, AB12CD3EF0: 1|");
    EXPECT_FALSE(Available("AB12CD3E", lines));
    EXPECT_NE(lines.find("E Invalid Panel Type AB12CD3E and AB99CD9EF|"), std::string::npos);
    // No file, the framework's default directory, a file that cannot be read.
    std::remove(dir_.File("energy_factors.dat").c_str());
    EXPECT_FALSE(Available("AB12CD3EF0", lines));
    EXPECT_EQ(lines, "E Cannot open to " + dir_.File("energy_factors.dat") +
                         "|I Availability Check for SW_A, AB12CD3EF0: 0|");
    tvsim::SetAppPath(tvsim::AppPath::kSharedResource, std::nullopt);
    EXPECT_FALSE(Available("AB12CD3EF0", lines));
    EXPECT_EQ(lines.find("E Cannot open to /opt/usr/apps/com.veltrix.tv.wex-framework/shared/res/"
                         "energy_factors.dat|"),
              0u);
    tvsim::SetAppPath(tvsim::AppPath::kSharedResource, dir_.path());
    ASSERT_EQ(mkdir(dir_.File("energy_factors.dat").c_str(), 0700), 0);
    EXPECT_FALSE(Available("AB12CD3EF0", lines));
    EXPECT_NE(lines.find("E Exception !! - "), std::string::npos);
    rmdir(dir_.File("energy_factors.dat").c_str());
    // A FIFO cannot hold up the check.
    ASSERT_EQ(mkfifo(dir_.File("energy_factors.dat").c_str(), 0600), 0);
    EXPECT_FALSE(Available("AB12CD3EF0", lines));
    EXPECT_EQ(lines, "E Cannot open to " + dir_.File("energy_factors.dat") +
                         "|I Availability Check for SW_A, AB12CD3EF0: 0|");
    std::remove(dir_.File("energy_factors.dat").c_str());
}

}  // namespace
