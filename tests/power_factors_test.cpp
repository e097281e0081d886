// PowerFactors: the row format of energy_factors.dat, the panel-type comparisons and the
// record's log form.
#include <stdexcept>
#include <string>
#include <vector>

#include "PowerFactors.h"
#include "TestSupport.h"

using powermeter::PowerFactors;
using testsupport::SimTest;

namespace {

constexpr const char kEnergy[] = "ENERGY_SERVICE";

// The 19 columns of a valid row; tests change single columns.
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

class PowerFactorsTest : public SimTest {};

TEST_F(PowerFactorsTest, DefaultRecordIsInvalidAndAllMissing) {
    PowerFactors f;
    EXPECT_FALSE(f.IsValid());
    EXPECT_EQ(f.SequenceNumber(), -1);
    EXPECT_EQ(f.BLUFactors(powermeter::OD_MIN), -12345678.0);
    EXPECT_EQ(f.BLUFactors(powermeter::COMPENSATE_CONSTANT), -12345678.0);
    EXPECT_EQ(f.Components(powermeter::SPEAKER), -12345678.0);
    EXPECT_TRUE(f.IsSameSWModel("-"));
    EXPECT_TRUE(f.IsSamePanelType("-"));
}

TEST_F(PowerFactorsTest, ValidRowFillsEveryField) {
    PowerFactors f;
    ASSERT_TRUE(f.Parse(Join(Columns())));
    EXPECT_TRUE(f.IsValid());
    EXPECT_EQ(f.SequenceNumber(), 7);
    EXPECT_TRUE(f.IsSameModel("VX55Q7000"));
    EXPECT_TRUE(f.IsSameSWModel("24_SW_55"));
    EXPECT_FALSE(f.IsSameSWModel("24_sw_55"));
    EXPECT_FALSE(f.IsSameSWModel("24_SW_5"));
    EXPECT_TRUE(f.IsSamePanelType("AB12CD3EF0"));
    EXPECT_EQ(f.BLUFactors(powermeter::OD_MIN), 100.0);
    EXPECT_EQ(f.BLUFactors(powermeter::OD_MAX), 200.0);
    EXPECT_EQ(f.BLUFactors(powermeter::VF_MAX), 3.5);
    EXPECT_EQ(f.BLUFactors(powermeter::ALPHA), 0.25);
    EXPECT_EQ(f.BLUFactors(powermeter::BLOCK), 10.0);
    EXPECT_EQ(f.BLUFactors(powermeter::TYPE), 0.0);
    EXPECT_EQ(f.BLUFactors(powermeter::COMPENSATE_CONSTANT), -12345678.0);
    EXPECT_EQ(f.Components(powermeter::CELL), 10.0);
    EXPECT_EQ(f.Components(powermeter::MAIN), 50.0);
    EXPECT_EQ(f.Components(powermeter::MAIN_LPM), 4.0);
    EXPECT_EQ(f.Components(powermeter::SPEAKER), 11.0);
    EXPECT_TRUE(Messages(kEnergy).empty());
}

TEST_F(PowerFactorsTest, TokenCountOtherThan19IsRejectedWithTheCount) {
    auto c = Columns();
    c.pop_back();
    PowerFactors f;
    EXPECT_FALSE(f.Parse(Join(c)));
    EXPECT_TRUE(Logged(DLOG_ERROR, kEnergy, "[Energy] The number of tokens is 18 (not 19)"));
    c = Columns();
    c.push_back("1");
    EXPECT_FALSE(f.Parse(Join(c)));
    EXPECT_TRUE(Logged(DLOG_ERROR, kEnergy, "[Energy] The number of tokens is 20 (not 19)"));
    EXPECT_FALSE(f.Parse(""));
    EXPECT_TRUE(Logged(DLOG_ERROR, kEnergy, "[Energy] The number of tokens is 0 (not 19)"));
    EXPECT_FALSE(f.IsValid());
}

TEST_F(PowerFactorsTest, EmptyTokensAreDroppedNotCounted) {
    // An empty column makes the row one token short.
    auto c = Columns();
    c[4] = "";
    PowerFactors f;
    EXPECT_FALSE(f.Parse(Join(c)));
    EXPECT_TRUE(Logged(DLOG_ERROR, kEnergy, "[Energy] The number of tokens is 18 (not 19)"));
    // Doubled, leading and trailing separators add nothing: the row is still valid.
    std::string row = Join(Columns());
    row.insert(row.find(",2024"), ",,");
    ASSERT_TRUE(f.Parse("," + row + ",,"));
    EXPECT_EQ(f.SequenceNumber(), 7);
    EXPECT_TRUE(f.IsSameModel("VX55Q7000"));
    EXPECT_EQ(f.Components(powermeter::SPEAKER), 11.0);
    // Blanks are not trimmed: they belong to the token.
    c = Columns();
    c[3] = " 24_SW_55";
    ASSERT_TRUE(f.Parse(Join(c)));
    EXPECT_FALSE(f.IsSameSWModel("24_SW_55"));
}

TEST_F(PowerFactorsTest, DashGivesTheMissingMarkerInEveryNumericColumn) {
    auto c = Columns();
    for (size_t i = 7; i < 19; ++i) {
        c[i] = "-";
    }
    c[1] = "-";
    PowerFactors f;
    ASSERT_TRUE(f.Parse(Join(c)));
    for (int b = powermeter::OD_MIN; b <= powermeter::COMPENSATE_CONSTANT; ++b) {
        EXPECT_EQ(f.BLUFactors(static_cast<powermeter::_BLU>(b)), PowerFactors::kMissing);
    }
    for (int k = powermeter::CELL; k <= powermeter::SPEAKER; ++k) {
        EXPECT_EQ(f.Components(static_cast<powermeter::_COMPONENT>(k)), PowerFactors::kMissing);
    }
    // Only a lone "-" is the marker; "--" and "-x" go through strtod.
    c[15] = "--";
    c[16] = "-5x";
    ASSERT_TRUE(f.Parse(Join(c)));
    EXPECT_EQ(f.Components(powermeter::CELL), 0.0);
    EXPECT_EQ(f.Components(powermeter::MAIN), -5.0);
}

TEST_F(PowerFactorsTest, JunkNumbersConvertTheirLeadingPartOrZero) {
    auto c = Columns();
    c[0] = "12abc";
    c[7] = "abc";
    c[8] = "1.5e2W";
    c[9] = " 4";
    PowerFactors f;
    ASSERT_TRUE(f.Parse(Join(c)));
    EXPECT_EQ(f.SequenceNumber(), 12);
    EXPECT_EQ(f.BLUFactors(powermeter::OD_MIN), 0.0);
    EXPECT_EQ(f.BLUFactors(powermeter::OD_MAX), 150.0);
    EXPECT_EQ(f.BLUFactors(powermeter::VF_MIN), 4.0);

    c[0] = "x";  // junk ID gives 0, which is a valid ID
    ASSERT_TRUE(f.Parse(Join(c)));
    EXPECT_EQ(f.SequenceNumber(), 0);
    EXPECT_TRUE(f.IsValid());
    c[0] = "-3";
    ASSERT_TRUE(f.Parse(Join(c)));
    EXPECT_TRUE(f.IsValid());
    // An ID past 32 bits saturates, as strtol does on the set.
    c[0] = "99999999999";
    ASSERT_TRUE(f.Parse(Join(c)));
    EXPECT_EQ(f.SequenceNumber(), 2147483647);
}

TEST_F(PowerFactorsTest, RowWithIdMinusOneParsesButIsNotValid) {
    auto c = Columns();
    c[0] = "-1";
    PowerFactors f;
    EXPECT_TRUE(f.Parse(Join(c)));
    EXPECT_FALSE(f.IsValid());
}

TEST_F(PowerFactorsTest, PanelTypeNeedsMoreThanEightCharacters) {
    auto c = Columns();
    c[5] = "AB12CD3E";
    PowerFactors f;
    EXPECT_FALSE(f.Parse(Join(c)));
    EXPECT_TRUE(Logged(DLOG_ERROR, kEnergy, "[Energy] Invalid Panel Type AB12CD3E"));
    // What was written before the check stays; the factors do not.
    EXPECT_EQ(f.SequenceNumber(), 7);
    EXPECT_TRUE(f.IsSamePanelType("AB12CD3E"));
    EXPECT_EQ(f.BLUFactors(powermeter::OD_MIN), PowerFactors::kMissing);

    c[5] = "AB12CD3EF";
    EXPECT_TRUE(f.Parse(Join(c)));
}

TEST_F(PowerFactorsTest, SimilarPanelTypeComparesThreeSlices) {
    auto c = Columns();
    c[5] = "ABxxCDyEF";
    PowerFactors f;
    ASSERT_TRUE(f.Parse(Join(c)));
    EXPECT_TRUE(f.IsSimilarPanelType("ABzzCDwEF"));
    EXPECT_TRUE(f.IsSimilarPanelType("ABzzCDwEFGH"));
    EXPECT_FALSE(f.IsSimilarPanelType("ABzzCDwEG"));
    EXPECT_FALSE(f.IsSimilarPanelType("AxzzCDwEF"));
    EXPECT_FALSE(f.IsSimilarPanelType("ABzzCxwEF"));
    // Seven or eight characters compare a shorter last slice; fewer than seven throw, even
    // when the first slice already differs.
    EXPECT_FALSE(f.IsSimilarPanelType("ABzzCDwE"));
    EXPECT_FALSE(f.IsSimilarPanelType("ABzzCDw"));
    EXPECT_THROW(f.IsSimilarPanelType("ABzzCD"), std::out_of_range);
    EXPECT_THROW(f.IsSimilarPanelType("XY"), std::out_of_range);
}

TEST_F(PowerFactorsTest, PrintLogsEveryFieldWithNaForMissingFactors) {
    PowerFactors f;
    ASSERT_TRUE(f.Parse(Join(Columns())));
    f.Print();
    f.PrintInfo();
    const std::vector<std::string> expected = {
        "[Energy] === 7 === ",
        "[Energy] 2024",
        "[Energy] VX55Q7000",
        "[Energy] 24_SW_55",
        "[Energy] 55",
        "[Energy] AB12CD3EF0",
        "[Energy] LED",
        "[Energy] OD_MIN: 100.000000",
        "[Energy] OD_MAX: 200.000000",
        "[Energy] VF_MIN: 3.000000",
        "[Energy] VF_MAX: 3.500000",
        "[Energy] ALPHA: 0.250000",
        "[Energy] BLOCK: 10.000000",
        "[Energy] TYPE: 0.000000",
        "[Energy] COMPENSATE_CONSTANT: N/A",
        "[Energy] CELL: 10.000000",
        "[Energy] MAIN: 50.000000",
        "[Energy] MAIN_LPM: 4.000000",
        "[Energy] SPEAKER: 11.000000",
        "[Energy] ID: 7, Panel type: AB12CD3EF0",
    };
    EXPECT_EQ(Messages(kEnergy), expected);
    for (const auto& line : tvsim::LinesSince(mark_)) {
        EXPECT_EQ(line.priority, DLOG_INFO) << line.text;
    }
}

}  // namespace
