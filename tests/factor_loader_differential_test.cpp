// PowerFactorLoader against a parse-every-row oracle over generated data sets full of
// malformed rows, invalid panel types, candidates and duplicates: the same log lines in the
// same order, and the same row.
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "Log.h"
#include "PowerFactorLoader.h"
#include "PowerFactors.h"
#include "TestSupport.h"

namespace {

using powermeter::PowerFactors;

constexpr const char kSw[] = "SW_TARGET";
constexpr const char kPanel[] = "AB12CD3EF0";

// The lookup written the straightforward way: every row is read with std::getline and parsed
// into a record before its SW model is compared; then the first equal panel type, else the
// first similar one. Logs what PowerFactorLoader::Load logs for a 10-character panel type and
// a file that opens.
bool OracleLoad(const std::string& dir, const std::string& sw_model, PowerFactors& out) {
    ELOGI("[Energy] Find a power factors for %s", sw_model.c_str());
    ELOGD("[Energy] data file path %s", dir.c_str());
    std::ifstream in(dir + "energy_factors.dat");
    std::vector<PowerFactors> candidates;
    std::string line;
    std::getline(in, line);
    ELOGI("[Energy] Data File Version: %s", line.c_str());
    while (std::getline(in, line)) {
        PowerFactors row;
        if (row.Parse(line) && row.IsSameSWModel(sw_model)) {
            candidates.push_back(row);
            ELOGD("[Energy] candidate panel type");
            row.PrintInfo();
        }
    }
    if (candidates.empty()) {
        ELOGE("[Energy] No matched SW Model");
        return false;
    }
    ELOGE("[Energy] Find a power factors for %s", kPanel);
    for (bool equal : {true, false}) {
        for (const PowerFactors& candidate : candidates) {
            if (equal ? candidate.IsSamePanelType(kPanel) : candidate.IsSimilarPanelType(kPanel)) {
                out = candidate;
                return true;
            }
        }
    }
    ELOGE("[Energy] there is no proper factors");
    return false;
}

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
    const std::string row = Row(id, kSw, kPanel);
    std::string doubled = row;  // empty tokens collapse: still 19
    doubled.replace(doubled.find(','), 1, ",,");
    const std::string kinds[] = {
        c.equal ? row : Row(id, kSw, "ZZ12CD3EF0"),
        Row(id, kSw, c.similar ? "ABxxCDyEF" + std::to_string(id % 10) : "AB12CD3XX0"),
        Row(id, kSw, "AB12CD3E"),  // invalid panel type, right SW model
        Row(id, other, "SHORT"),
        row.substr(0, row.rfind(',')),  // 18 tokens
        row + ",7",                     // 20 tokens
        "",
        "," + doubled + ",",
        row + "\r",
        Row(id, kSw, std::string("AB12\0CD3EF0", 11)),
        Row(id, std::string(kSw) + "X", kPanel),
    };
    const size_t kind = rng() % 16;
    return kind < sizeof kinds / sizeof kinds[0] ? kinds[kind] : Row(id, other, kPanel);
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
    std::mt19937 rng(c.seed);
    std::string text = "ECF-DIFF " + std::to_string(c.seed) + "\n";
    for (int id = 1; id <= 3000; ++id) {
        text += RandomRow(rng, id, c) + (c.final_newline || id < 3000 ? "\n" : "");
    }
    testsupport::TempDir dir;
    testsupport::WriteText(dir.File("energy_factors.dat"), text);
    tvsim::SetAppPath(tvsim::AppPath::kSharedResource, dir.path());

    uint64_t mark = tvsim::LogMark();
    PowerFactors loaded;
    const bool found = powermeter::PowerFactorLoader().Load(kPanel, c.sw_model, loaded);
    loaded.Print();
    const std::vector<std::string> loader_lines = LinesSince(mark);
    mark = tvsim::LogMark();
    PowerFactors expected;
    EXPECT_EQ(found, OracleLoad(dir.path(), c.sw_model, expected));
    expected.Print();
    EXPECT_EQ(loaded.SequenceNumber(), expected.SequenceNumber());
    EXPECT_EQ(loader_lines, LinesSince(mark));
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
