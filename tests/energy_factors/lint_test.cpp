// energy-factors lint, explain and table: one defect of each kind at its line as lint prints it,
// the loader's choice as explain reports it, the watts of the selected row, and the program's exit
// statuses and one-line errors.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <sstream>
#include <string>
#include <vector>

#include "DataSet.h"
#include "Explain.h"
#include "Lint.h"
#include "SimProcess.h"
#include "Table.h"
#include "TestSupport.h"

namespace {

namespace ef = energyfactors;

const char kRow[] = "1,y,M,SW_A,43,PANEL0001,LED,80,240,36,44,1.5,4,0,-,8,22,2.5,8\n";

// Lints `text` as a file: one line "FILE:LINE: severity: reason" per defect, each starting
// with FILE and the prefix at its index; exit status 1 when there is any, else 0.
void ExpectLint(const std::string& text, const std::vector<std::string>& prefixes) {
    testsupport::TempDir dir;
    const std::string file = dir.File("set.dat");
    testsupport::WriteText(file, text);
    const simtest::Result r = simtest::RunSim({"lint", file}, EF_ENERGY_FACTORS);
    EXPECT_EQ(r.status, prefixes.empty() ? 0 : 1) << r.err;
    std::istringstream in(r.out);
    size_t i = 0;
    for (std::string line; std::getline(in, line); ++i) {
        EXPECT_TRUE(i < prefixes.size() && line.rfind(file + prefixes[i], 0) == 0) << line;
    }
    EXPECT_EQ(i, prefixes.size()) << r.out;
}

// Each row from line 3 on has exactly one defect; line 2 is clean.
TEST(EnergyFactorsLintTest, OneLinePerDefectAtItsLine) {
    ExpectLint(
        std::string("TEST-1\n") + kRow +
            "2,y,M,SW_B,43,PANEL0002,LED,80,240,36,44,1.5,4,0,-,8,22,2.5\n"        // 3
            "3,y,M,SW_B,43,PANEL003,LED,80,240,36,44,1.5,4,0,-,8,22,2.5,8\n"       // 4
            "4,y,M,SW_A,43,PANEL0001,LED,90,250,36,44,1.5,4,0,-,8,22,2.5,8\n"      // 5
            "5,y,M,SW_C,43,PANEL0005,LED,80,240,36,44,1.5,4,7,-,8,22,2.5,8\n"      // 6
            "6,y,M,SW_C,43,PANEL0006,MLED,-,-,-,-,-,-,5,-,90,42,4.0,14\n"          // 7
            "7,y,M,SW_C,43,PANEL0007,LED,80,-,36,44,1.5,4,0,-,8,22,2.5,8\n"        // 8
            "8,y,M,SW_C,43,PANEL0008,OLED,-,-,-,-,-,-,4,-,20,36,3.0,12\n"          // 9
            "9,y,M,SW_C,43,PANEL0009,LED,80,240,36,44,1.5,4,0,-,8,22,-2.5,8\n"     // 10
            "10,y,M,SW_C,43,PANEL0010,LED,80,240,36,44,1.5,4,0,-,9000,22,2.5,8\n"  // 11
            "11,y,M,SW_C,43,PANEL0011,LED,80,240,36,44,1.5,4,0,-,8,22,2.5,8,8\n"   // 12
            "12,y,M,SW_" +
            std::string(1, '\0') +  // 13: the TV's SW model ends at a NUL
            "D,43,PANEL0012,LED,80,240,36,44,1.5,4,0,-,8,22,2.5,8\n"
            "13,y,M,SW_C,43,PANEL0013,LED,80,240,36,44,1.5,4,0,-,8,22,2.5,-8\n",  // 14
        {":3: error: skipped by the plug-in: The number of tokens is 18 (not 19)",
         ":4: error: skipped by the plug-in: Invalid Panel Type PANEL003",
         ":5: error: never selected: line 2 has the same SW model SW_A and panel type PANEL0001",
         ":6: error: backlight type 7 is outside 0-4", ":7: warning: backlight type 5 is undefined",
         ":8: error: OD_MAX is \"-\" but the row uses it (NORMAL, ALWAYS_ON_SCREEN)",
         ":9: error: COMPENSATE_CONSTANT is \"-\" but the row uses it",
         ":10: error: negative watts: LPM -2.5 W at ANA 0, DutySum 0, 1080 lines, volume 0",
         ":11: error: watts above 7920 (22 Wh per turn: the loop meters 0): NORMAL 9977.1 W at "
         "ANA 1023, DutySum 1023, 2160 lines, volume 100; ALWAYS_ON_SCREEN 9970.1 W",
         ":12: error: skipped by the plug-in: The number of tokens is 20 (not 19)",
         ":13: error: the plug-in does not select this row: 12,y,M,SW_\\x00D,43,PANEL0012,",
         ":14: error: watts not a finite number: NORMAL at ANA 0, DutySum 0, 1080 lines, volume "
         "50; PICTURE_OFF at"});
}

TEST(EnergyFactorsLintTest, VersionLine) {
    ExpectLint("", {":1: error: empty file: no version line"});
    // The loader reads the first row as the version, so the second one is not a duplicate.
    ExpectLint(std::string(kRow) + kRow, {":1: error: no version line"});
    ExpectLint(std::string("1,2,3\n") + kRow, {});
}

TEST(EnergyFactorsLintTest, JsonNamesEachDefect) {
    EXPECT_EQ(ef::FormatDefectsJson(
                  "a\"b", {{3, ef::Severity::kError, "x"}, {4, ef::Severity::kWarning, "y\n"}}),
              R"({"file":"a\"b","errors":1,"warnings":1,"defects":[{"line":3,"severity":"error",)"
              R"("reason":"x"},{"line":4,"severity":"warning","reason":"y\n"}]})"
              "\n");
}

TEST(EnergyFactorsExplainTest, ReportsTheLoadersChoiceAndWhy) {
    const std::string text =
        "TEST-1\n"
        "1,y,M,SW_A,43,AB12CD3EF,LED,80,240,36,44,1.5,4,0,-,8,22,2.5,8\n"
        "2,y,M,SW_A,43,AB34CD5EF,LED,80,240,36,44,1.5,4,0,-,8,22,2.5,8\n"
        "3,y,M,SW_A,43,AB56CD7EG,LED,80,240,36,44,1.5,4,0,-,8,22,2.5,8\n"
        "4,y,M,SW_B,43,AB56CD7EG,LED,80,240,36,44,1.5,4,0,-,8,22,2.5,8\n";
    struct Case {
        std::string sw, panel;
        int winner_line;  // 0: none
        size_t candidates;
        std::string last_error;  // the loader's last ERROR message, after "[Energy] "
    } cases[] = {
        {"SW_A", "AB34CD5EF", 3, 3, "Find a power factors for AB34CD5EF"},  // equal beats similar
        {"SW_A", "ABxxCDxEF", 2, 3, "Find a power factors for ABxxCDxEF"},  // the first similar
        {"SW_C", "AB12CD3EF", 0, 0, "No matched SW Model"},
        {"SW_A", "AB12CD3E", 0, 0, "Invalid Panel Type"},  // too short: rejected before comparing
    };
    ef::PluginSandbox sandbox;
    const auto set = ef::ParseDataSet("set", text);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.sw + " " + c.panel);
        const auto e = ef::Explain(sandbox, set, c.sw, c.panel);
        EXPECT_EQ(e.candidates.size(), c.candidates);
        EXPECT_EQ(e.winner ? e.winner->line : 0, c.winner_line);
        ASSERT_FALSE(e.loader_errors.empty());
        EXPECT_EQ(e.loader_errors.back(), "[Energy] " + c.last_error);
    }
}

// Type 0 at full ANA and DutySum, 2160 lines, volume 100: backlight 0.24 A x 45.5 V x 4 x 1.05
// = 45.864 W, cell 8 x 1.1, main 22 x 1.1 (x 0.6 in standby, x 0.7 picture off), speaker 8 - 1.
// The second row has the first one's SW model and panel type, so it shows the first row.
TEST(EnergyFactorsTableTest, WattsOfTheSelectedRowPerState) {
    ef::PluginSandbox sandbox;
    const auto set =
        ef::ParseDataSet("set",
                         "TEST-1\n"
                         "1,y,M43,SW_A,43,PANEL0001,LED,80,240,36,44,1.5,4,0,-,8,22,2.5,8\n"
                         "2,y,M43,SW_A,43,PANEL0001,LED,90,250,36,44,1.5,4,0,-,9,23,2.5,8\n");
    const std::string table =
        ef::FactorTable(sandbox, set, {powermeter::NORMAL, 1023, 1023, 2160, 100});
    const std::string row =
        "| 1 | M43 | SW_A | 43 | PANEL0001 | 0 | 85.9 | 2.5 | 13.2 | 78.9 | 22.4 | 0.0 |\n";
    EXPECT_EQ(table.substr(table.find('\n', table.find("|---")) + 1), row + row);
    // SPEAKER -8 at volume 50: NaN watts.
    const auto nan_set = ef::ParseDataSet(
        "set", "TEST-1\n1,y,M43,SW_A,43,PANEL0001,LED,80,240,36,44,1.5,4,0,-,8,22,2.5,-8\n");
    EXPECT_THAT(
        ef::FactorTable(sandbox, nan_set, {powermeter::NORMAL, 0, 0, 1080, 50}),
        testing::EndsWith(
            "| 0 | not a finite number | 2.5 | 13.2 | 30.0 | not a finite number | 0.0 |\n"));
}

TEST(EnergyFactorsCliTest, ExitStatusAndOneLineErrors) {
    testsupport::TempDir dir;
    const std::string clean = dir.File("clean.dat"), none = dir.File("none.dat");
    const std::string fifo = dir.File("fifo"), log = dir.File("session.log");
    testsupport::WriteText(clean, std::string("TEST-1\n") + kRow);
    testsupport::WriteText(log,
                           "[Energy] UTC: 2026-1-5 0:0:0\n[Energy Factors] enum: 1, blu_type: 0\n"
                           "[Energy Factors] ana:1, dutysum:2, resolution: 3, volume: 4\n"
                           "[Energy Factors] Power Status: LPM\n");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    // Two sessions of sets that select different rows of one file.
    const std::string two_rows = dir.File("two.dat"), meter = dir.File("meter.csv");
    const std::string log_a = dir.File("a.log"), log_b = dir.File("b.log");
    std::string row_b = kRow;
    row_b.replace(0, 1, "2").replace(row_b.find("SW_A"), 4, "SW_B");
    testsupport::WriteText(two_rows, std::string("TEST-1\n") + kRow + row_b);
    testsupport::WriteText(meter, "1767571200,2.5\n");  // in the logs' turn
    // Samples and factors that are not finite, or make watts that are not.
    const std::string absurd = dir.File("absurd.csv"), huge = dir.File("huge.dat");
    testsupport::WriteText(absurd, "1767571200,1e308\n");
    auto lpm = [](std::string row, const std::string& main_lpm) {
        return row.replace(row.find("2.5"), 3, main_lpm);
    };
    testsupport::WriteText(huge, "TEST-1\n" + lpm(kRow, "1e400") + lpm(row_b, "1e300"));
    const std::string nan_row = lpm(std::string(kRow, sizeof kRow - 2), "nan");
    for (const char* model : {"SW_A", "SW_B"}) {
        testsupport::WriteText(model[3] == 'A' ? log_a : log_b,
                               std::string("[Energy] SW Model: ") + model +
                                   "\n[Energy] Panel Type: PANEL0001\n" +
                                   testsupport::ReadText(log));
    }
    struct Case {
        std::vector<std::string> args;
        int status;
        std::string err;  // the whole of stderr
    } cases[] = {
        {{"lint", none},
         2,
         "energy-factors: cannot read " + none + ": No such file or directory\n"},
        // A FIFO or a device would block or never end: every input is a regular file.
        {{"lint", fifo}, 2, "energy-factors: cannot read " + fifo + ": not a regular file\n"},
        {{"lint", "/dev/zero"}, 2, "energy-factors: cannot read /dev/zero: not a regular file\n"},
        {{"fit", "--log", fifo, "--meter", clean},
         2,
         "energy-factors: cannot read " + fifo + ": not a regular file\n"},
        {{"fit", "--log", log, "--meter", fifo},
         2,
         "energy-factors: cannot read " + fifo + ": not a regular file\n"},
        {{"fit", "--log", log, "--meter", clean, "--log", log},
         2,
         "energy-factors: 2 --log but 1 --meter: give one of each per session\n"},
        {{"fit", "--data", two_rows, "--log", log_a, "--meter", meter, "--log", log_b, "--meter",
          meter},
         2,
         "energy-factors: " + log_b + " is a set of row ID 2 (line 3), " + log_a +
             " of row ID 1 (line 2): a fit is for one row\n"},
        {{"fit", "--data", clean, "--log", log_a, "--meter", absurd},
         2,
         "energy-factors: " + absurd +
             ":1: watts out of range (a number from -1000000 to 1000000)\n"},
        {{"fit", "--data", huge, "--log", log_a, "--meter", meter},
         2,
         "energy-factors: " + huge + ":2: MAIN_LPM is not a finite number\n"},
        // LPM at 1e300 W: its square overflows.
        {{"fit", "--data", huge, "--log", log_b, "--meter", meter},
         2,
         "energy-factors: the fit's watts or factors are not finite numbers: the row's factors are "
         "too large\n"},
        {{"truth", "--data", clean, "--log", log_a, "--skew", "nan"},
         2,
         "energy-factors: --skew: Value nan not a number in range 0 to 100 (see --help)\n"},
        {{"truth", "--data", clean, "--log", log_a, "--row", nan_row},
         2,
         "energy-factors: MAIN_LPM of the row \"" + nan_row + "\" is not a finite number\n"},
        {{"truth", "--data", huge, "--log", log_b},
         2,
         "energy-factors: the true row's watts at LPM ANA 1 DutySum 2 3 lines volume 4 are out of "
         "a wattmeter's range (a number from -1000000 to 1000000)\n"},
        {{"lint", clean, "--format", "xml"},
         2,
         "energy-factors: --format: xml not in {text,json} (see --help)\n"},
        {{"explain", "--model", "SW_B", "--panel", "PANEL0001", clean}, 1, ""},
        {{"frob"}, 2, "energy-factors: unknown sub-command 'frob' (see --help)\n"},
        {{"--help"}, 0, ""},
    };
    for (const Case& c : cases) {
        const simtest::Result r = simtest::RunSim(c.args, EF_ENERGY_FACTORS);
        EXPECT_EQ(r.status, c.status) << c.args[0] << r.err;
        EXPECT_EQ(r.err, c.err);
    }
    // Output that cannot be written fails the run, however short it is.
    simtest::SimCall full;
    full.program = EF_ENERGY_FACTORS;
    full.args = {"table", clean};
    full.stdout_path = "/dev/full";
    const simtest::Result r = simtest::RunSim(full);
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err, "energy-factors: cannot write the output: No space left on device\n");
}

}  // namespace
