#include "Options.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <ctime>

#include "Error.h"
#include "Paths.h"
#include "Scenario.h"

namespace energysim {
namespace {

constexpr char kDescription[] =
    "Runs the real energy-consumption plug-in library on a simulated TV, with its clock under the\n"
    "program's control, and prints what it reports.";

constexpr char kFooter[] =
    R"(Output: each notification the plug-in sends is one JSON line on stdout:
  {"time":"<simulated UTC>","epoch":N,"property":"dailyPowerConsumption","json":"<text as sent>"}
At the end a summary goes to stderr: simulated time, turns, reports sent and dropped, total
energy, and time and energy per power state.

Profile fields (all optional): name, model, panelType, localeSet, modelYear (two digits),
picture {ANA, DutySum, APL, BLOSD, RESOLUTION, PC, HDR, IDS, TEMP}, volume (0-100),
speaker ("tv", "external" or N), powerState ("on", "picture-off", "standby", "ambient",
"lpm", "suspend" or N), ambientMode (N), dataDir, sharedDir. An unset dataDir is a fresh
temporary directory; an unset sharedDir is the directory holding the sample energy_factors.dat.

Signals: the first SIGINT, SIGTERM or SIGHUP ends the run after the current turn, with the
summary and the plot (exit status 130, 143 or 129); a second one ends the program at once.
SIGXFSZ (a write passed the file-size limit) ends the run the same way (status 153). SIGPIPE
is ignored: a closed pipe on stdout is a write error.

Exit status: 0 done, 1 not supported (check), 2 bad input, a plug-in that cannot be loaded,
an output that cannot be written or any other error; 129, 130, 143, 153 the signals above.)";

// The longest run: time stamps are 32-bit seconds, so the run must also end by 2106.
constexpr uint64_t kMaxDuration = 366ull * 86400;

// --duration: a duration text, turned into whole seconds.
CLI::Validator DurationValidator() {
    return CLI::Validator(
        [](std::string& text) -> std::string {
            uint64_t seconds = 0;
            if (!ParseDuration(text, &seconds) || seconds == 0) {
                return "bad --duration " + Quote(text) +
                       " (use e.g. 90s, 15m, 3h, 7d or HH:MM[:SS])";
            }
            text = std::to_string(seconds);
            return "";
        },
        "", "duration");
}

// The slowest and fastest --speed: at 0.01 a simulated minute takes 100 real minutes; slower
// would make a short run last for days, or (1e-300) never end.
constexpr double kMinSpeed = 0.01;
constexpr double kMaxSpeed = 1e9;

// --speed: 'fast' (0) or a number from kMinSpeed to kMaxSpeed.
CLI::Validator SpeedValidator() {
    return CLI::Validator(
        [](std::string& text) -> std::string {
            if (text == "fast") {
                text = "0";
                return "";
            }
            char* end = nullptr;
            const double v = std::strtod(text.c_str(), &end);
            if (end == text.c_str() || *end != '\0' || !(v >= kMinSpeed) || v > kMaxSpeed) {
                return "bad --speed " + Quote(text) + " (a number from 0.01 to 1e9, or 'fast')";
            }
            return "";
        },
        "", "speed");
}

CLI::Validator StartValidator() {
    return CLI::Validator(
        [](std::string& text) -> std::string {
            int64_t epoch = 0;
            if (!ParseStart(text, &epoch)) {
                return "bad --start " + Quote(text) + " (use YYYY-MM-DDTHH:MM:SSZ)";
            }
            text = std::to_string(epoch);
            return "";
        },
        "", "start");
}

const std::pair<const char*, int> kLogLevels[] = {
    {"debug", 3}, {"info", 4}, {"error", 6}, {"none", 99}};

CLI::Validator LogLevelValidator() {
    return CLI::Validator(
        [](std::string& text) -> std::string {
            for (const auto& [name, level] : kLogLevels) {
                if (text == name) {
                    text = std::to_string(level);
                    return "";
                }
            }
            return "bad --log-level " + Quote(text) + " (debug, info, error or none)";
        },
        "", "log level");
}

CLI::Validator QueueValidator() {
    return CLI::Validator(
        [](std::string& text) -> std::string {
            return text == "total" || text == "blocks"
                       ? ""
                       : "bad --queue " + Quote(text) + " (total or blocks)";
        },
        "", "plug-in build");
}

// The first argument no option took, from the app and its subcommands.
std::string FirstExtra(const CLI::App& app) {
    for (const CLI::App* sub : app.get_subcommands()) {
        std::string extra = FirstExtra(*sub);
        if (!extra.empty()) {
            return extra;
        }
    }
    return app.remaining().empty() ? "" : app.remaining().front();
}

// A CLI11 error as one line. Its text starts with "<option>: "; validation errors carry our
// own message after it.
std::string Message(const CLI::ParseError& e) {
    const std::string what = e.what();
    const size_t cut = what.find(": ");
    if (cut != std::string::npos && dynamic_cast<const CLI::ValidationError*>(&e) != nullptr) {
        return what.substr(cut + 2);
    }
    if (cut != std::string::npos && dynamic_cast<const CLI::ArgumentMismatch*>(&e) != nullptr) {
        return "option " + what.substr(0, cut) + " needs a value (see --help)";
    }
    return what + " (see --help)";
}

}  // namespace

bool ParseStart(const std::string& text, int64_t* epoch) {
    std::tm tm{};
    char z = 0;
    int used = 0;
    if (text.size() != 20 ||
        std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d%c%n", &tm.tm_year, &tm.tm_mon,
                    &tm.tm_mday, &tm.tm_hour, &tm.tm_min, &tm.tm_sec, &z, &used) != 7 ||
        used != 20 || z != 'Z' || tm.tm_year < 1970 || tm.tm_year > 2106) {
        return false;
    }
    const std::tm asked = tm;
    tm.tm_year -= 1900;
    tm.tm_mon -= 1;
    const std::time_t t = timegm(&tm);
    // timegm normalises out-of-range fields (February 31 becomes March 3): refuse those.
    if (tm.tm_year != asked.tm_year - 1900 || tm.tm_mon != asked.tm_mon - 1 ||
        tm.tm_mday != asked.tm_mday || tm.tm_hour != asked.tm_hour || tm.tm_min != asked.tm_min ||
        tm.tm_sec != asked.tm_sec) {
        return false;
    }
    *epoch = static_cast<int64_t>(t);
    return true;
}

// What the run's options leave for ParseCommandLine to settle after parsing.
struct RunFlags {
    CLI::Option* plugin = nullptr;
    std::string queue = "total";
    bool no_progress = false;
};

// The options of a run (the top level's, which "run" falls through to).
// `flags` must outlive the parse: the options write into it.
void AddRunOptions(CLI::App& app, CommandLine& cl, RunFlags& flags) {
    app.add_option("--profile", cl.profile_path,
                   "device profile (JSON); default: the built-in profile (VX55Q7000, 55-inch "
                   "QLED, 2024, watching at ANA 700 / DutySum 800 / 2160 lines, volume 20)")
        ->type_name("FILE");
    app.add_option("--scenario", cl.scenario_path,
                   "timeline of changes at simulated times (see data/scenarios/README.md)")
        ->type_name("FILE");
    app.add_option("--duration", cl.run.duration,
                   "simulated time to run: 90s, 15m, 3h, 1h30m, 7d, HH:MM[:SS] (default 24h, at "
                   "most 366d)")
        ->transform(DurationValidator())
        ->type_name("TIME");
    app.add_option("--speed", cl.run.speed,
                   "simulated seconds per real second, 0.01 to 1e9; 'fast' (default) runs as fast "
                   "as it goes, 1 is real time")
        ->transform(SpeedValidator())
        ->type_name("X");
    app.add_option("--start", cl.run.start,
                   "simulated start, YYYY-MM-DDTHH:MM:SSZ (default 2026-01-05T00:00:00Z)")
        ->transform(StartValidator())
        ->type_name("TIME");
    flags.plugin =
        app.add_option("--plugin", cl.run.plugin_path,
                       "the plug-in library (default: the plug-in directory beside this program)");
    flags.plugin->type_name("FILE");
    app.add_option("--queue", flags.queue,
                   "the plug-in build to load when --plugin is not given: 'total' (default) "
                   "reports the running total, 'blocks' the daily block report")
        ->check(QueueValidator())
        ->type_name("Q");
    app.add_option("--log", cl.run.log_file, "write the plug-in's log to FILE instead of stderr")
        ->type_name("FILE");
    app.add_option("--log-level", cl.run.log_level, "debug, info, error (default) or none")
        ->transform(LogLevelValidator())
        ->type_name("L");
    app.add_option("--plot", cl.run.plot_file,
                   "chart of power per turn and cumulative energy, with the scenario's changes "
                   "and the reports marked")
        ->type_name("FILE.svg");
    app.add_flag("--no-progress", flags.no_progress,
                 "no progress line (it is shown only when stderr is a terminal)");
}

CommandLine ParseCommandLine(int argc, char** argv) {
    CommandLine cl;
    RunOptions& o = cl.run;
    o.plugin_path = DefaultPluginPath();
    o.start = 1767571200;  // 2026-01-05T00:00:00Z

    CLI::App app(kDescription, "energy-sim");
    app.footer(kFooter);
    app.allow_extras();
    app.set_help_flag("-h,--help", "this help");
    RunFlags flags;
    AddRunOptions(app, cl, flags);
    CLI::App* run = app.add_subcommand("run", "run the plug-in (the default; options as above)");
    run->fallthrough();
    run->allow_extras();
    std::string check_profile;
    CLI::App* check = app.add_subcommand(
        "check",
        "run the energy service's availability pre-check (model year, region, data set) for the "
        "profile and print the decision and its reason; exit status 0: supported, 1: not "
        "supported");
    check->allow_extras();
    check->add_option("--profile", check_profile, "device profile (JSON)")->type_name("FILE");
    app.require_subcommand(0, 1);

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        cl.command = CommandLine::Command::kHelp;
        cl.help = app.help();
        return cl;
    } catch (const CLI::ParseError& e) {
        throw SimError(Message(e));
    }
    const bool checking = check->parsed();
    const std::string extra = FirstExtra(app);
    if (!extra.empty()) {
        throw SimError("unknown option " + Quote(extra) + " for " + (checking ? "check" : "run") +
                       " (see --help)");
    }
    if (checking) {
        cl.command = CommandLine::Command::kCheck;
        if (!check_profile.empty()) {
            cl.profile_path = check_profile;
        }
        return cl;
    }
    o.progress = !flags.no_progress;
    o.queue = flags.queue == "blocks" ? RunOptions::Queue::kBlocks : RunOptions::Queue::kTotal;
    if (o.queue == RunOptions::Queue::kBlocks && flags.plugin->count() == 0) {
        o.plugin_path = BlocksPluginPath();
    }
    if (o.duration > kMaxDuration) {
        throw SimError("--duration is longer than 366 days");
    }
    if (o.start + static_cast<int64_t>(o.duration) > kLastTimeStamp) {
        throw SimError("the run would end after 2106-02-07T06:28:15Z, past 32-bit time stamps");
    }
    return cl;
}

}  // namespace energysim
