// A scenario: changes to the simulated TV at simulated times.
//
// Text format, one entry per line ('#' starts a comment, blank lines are skipped; a line may be
// at most 64 KiB):
//
//     <time> <command> [arguments]
//
// <time> is an offset from the start of the run: a duration such as 0, 90s, 15m, 3h, 1h30m,
// 2d4h, or a clock offset HH:MM[:SS]; a leading '+' makes it relative to the previous entry.
// Entries must not go back in time. The commands are the entries of the command table
// (Commands.cpp); data/scenarios/README.md lists them.
#pragma once

#include <cstdint>
#include <istream>
#include <string>
#include <vector>

#include "Commands.h"
#include "Text.h"

namespace energysim {

struct ScenarioEntry {
    uint64_t offset = 0;  // seconds from the start of the run
    int line = 0;
    Command command;
};

struct Scenario {
    std::string origin;
    std::vector<ScenarioEntry> entries;  // in time order
    // True when an entry at offset 0 sets the "corvane" protocol's status.
    bool SetsCorvaneAtStart() const;
};

// The longest scenario line accepted, and the largest scenario file.
constexpr size_t kMaxLineBytes = 64 * 1024;
constexpr uint64_t kMaxScenarioBytes = 16 * 1024 * 1024;

// The longest duration ParseDuration accepts (about 31,000 years): sums stay far from overflow.
constexpr uint64_t kMaxDurationSeconds = 1000000000000ull;

// Parses a duration ("90s", "1h30m", "2d", "HH:MM[:SS]", plain seconds). False when malformed
// or longer than kMaxDurationSeconds.
bool ParseDuration(const std::string& text, uint64_t* seconds);

using hostkit::Quote;

// The last wall-clock second a run may reach: time stamps are unsigned 32-bit seconds
// (2106-02-07T06:28:15Z).
constexpr int64_t kLastTimeStamp = 4294967295;

// Refuses, before the run, a wall-clock jump that would put the wall clock before 1970 or make
// the run end after kLastTimeStamp, as --start with --duration is refused. A run of `duration`
// seconds from `start` applies the entries before `duration`. Throws SimError
// "<origin>:<line>: <why>".
void CheckClockJumps(const Scenario& scenario, int64_t start, uint64_t duration);

// Throws SimError "<origin>:<line>: <why>" for a bad entry.
Scenario ParseScenario(const std::string& text, const std::string& origin);
Scenario ParseScenario(std::istream& in, const std::string& origin);
// Throws SimError for a file that cannot be read, is not a regular file, is larger than
// kMaxScenarioBytes, or has a bad entry.
Scenario LoadScenario(const std::string& path);

}  // namespace energysim
