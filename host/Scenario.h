// A scenario: changes to the simulated TV at simulated times.
//
// Text format, one entry per line ('#' starts a comment, blank lines are skipped):
//
//     <time> <command> [arguments]
//
// <time> is an offset from the start of the run: a duration such as 0, 90s, 15m, 3h, 1h30m,
// 2d4h, or a clock offset HH:MM[:SS]; a leading '+' makes it relative to the previous entry.
// Entries must not go back in time. Commands:
//
//     power on|picture-off|standby|ambient|lpm|suspend
//     power-state N            ambient-mode N          (raw platform values)
//     volume N                 (0-100)
//     speaker tv|external|N
//     picture NAME=VALUE ...   (registers ANA DutySum APL BLOSD RESOLUTION PC HDR IDS TEMP;
//                               VALUE a whole number, or '-' to stop publishing it)
//     config missing|restore   (the configuration key disappears / comes back)
//     config-raw TEXT          (the key holds TEXT verbatim until the next picture/config)
//     protocol NAME ready|connected|disconnected|error|N
//     fail CALL CODE           (a platform call, e.g. device_power_get_state, fails with CODE)
//     restore CALL
//     note TEXT                (a label on the plot)
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace energysim {

struct ScenarioEntry {
    uint64_t offset = 0;  // seconds from the start of the run
    int line = 0;
    std::string command;
    std::vector<std::string> args;
    std::string text;  // the entry as written, for labels
};

struct Scenario {
    std::string origin;
    std::vector<ScenarioEntry> entries;  // in time order
    // True when an entry at offset 0 sets the "corvane" protocol's status.
    bool SetsCorvaneAtStart() const;
};

// Parses a duration ("90s", "1h30m", "2d", "HH:MM[:SS]", plain seconds). False when malformed.
bool ParseDuration(const std::string& text, uint64_t* seconds);

// Throws std::runtime_error "<origin>:<line>: <why>" for a bad entry.
Scenario ParseScenario(const std::string& text, const std::string& origin);
Scenario LoadScenario(const std::string& path);

}  // namespace energysim
