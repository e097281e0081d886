// energy-sim's command line: the options of a run and of the availability check, parsed with
// CLI11 into typed values.
#pragma once

#include <cstdint>
#include <string>

#include "Runner.h"

namespace energysim {

struct CommandLine {
    enum class Command { kRun, kCheck, kHelp };
    Command command = Command::kRun;
    RunOptions run;             // profile, scenario and progress are filled in by the caller
    std::string profile_path;   // "" = the built-in profile
    std::string scenario_path;  // "" = none
    std::string help;           // the help text, for kHelp
};

// Parses argv. Throws SimError with a one-line message for bad input.
CommandLine ParseCommandLine(int argc, char** argv);

// Parses "YYYY-MM-DDTHH:MM:SSZ" (a real calendar date and time, 1970-2105) to epoch seconds.
bool ParseStart(const std::string& text, int64_t* epoch);

}  // namespace energysim
