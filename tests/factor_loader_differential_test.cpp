// PowerFactorLoader against the parse-every-row oracle over generated data sets full of
// malformed rows, invalid panel types, candidates and duplicates: the same log lines in the
// same order, and the same row.
#include <random>
#include <string>
#include <vector>

#include "FactorLoaderOracle.h"
#include "PowerFactorLoader.h"
#include "PowerFactors.h"
#include "TestSupport.h"

namespace {

using powermeter::PowerFactors;

constexpr const char kSw[] = "SW_TARGET";
constexpr const char kPanel[] = "AB12CD3EF0";

// Rows of the target SW model that a case may contain.
struct Case {
    const char* name;
    unsigned seed;
    bool equal;    // rows with the set's panel type
    bool similar;  // rows with a similar one
    const char* sw_model;
    bool final_newline;
};

std::string Row(int id, const std::string& sw, const std::string& panel) {
    return std::to_string(id) + ",2024,VX," + sw + ",55," + panel + ",LED,100,200,3,3,0." +
           std::to_string(id % 7) + ",10,0,-," + std::to_string(id) + ",50,4,11";
}

// One row of every kind the loader must treat as the oracle does, drawn at random.
std::string RandomRow(std::mt19937& rng, int id, const Case& c) {
    const std::string other = "SW_" + std::to_string(rng() % 50);
    switch (rng() % 16) {
        case 0:
            return c.equal ? Row(id, kSw, kPanel) : Row(id, kSw, "ZZ12CD3EF0");
        case 1:
            return c.similar ? Row(id, kSw, "ABxxCDyEF" + std::to_string(id % 10))
                             : Row(id, kSw, "AB12CD3XX0");
        case 2:
            return Row(id, kSw, "AB12CD3E");  // invalid panel type, right SW model
        case 3:
            return Row(id, other, "SHORT");
        case 4: {
            const std::string row = Row(id, kSw, kPanel);
            return row.substr(0, row.rfind(','));  // 18 tokens
        }
        case 5:
            return Row(id, kSw, kPanel) + ",7";  // 20 tokens
        case 6:
            return "";
        case 7: {
            std::string row = Row(id, kSw, kPanel);  // empty tokens collapse: still 19
            return "," + row.replace(row.find(','), 1, ",,") + ",";
        }
        case 8:
            return Row(id, kSw, kPanel) + "\r";
        case 9:
            return Row(id, kSw, std::string("AB12\0CD3EF0", 11));
        case 10:
            return Row(id, std::string(kSw) + "X", kPanel);
        default:
            return Row(id, other, kPanel);
    }
}

std::string DataSet(const Case& c) {
    std::mt19937 rng(c.seed);
    std::string text = "ECF-DIFF " + std::to_string(c.seed) + "\n";
    for (int id = 1; id <= 3000; ++id) {
        text += RandomRow(rng, id, c) + "\n";
    }
    if (!c.final_newline) {
        text.pop_back();
    }
    return text;
}

// Lines of PowerFactors (row checks, candidates, Print) must match to the byte; the loader's
// own lines by priority, tag and message, since the oracle writes them from another file.
std::vector<std::string> LinesSince(uint64_t mark) {
    std::vector<std::string> out;
    for (const auto& line : tvsim::LinesSince(mark)) {
        const bool row_line = line.text.rfind("PowerFactors.cpp", 0) == 0;
        out.push_back(std::string(tvsim::PriorityName(line.priority)) + " " + line.tag + " " +
                      (row_line ? line.text : line.Message()));
    }
    return out;
}

class FactorLoaderDifferentialTest : public testsupport::SimTest,
                                     public ::testing::WithParamInterface<Case> {};

TEST_P(FactorLoaderDifferentialTest, SameLinesAndSameRowAsParsingEveryRow) {
    const Case& c = GetParam();
    testsupport::TempDir dir;
    testsupport::WriteText(dir.File("energy_factors.dat"), DataSet(c));
    tvsim::SetAppPath(tvsim::AppPath::kSharedResource, dir.path());

    uint64_t mark = tvsim::LogMark();
    PowerFactors loaded;
    const bool found = powermeter::PowerFactorLoader().Load(kPanel, c.sw_model, loaded);
    loaded.Print();
    const std::vector<std::string> loader_lines = LinesSince(mark);

    mark = tvsim::LogMark();
    PowerFactors expected;
    const bool expected_found = testsupport::OracleLoad(dir.path(), kPanel, c.sw_model, expected);
    expected.Print();
    const std::vector<std::string> oracle_lines = LinesSince(mark);

    EXPECT_EQ(found, expected_found);
    EXPECT_EQ(loaded.SequenceNumber(), expected.SequenceNumber());
    EXPECT_EQ(loader_lines, oracle_lines);
    EXPECT_GT(loader_lines.size(), 500u);  // the malformed rows were reported
}

INSTANTIATE_TEST_SUITE_P(GeneratedDataSets, FactorLoaderDifferentialTest,
                         ::testing::Values(Case{"EqualWins", 1, true, true, kSw, true},
                                           Case{"FirstSimilar", 2, false, true, kSw, true},
                                           Case{"NoneProper", 3, false, false, kSw, false},
                                           Case{"NoSwModel", 4, true, true, "SW_NONE", true}),
                         [](const ::testing::TestParamInfo<Case>& info) {
                             return std::string(info.param.name);
                         });

}  // namespace
