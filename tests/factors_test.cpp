// The data set energy_factors.dat: the row format (PowerFactors), the panel-type comparisons,
// and which row PowerFactorLoader selects from files good and bad.
#include <stdexcept>
#include <string>
#include <vector>

#include "PowerFactorLoader.h"
#include "PowerFactors.h"
#include "TestSupport.h"

using powermeter::PowerFactorLoader;
using powermeter::PowerFactors;

namespace powermeter {
// Reaches the lookup that ignores the SW model (Load never calls it): the selected row's ID,
// or -1.
class PowerFactorLoaderPeer {
  public:
    static int FindByPanel(const std::string& panel) {
        PowerFactors out;
        return PowerFactorLoader().find_one_with_panel_type(panel, out) ? out.SequenceNumber() : -1;
    }
};
}  // namespace powermeter

namespace {

constexpr char kEnergy[] = "ENERGY_SERVICE";
constexpr double kMissing = PowerFactors::kMissing;

// The 19 columns of a valid row.
std::vector<std::string> Columns() {
    return {"7",   "2024", "VX55Q7000", "24_SW_55", "55", "AB12CD3EF0", "LED", "100", "200", "3",
            "3.5", "0.25", "10",        "0",        "-",  "10",         "50",  "4",   "11"};
}

std::string Join(const std::vector<std::string>& columns) {
    std::string row;
    for (size_t i = 0; i < columns.size(); ++i) {
        row += (i == 0 ? "" : ",") + columns[i];
    }
    return row;
}

// A factor column (7-18) of a parsed row.
double Factor(const PowerFactors& f, int column) {
    return column < 15 ? f.BLUFactors(static_cast<powermeter::_BLU>(column - 7))
                       : f.Components(static_cast<powermeter::_COMPONENT>(column - 15));
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
    // Load for this panel type and SW model; the selected row's ID, or -1.
    static int Select(const std::string& panel, const std::string& sw) {
        PowerFactors out;
        return PowerFactorLoader().Load(panel, sw, out) ? out.SequenceNumber() : -1;
    }
    testsupport::TempDir dir_;
};

// Each row changes one column of a valid row (or the whole text) and checks the outcome.
TEST_F(FactorsTest, RowFormat) {
    const struct {
        int column;  // -1: `value` is the whole row
        std::string value;
        bool parses;
        int id;              // SequenceNumber() afterwards
        int check_column;    // a factor column to check, or 0
        double check_value;  // its value
        const char* error;   // the line logged, or nullptr
    } rows[] = {
        {0, "7", true, 7, 10, 3.5, nullptr},
        {18, "11,1", false, -1, 0, 0, "[Energy] The number of tokens is 20 (not 19)"},
        {-1, "", false, -1, 0, 0, "[Energy] The number of tokens is 0 (not 19)"},
        {4, "", false, -1, 0, 0, "[Energy] The number of tokens is 18 (not 19)"},
        {1, ",,2024", true, 7, 18, 11.0, nullptr},  // empty tokens are dropped, not counted
        {5, "AB12CD3E", false, 7, 7, kMissing, "[Energy] Invalid Panel Type AB12CD3E"},
        {5, "AB12CD3EF", true, 7, 7, 100.0, nullptr},
        {0, "-1", true, -1, 0, 0, nullptr},
        {0, "x", true, 0, 0, 0, nullptr},
        {0, "12abc", true, 12, 0, 0, nullptr},
        {0, "99999999999", true, 2147483647, 0, 0, nullptr},
        {7, "abc", true, 7, 7, 0.0, nullptr},
        {8, "1.5e2W", true, 7, 8, 150.0, nullptr},
        {9, " 4", true, 7, 9, 4.0, nullptr},
        {13, "-", true, 7, 13, kMissing, nullptr},
        {14, "0.5", true, 7, 14, 0.5, nullptr},
        {15, "--", true, 7, 15, 0.0, nullptr},
        {16, "-5x", true, 7, 16, -5.0, nullptr},
        {17, "-", true, 7, 17, kMissing, nullptr},
    };
    for (const auto& r : rows) {
        std::vector<std::string> columns = Columns();
        std::string text = r.value;
        if (r.column >= 0) {
            columns[r.column] = r.value;
            text = Join(columns);
        }
        SCOPED_TRACE(text);
        const uint64_t mark = tvsim::LogMark();
        PowerFactors f;
        EXPECT_EQ(f.Parse(text), r.parses);
        EXPECT_EQ(f.SequenceNumber(), r.id);
        EXPECT_EQ(f.IsValid(), r.id != -1);
        if (r.check_column != 0) {
            EXPECT_EQ(Factor(f, r.check_column), r.check_value);
        }
        EXPECT_EQ(Catalogue(kEnergy, mark),
                  r.error ? std::vector<std::string>{std::string("E ") + r.error}
                          : std::vector<std::string>{});
    }
    PowerFactors empty;
    EXPECT_FALSE(empty.IsValid());
    for (int column = 7; column < 19; ++column) {
        EXPECT_EQ(Factor(empty, column), kMissing);
    }
}

TEST_F(FactorsTest, ModelAndPanelComparisons) {
    PowerFactors f;
    auto columns = Columns();
    columns[5] = "ABxxCDyEF";
    ASSERT_TRUE(f.Parse(Join(columns)));
    EXPECT_TRUE(f.IsSameModel("VX55Q7000"));
    EXPECT_FALSE(f.IsSameModel("VX55Q700"));
    EXPECT_TRUE(f.IsSameSWModel("24_SW_55"));
    EXPECT_FALSE(f.IsSameSWModel("24_sw_55"));
    EXPECT_TRUE(f.IsSamePanelType("ABxxCDyEF"));
    EXPECT_FALSE(f.IsSamePanelType("ABxxCDyEG"));
    // Similar: the same first two, fifth and sixth, and eighth and ninth characters. Seven or
    // eight characters compare a shorter last slice; fewer than seven throw.
    const struct {
        const char* other;
        int similar;  // 1, 0, or -1 for a throw
    } rows[] = {{"ABzzCDwEF", 1}, {"ABzzCDwEFGH", 1}, {"ABzzCDwEG", 0},
                {"AxzzCDwEF", 0}, {"ABzzCxwEF", 0},   {"ABzzCDwE", 0},
                {"ABzzCDw", 0},   {"ABzzCD", -1},     {"XY", -1}};
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
    ASSERT_TRUE(f.Parse(Join(Columns())));
    f.Print();
    f.PrintInfo();
    EXPECT_EQ(Catalogue(kEnergy),
              (std::vector<std::string>{"I [Energy] === 7 === ",
                                        "I [Energy] 2024",
                                        "I [Energy] VX55Q7000",
                                        "I [Energy] 24_SW_55",
                                        "I [Energy] 55",
                                        "I [Energy] AB12CD3EF0",
                                        "I [Energy] LED",
                                        "I [Energy] OD_MIN: 100.000000",
                                        "I [Energy] OD_MAX: 200.000000",
                                        "I [Energy] VF_MIN: 3.000000",
                                        "I [Energy] VF_MAX: 3.500000",
                                        "I [Energy] ALPHA: 0.250000",
                                        "I [Energy] BLOCK: 10.000000",
                                        "I [Energy] TYPE: 0.000000",
                                        "I [Energy] COMPENSATE_CONSTANT: N/A",
                                        "I [Energy] CELL: 10.000000",
                                        "I [Energy] MAIN: 50.000000",
                                        "I [Energy] MAIN_LPM: 4.000000",
                                        "I [Energy] SPEAKER: 11.000000",
                                        "I [Energy] ID: 7, Panel type: AB12CD3EF0"}));
}

// Rows of the data set are (ID, SW model, panel type); the factors do not matter here.
std::string Row(int id, const std::string& sw, const std::string& panel) {
    return std::to_string(id) + ",2024,VX," + sw + ",55," + panel + ",LED,100,200,3,3,0,10,0,-," +
           std::to_string(id) + ",50,4,11";
}

TEST_F(FactorsTest, LoaderSelection) {
    std::string short_row = Row(9, "SW_A", "AB12CD3EF0");
    short_row.resize(short_row.rfind(','));
    const std::string huge = Row(8, std::string(1 << 20, 'X'), "AB12CD3EF0");
    const struct {
        std::vector<std::string> rows;
        const char* panel;
        const char* sw;
        int selected;
    } cases[] = {
        // An equal panel type beats an earlier similar one; of two equal rows, the first.
        {{Row(1, "SW_A", "AB12CD3EF0"), Row(2, "SW_A", "AB99CD9EF0"), Row(3, "SW_A", "AB12CD3EF0")},
         "AB99CD9EF0",
         "SW_A",
         2},
        {{Row(1, "SW_A", "AB12CD3EF0"), Row(2, "SW_A", "AB99CD9EF0"), Row(3, "SW_A", "AB12CD3EF0")},
         "AB12CD3EF0",
         "SW_A",
         1},
        // The first similar row wins even if a later one is closer.
        {{Row(1, "SW_A", "ABxxCDyEF0"), Row(2, "SW_A", "AB12CD3EF9")}, "AB12CD3EF0", "SW_A", 1},
        {{Row(1, "SW_A", "ABxxCDyEF0")}, "ABxxCDyEG0", "SW_A", -1},
        // Rows of other SW models are never considered.
        {{Row(1, "SW_B", "AB12CD3EF0"), Row(2, "SW_A", "AB12CD3EF7")}, "AB12CD3EF0", "SW_A", 2},
        {{Row(1, "SW_B", "AB12CD3EF0")}, "AB12CD3EF0", "SW_C", -1},
        // Malformed rows of the right SW model are skipped, huge ones too.
        {{short_row, Row(2, "SW_A", "AB12CD3E"), huge, Row(3, "SW_A", "AB12CD3EF0")},
         "AB12CD3EF0",
         "SW_A",
         3},
        {{std::string(1 << 20, ','), std::string(1 << 20, 'y')}, "AB12CD3EF0", "SW_A", -1},
        // A panel type of eight characters is refused before the file is read; nine are enough.
        {{Row(1, "SW_A", "AB12CD3EF0")}, "AB12CD3E", "SW_A", -1},
        {{Row(1, "SW_A", "AB12CD3EF0")}, "AB12CD3EF", "SW_A", 1},
        {{}, "AB12CD3EF0", "SW_A", -1},
    };
    for (const auto& c : cases) {
        WriteData(c.rows);
        EXPECT_EQ(Select(c.panel, c.sw), c.selected) << c.panel << " " << c.sw;
    }
    // The version line is never a row.
    testsupport::WriteText(dir_.File("energy_factors.dat"), Row(1, "SW_A", "AB12CD3EF0") + "\n");
    EXPECT_EQ(Select("AB12CD3EF0", "SW_A"), -1);
    // CRLF line ends stay on the last token: strtod stops at the '\r', and "-\r" is no marker.
    std::string dash = Row(6, "SW_A", "AB12CD3EF1");
    dash = dash.substr(0, dash.rfind(',') + 1) + "-";
    WriteData({Row(5, "SW_A", "AB12CD3EF0"), dash}, "\r\n");
    PowerFactors out;
    ASSERT_TRUE(PowerFactorLoader().Load("AB12CD3EF0", "SW_A", out));
    EXPECT_EQ(out.Components(powermeter::SPEAKER), 11.0);
    ASSERT_TRUE(PowerFactorLoader().Load("AB12CD3EF1", "SW_A", out));
    EXPECT_EQ(out.Components(powermeter::SPEAKER), 0.0);
}

// The SW-model-blind lookup: the first equal panel type of any model, else the first similar
// one, else nothing (not the last row it parsed).
TEST_F(FactorsTest, PanelOnlyLookup) {
    const struct {
        std::vector<std::string> rows;
        int selected;
    } cases[] = {
        {{Row(1, "SW_A", "ABxxCDyEF0"), Row(2, "SW_B", "ZZ99ZZ9ZZ9")}, 1},
        {{Row(1, "SW_A", "ABxxCDyEF0"), Row(2, "SW_B", "AB12CD3EF0")}, 2},
        {{Row(1, "SW_A", "ZZ99ZZ9ZZ9")}, -1},
    };
    for (const auto& c : cases) {
        WriteData(c.rows);
        EXPECT_EQ(powermeter::PowerFactorLoaderPeer::FindByPanel("AB12CD3EF0"), c.selected);
    }
}

// One scenario per path, the loader's lines compared as a whole.
TEST_F(FactorsTest, LoaderCatalogue) {
    WriteData({Row(4, "24_SW_55", "AB12CD3EF0"), Row(5, "24_SW_55", "AB77CD7EF0")});
    tvsim::SetModelName("24_SW_55");
    tvsim::SetPanelType("AB12CD3EF0");
    PowerFactors out;
    ASSERT_TRUE(PowerFactorLoader().Load(out));
    EXPECT_EQ(out.SequenceNumber(), 4);
    std::vector<std::string> lines = Catalogue(kEnergy);
    lines.erase(
        std::remove_if(lines.begin(), lines.end(),
                       [](const std::string& l) { return l.rfind("I [Energy] ID: ", 0) == 0; }),
        lines.end());
    EXPECT_EQ(lines, (std::vector<std::string>{
                         "I [Energy] Panel Type: AB12CD3EF0", "I [Energy] SW Model: 24_SW_55",
                         "I [Energy] Find a power factors for 24_SW_55",
                         "D [Energy] data file path " + dir_.path(),
                         "I [Energy] Data File Version: ECF-TEST-1",
                         "D [Energy] candidate panel type", "D [Energy] candidate panel type",
                         "E [Energy] Find a power factors for AB12CD3EF0"}));

    // Failures: no panel type, a failing call, no SW model, no file, no similar row.
    const uint64_t mark = tvsim::LogMark();
    tvsim::SetPanelType(std::nullopt);
    EXPECT_FALSE(PowerFactorLoader().Load(out));
    tvsim::SetPanelType("AB12CD3EF0");
    tvsim::FailCall(tvsim::Call::kSystemInfoGetValueString, -5);
    EXPECT_FALSE(PowerFactorLoader().Load(out));
    tvsim::ClearAllFailures();
    tvsim::SetModelName(std::nullopt);
    EXPECT_FALSE(PowerFactorLoader().Load(out));
    EXPECT_EQ(Catalogue(kEnergy, mark),
              (std::vector<std::string>{
                  "E [Energy] fail to get panel type: -2", "E [Energy] Failed to get panel type",
                  "E [Energy] fail to get panel type: -5", "E [Energy] Failed to get panel type",
                  "I [Energy] Panel Type: AB12CD3EF0", "E [Energy] fail to get sw model: -2",
                  "E [Energy] Failed to get sw model"}));
    const uint64_t mark2 = tvsim::LogMark();
    tvsim::SetAppPath(tvsim::AppPath::kSharedResource, std::nullopt);
    EXPECT_EQ(Select("AB12CD3EF0", "24_SW_55"), -1);
    tvsim::SetAppPath(tvsim::AppPath::kSharedResource, dir_.path());
    EXPECT_EQ(Select("ZZ12CD3EF0", "24_SW_55"), -1);
    std::vector<std::string> failures = Catalogue(kEnergy, mark2);
    failures.erase(std::remove_if(failures.begin(), failures.end(),
                                  [](const std::string& l) {
                                      return l[0] == 'D' || l.rfind("I [Energy] ID: ", 0) == 0;
                                  }),
                   failures.end());
    EXPECT_EQ(failures,
              (std::vector<std::string>{
                  "I [Energy] Find a power factors for 24_SW_55",
                  "E [Energy] Cannot open to "
                  "/opt/usr/apps/com.veltrix.tv.wex-framework/shared/res/energy_factors.dat",
                  "E [Energy] No matched SW Model", "I [Energy] Find a power factors for 24_SW_55",
                  "I [Energy] Data File Version: ECF-TEST-1",
                  "E [Energy] Find a power factors for ZZ12CD3EF0",
                  "E [Energy] there is no proper factors"}));
}

}  // namespace
