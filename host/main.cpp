// energy-sim: runs the real energy-consumption plug-in on a simulated TV.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "InstallPaths.h"
#include "Profile.h"
#include "Runner.h"
#include "Scenario.h"

namespace {

const char kUsage[] = R"(usage: energy-sim [run] [options]
       energy-sim check [--profile FILE]
       energy-sim --help

Runs the real energy-consumption plug-in library on a simulated TV, with its clock under the
program's control, and prints what it reports.

run (the default):
  --profile FILE     device profile (JSON); default: the built-in profile (VX55Q7000, 55-inch QLED,
                     2024, watching at ANA 700 / DutySum 800 / 2160 lines, volume 20)
  --scenario FILE    timeline of changes at simulated times (see data/scenarios/README.md)
  --duration TIME    simulated time to run: 90s, 15m, 3h, 1h30m, 7d, HH:MM[:SS] (default 24h,
                     at most 366d)
  --speed X          simulated seconds per real second; 'fast' (default) runs as fast as it
                     goes, 1 is real time
  --start TIME       simulated start, YYYY-MM-DDTHH:MM:SSZ (default 2026-01-05T00:00:00Z)
  --plugin FILE      the plug-in library (default: the one built with this program)
  --log FILE         write the plug-in's log to FILE instead of stderr
  --log-level L      debug, info, error (default) or none
  --plot FILE.svg    chart of power per turn and cumulative energy, with the scenario's
                     changes and the reports marked
  --no-progress      no progress line (it is shown only when stderr is a terminal)

check:
  Runs the energy service's availability pre-check (model year, region, data set) for the
  profile and prints the decision and its reason. Exit status 0: supported, 1: not supported.

Output: each notification the plug-in sends is one JSON line on stdout:
  {"time":"<simulated UTC>","epoch":N,"property":"dailyPowerConsumption","json":"<text as sent>"}
At the end a summary goes to stderr: simulated time, turns, reports sent and dropped, total
energy, and time and energy per power state.

Profile fields (all optional): name, model, panelType, localeSet, modelYear (two digits),
picture {ANA, DutySum, APL, BLOSD, RESOLUTION, PC, HDR, IDS, TEMP}, volume (0-100),
speaker ("tv", "external" or N), powerState ("on", "picture-off", "standby", "ambient",
"lpm", "suspend" or N), ambientMode (N), dataDir, sharedDir. An unset dataDir is a fresh
temporary directory; an unset sharedDir is the directory holding the sample energy_factors.dat.

Exit status: 0 done, 1 not supported (check), 2 bad input or a plug-in that cannot be loaded.
)";

[[noreturn]] void Die(const std::string& message) {
    std::cerr << "energy-sim: " << message << "\n";
    std::exit(2);
}

bool ParseStart(const std::string& text, int64_t* out) {
    std::tm tm{};
    char z = 0;
    if (std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d%c", &tm.tm_year, &tm.tm_mon, &tm.tm_mday,
                    &tm.tm_hour, &tm.tm_min, &tm.tm_sec, &z) != 7 ||
        z != 'Z' || tm.tm_year < 1970 || tm.tm_year > 2105 || tm.tm_mon < 1 || tm.tm_mon > 12) {
        return false;
    }
    tm.tm_year -= 1900;
    tm.tm_mon -= 1;
    *out = static_cast<int64_t>(timegm(&tm));
    return true;
}

std::string DefaultPlugin() {
    if (const char* env = std::getenv("ENERGY_SIM_PLUGIN")) {
        return env;
    }
    return energysim::DefaultPluginPath();
}

std::string DefaultSharedDir() {
    if (const char* env = std::getenv("ENERGY_SIM_DATA")) {
        std::string dir = env;
        return dir.empty() || dir.back() == '/' ? dir : dir + "/";
    }
    return energysim::DefaultDataDir();
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    std::string command = "run";
    size_t i = 0;
    if (!args.empty() && (args[0] == "run" || args[0] == "check")) {
        command = args[0];
        i = 1;
    }
    energysim::RunOptions o;
    o.plugin_path = DefaultPlugin();
    o.start = 1767571200;  // 2026-01-05T00:00:00Z
    o.progress = isatty(STDERR_FILENO) != 0;
    std::string profile_path, scenario_path;

    for (; i < args.size(); ++i) {
        const std::string& a = args[i];
        auto value = [&]() -> std::string {
            if (i + 1 >= args.size()) {
                Die("option " + a + " needs a value (see --help)");
            }
            return args[++i];
        };
        if (a == "--help" || a == "-h") {
            std::cout << kUsage;
            return 0;
        } else if (a == "--profile") {
            profile_path = value();
        } else if (a == "--scenario" && command == "run") {
            scenario_path = value();
        } else if (a == "--duration" && command == "run") {
            std::string v = value();
            if (!energysim::ParseDuration(v, &o.duration) || o.duration == 0) {
                Die("bad --duration '" + v + "' (use e.g. 90s, 15m, 3h, 7d or HH:MM[:SS])");
            }
        } else if (a == "--speed" && command == "run") {
            std::string v = value();
            char* end = nullptr;
            o.speed = v == "fast" ? 0 : std::strtod(v.c_str(), &end);
            if (v != "fast" &&
                (end == v.c_str() || *end != '\0' || !(o.speed > 0) || o.speed > 1e9)) {
                Die("bad --speed '" + v + "' (a positive number, or 'fast')");
            }
        } else if (a == "--start" && command == "run") {
            std::string v = value();
            if (!ParseStart(v, &o.start)) {
                Die("bad --start '" + v + "' (use YYYY-MM-DDTHH:MM:SSZ)");
            }
        } else if (a == "--plugin") {
            o.plugin_path = value();
        } else if (a == "--log" && command == "run") {
            o.log_file = value();
        } else if (a == "--log-level" && command == "run") {
            std::string v = value();
            if (v == "debug")
                o.log_level = 3;
            else if (v == "info")
                o.log_level = 4;
            else if (v == "error")
                o.log_level = 6;
            else if (v == "none")
                o.log_level = 99;
            else
                Die("bad --log-level '" + v + "' (debug, info, error or none)");
        } else if (a == "--plot" && command == "run") {
            o.plot_file = value();
        } else if (a == "--no-progress" && command == "run") {
            o.progress = false;
        } else {
            Die("unknown option '" + a + "' for " + command + " (see --help)");
        }
    }

    // One record per 10 s turn is kept for the summary and the plot: a year is 3.2 million
    // turns (about 200 MB). Time stamps are 32-bit seconds, so the run must end by 2106.
    constexpr uint64_t kMaxDuration = 366ull * 86400;
    if (o.duration > kMaxDuration) {
        Die("--duration is longer than 366 days");
    }
    if (static_cast<uint64_t>(o.start) + o.duration > 4294967295ull) {
        Die("the run would end after 2106-02-07T06:28:15Z, past 32-bit time stamps");
    }

    try {
        o.profile = profile_path.empty() ? energysim::DefaultProfile()
                                         : energysim::LoadProfile(profile_path);
        if (o.profile.shared_dir.empty()) {
            o.profile.shared_dir = DefaultSharedDir();
        }
        if (command == "check") {
            return energysim::Check(o.profile, DefaultSharedDir(), std::cout);
        }
        if (!scenario_path.empty()) {
            o.scenario = energysim::LoadScenario(scenario_path);
        }
        return energysim::Run(o, std::cout, std::cerr);
    } catch (const std::exception& e) {
        Die(e.what());
    }
}
