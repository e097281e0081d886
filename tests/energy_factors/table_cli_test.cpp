// energy-factors table (the watts of each row as the loader selects it) and the program's exit
// statuses and one-line errors.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <string>
#include <vector>

#include "DataSet.h"
#include "Table.h"
#include "TestSupport.h"

extern char** environ;

namespace {

const char kSet[] =
    "TEST-1\n"
    "1,y,M43,SW_A,43,PANEL0001,LED,80,240,36,44,1.5,4,0,-,8,22,2.5,8\n"
    "2,y,M43,SW_A,43,PANEL0001,LED,90,250,36,44,1.5,4,0,-,9,23,2.5,8\n"
    "3,y,M43,SW_A,43,PANEL01,LED,80,240,36,44,1.5,4,0,-,8,22,2.5,8\n";

// Type 0 at full ANA and DutySum, 2160 lines, volume 100: backlight 0.24 A x 45.5 V x 4 x 1.05
// = 45.864 W, cell 8 x 1.1, main 22 x 1.1 (x 0.6 in standby, x 0.7 picture off), speaker 8 - 1.
// The second row has the first one's SW model and panel type, so it shows the first row.
TEST(EnergyFactorsTableTest, WattsOfTheSelectedRowPerState) {
    energyfactors::PluginSandbox sandbox;
    const auto set = energyfactors::ParseDataSet("set", kSet);
    const std::string table =
        energyfactors::FactorTable(sandbox, set, {powermeter::NORMAL, 1023, 1023, 2160, 100});
    const std::string row =
        "| 1 | M43 | SW_A | 43 | PANEL0001 | 0 | 85.9 | 2.5 | 13.2 | 78.9 | 22.4 | 0.0 |\n";
    const size_t body = table.find('\n', table.find("|---")) + 1;
    EXPECT_EQ(table.substr(body), row + row);
}

struct ToolRun {
    int status = -1;
    std::string out, err;
};

ToolRun RunTool(std::vector<std::string> args) {
    testsupport::TempDir dir;
    args.insert(args.begin(), EF_ENERGY_FACTORS);
    std::vector<char*> argv;
    for (std::string& a : args) {
        argv.push_back(a.data());
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    const std::string out = dir.File("out"), err = dir.File("err");
    posix_spawn_file_actions_addopen(&fa, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&fa, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ToolRun r;
    pid_t pid = 0;
    int wstatus = 0;
    if (posix_spawn(&pid, argv[0], &fa, nullptr, argv.data(), environ) == 0 &&
        waitpid(pid, &wstatus, 0) == pid && WIFEXITED(wstatus)) {
        r.status = WEXITSTATUS(wstatus);
    }
    posix_spawn_file_actions_destroy(&fa);
    r.out = testsupport::ReadText(out);
    r.err = testsupport::ReadText(err);
    return r;
}

TEST(EnergyFactorsCliTest, ExitStatusAndOneLineErrors) {
    testsupport::TempDir dir;
    const std::string clean = dir.File("clean.dat"), broken = dir.File("broken.dat");
    testsupport::WriteText(
        clean, "TEST-1\n1,y,M,SW_A,43,PANEL0001,LED,80,240,36,44,1.5,4,0,-,8,22,2.5,8\n");
    testsupport::WriteText(broken, kSet);
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
        {{"explain", "--model", "SW_A", "--panel", "PANEL0001", clean}, 0, ""},
        {{"explain", "--model", "SW_B", "--panel", "PANEL0001", clean}, 1, ""},
        {{"frob"}, 2, "energy-factors: unknown sub-command 'frob' (see --help)\n"},
        {{}, 2, "energy-factors: A subcommand is required (see --help)\n"},
        {{"fit", "--meter", "m.csv"}, 2, "energy-factors: --log is required (see --help)\n"},
        {{"--help"}, 0, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args.empty() ? "(none)" : c.args[0]);
        const ToolRun r = RunTool(c.args);
        EXPECT_EQ(r.status, c.status) << r.err;
        if (c.status == 2) {
            EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
        }
        if (!c.err.empty()) {
            EXPECT_EQ(r.err, c.err);
        }
    }
}

}  // namespace
