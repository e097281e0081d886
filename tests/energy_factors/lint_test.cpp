// energy-factors lint, explain and table: the sample data set's deliberately broken rows, one
// defect of each kind at its line, the loader's choice as explain reports it, the watts of the
// selected row, and the program's exit statuses and one-line errors.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "DataSet.h"
#include "Explain.h"
#include "Lint.h"
#include "SimProcess.h"
#include "Table.h"
#include "TestSupport.h"

namespace {

using energyfactors::Defect;
using energyfactors::Severity;

struct Expected {
    int line;
    Severity severity;
    std::string reason_start;
};

void ExpectDefects(const std::vector<Defect>& got, const std::vector<Expected>& want) {
    ASSERT_EQ(got.size(), want.size()) << energyfactors::FormatDefectsText("set", got);
    for (size_t i = 0; i < want.size(); ++i) {
        EXPECT_EQ(got[i].line, want[i].line) << got[i].reason;
        EXPECT_EQ(got[i].severity, want[i].severity) << got[i].reason;
        EXPECT_EQ(got[i].reason.substr(0, want[i].reason_start.size()), want[i].reason_start);
    }
}

std::vector<Defect> LintText(const std::string& text) {
    energyfactors::PluginSandbox sandbox;
    return energyfactors::Lint(sandbox, energyfactors::ParseDataSet("set", text));
}

TEST(EnergyFactorsLintTest, SampleDataSetFlagsItsBrokenRowsOnly) {
    energyfactors::PluginSandbox sandbox;
    const auto set =
        energyfactors::ReadDataSet(std::string(EC_SOURCE_DIR) + "/data/energy_factors.dat");
    ExpectDefects(energyfactors::Lint(sandbox, set),
                  {{12, Severity::kWarning, "backlight type 5 is undefined"},
                   {13, Severity::kError, "skipped by the plug-in: The number of tokens is 18"},
                   {14, Severity::kError, "skipped by the plug-in: The number of tokens is 20"},
                   {15, Severity::kError, "skipped by the plug-in: The number of tokens is 18"},
                   {16, Severity::kError, "skipped by the plug-in: Invalid Panel Type VP43UF2X"}});
}

// Each row from line 3 on has exactly one defect; line 2 is clean.
TEST(EnergyFactorsLintTest, OneLinePerDefectAtItsLine) {
    const std::string good = "1,y,M,SW_A,43,PANEL0001,LED,80,240,36,44,1.5,4,0,-,8,22,2.5,8";
    const std::string text =
        "TEST-1\n" + good + "\n" +
        "2,y,M,SW_B,43,PANEL0002,LED,80,240,36,44,1.5,4,0,-,8,22,2.5\n"         // 3
        "3,y,M,SW_B,43,PANEL003,LED,80,240,36,44,1.5,4,0,-,8,22,2.5,8\n"        // 4
        "4,y,M,SW_A,43,PANEL0001,LED,90,250,36,44,1.5,4,0,-,8,22,2.5,8\n"       // 5
        "5,y,M,SW_C,43,PANEL0005,LED,80,240,36,44,1.5,4,7,-,8,22,2.5,8\n"       // 6
        "6,y,M,SW_C,43,PANEL0006,MLED,-,-,-,-,-,-,5,-,90,42,4.0,14\n"           // 7
        "7,y,M,SW_C,43,PANEL0007,LED,80,-,36,44,1.5,4,0,-,8,22,2.5,8\n"         // 8
        "8,y,M,SW_C,43,PANEL0008,OLED,-,-,-,-,-,-,4,-,20,36,3.0,12\n"           // 9
        "9,y,M,SW_C,43,PANEL0009,LED,80,240,36,44,1.5,4,0,-,8,22,-2.5,8\n"      // 10
        "10,y,M,SW_C,43,PANEL0010,LED,80,240,36,44,1.5,4,0,-,9000,22,2.5,8\n";  // 11
    ExpectDefects(
        LintText(text),
        {{3, Severity::kError, "skipped by the plug-in: The number of tokens is 18 (not 19)"},
         {4, Severity::kError, "skipped by the plug-in: Invalid Panel Type PANEL003"},
         {5, Severity::kError,
          "never selected: line 2 has the same SW model SW_A and panel type PANEL0001"},
         {6, Severity::kError, "backlight type 7 is outside 0-4"},
         {7, Severity::kWarning, "backlight type 5 is undefined"},
         {8, Severity::kError, "OD_MAX is \"-\" but the row uses it (NORMAL, ALWAYS_ON_SCREEN)"},
         {9, Severity::kError, "COMPENSATE_CONSTANT is \"-\" but the row uses it"},
         {10, Severity::kError,
          "negative watts: LPM -2.5 W at ANA 0, DutySum 0, 1080 lines, volume 0"},
         {11, Severity::kError,
          "watts above 7920 (22 Wh per turn: the loop meters 0): NORMAL 9977.1 W at ANA 1023, "
          "DutySum 1023, 2160 lines, volume 100; ALWAYS_ON_SCREEN 9970.1 W"}});
}

TEST(EnergyFactorsLintTest, VersionLine) {
    const std::string row = "1,y,M,SW_A,43,PANEL0001,LED,80,240,36,44,1.5,4,0,-,8,22,2.5,8\n";
    ExpectDefects(LintText(""), {{1, Severity::kError, "empty file: no version line"}});
    // The loader reads the first row as the version, so the second one is not a duplicate.
    ExpectDefects(LintText(row + row), {{1, Severity::kError, "no version line"}});
    ExpectDefects(LintText("1,2,3\n" + row), {});
}

TEST(EnergyFactorsLintTest, JsonNamesEachDefect) {
    EXPECT_EQ(energyfactors::FormatDefectsJson(
                  "a\"b", {{3, Severity::kError, "x"}, {4, Severity::kWarning, "y\n"}}),
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
        std::string last_error;  // the loader's last ERROR message
    } cases[] = {
        // equal beats the earlier similar row
        {"SW_A", "AB34CD5EF", 3, 3, "[Energy] Find a power factors for AB34CD5EF"},
        // no equal one: the first similar row
        {"SW_A", "ABxxCDxEF", 2, 3, "[Energy] Find a power factors for ABxxCDxEF"},
        {"SW_C", "AB12CD3EF", 0, 0, "[Energy] No matched SW Model"},
        // too short: rejected before any comparison
        {"SW_A", "AB12CD3E", 0, 0, "[Energy] Invalid Panel Type"},
    };
    energyfactors::PluginSandbox sandbox;
    const auto set = energyfactors::ParseDataSet("set", text);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.sw + " " + c.panel);
        const auto e = energyfactors::Explain(sandbox, set, c.sw, c.panel);
        EXPECT_EQ(e.candidates.size(), c.candidates);
        EXPECT_EQ(e.winner ? e.winner->line : 0, c.winner_line);
        ASSERT_FALSE(e.loader_errors.empty());
        EXPECT_EQ(e.loader_errors.back(), c.last_error);
    }
}

const char kTableSet[] =
    "TEST-1\n"
    "1,y,M43,SW_A,43,PANEL0001,LED,80,240,36,44,1.5,4,0,-,8,22,2.5,8\n"
    "2,y,M43,SW_A,43,PANEL0001,LED,90,250,36,44,1.5,4,0,-,9,23,2.5,8\n"
    "3,y,M43,SW_A,43,PANEL01,LED,80,240,36,44,1.5,4,0,-,8,22,2.5,8\n";

// Type 0 at full ANA and DutySum, 2160 lines, volume 100: backlight 0.24 A x 45.5 V x 4 x 1.05
// = 45.864 W, cell 8 x 1.1, main 22 x 1.1 (x 0.6 in standby, x 0.7 picture off), speaker 8 - 1.
// The second row has the first one's SW model and panel type, so it shows the first row.
TEST(EnergyFactorsTableTest, WattsOfTheSelectedRowPerState) {
    energyfactors::PluginSandbox sandbox;
    const auto set = energyfactors::ParseDataSet("set", kTableSet);
    const std::string table =
        energyfactors::FactorTable(sandbox, set, {powermeter::NORMAL, 1023, 1023, 2160, 100});
    const std::string row =
        "| 1 | M43 | SW_A | 43 | PANEL0001 | 0 | 85.9 | 2.5 | 13.2 | 78.9 | 22.4 | 0.0 |\n";
    const size_t body = table.find('\n', table.find("|---")) + 1;
    EXPECT_EQ(table.substr(body), row + row);
}

TEST(EnergyFactorsCliTest, ExitStatusAndOneLineErrors) {
    testsupport::TempDir dir;
    const std::string clean = dir.File("clean.dat"), broken = dir.File("broken.dat");
    testsupport::WriteText(
        clean, "TEST-1\n1,y,M,SW_A,43,PANEL0001,LED,80,240,36,44,1.5,4,0,-,8,22,2.5,8\n");
    testsupport::WriteText(broken, kTableSet);
    struct Case {
        std::vector<std::string> args;
        int status;
        std::string err;  // the whole of stderr
    } cases[] = {
        {{"lint", clean}, 0, ""},
        {{"lint", broken}, 1, ""},
        {{"lint", dir.File("none.dat")},
         2,
         "energy-factors: cannot read " + dir.File("none.dat") + "\n"},
        {{"lint", clean, "--format", "xml"}, 2, ""},
        {{"explain", "--model", "SW_B", "--panel", "PANEL0001", clean}, 1, ""},
        {{"frob"}, 2, "energy-factors: unknown sub-command 'frob' (see --help)\n"},
        {{}, 2, "energy-factors: A subcommand is required (see --help)\n"},
        {{"fit", "--meter", "m.csv"}, 2, "energy-factors: --log is required (see --help)\n"},
        {{"--help"}, 0, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args.empty() ? "(none)" : c.args[0]);
        simtest::SimCall call;
        call.program = EF_ENERGY_FACTORS;
        call.args = c.args;
        const simtest::Result r = simtest::RunSim(call);
        EXPECT_EQ(r.status, c.status) << r.err;
        if (c.status == 2) {
            EXPECT_EQ(simtest::Lines(r.err), 1) << r.err;
        }
        if (!c.err.empty()) {
            EXPECT_EQ(r.err, c.err);
        }
    }
}

}  // namespace
