// A scenario: changes to the simulated TV at simulated times.
//
// Text format, one entry per line ('#' starts a comment, blank lines are skipped; a line may be
// at most 64 KiB):
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
//     picture NAME=VALUE ...   (the plug-in's registers ANA DutySum APL BLOSD RESOLUTION PC HDR
//                               IDS TEMP; VALUE a whole number, or '-' to stop publishing it)
//     config missing|restore   (the configuration key disappears / comes back)
//     config-raw TEXT          (the key holds TEXT verbatim until the next picture/config)
//     protocol NAME ready|connected|disconnected|error|N   (N from 0 to 3)
//     fail CALL CODE           (a platform call, e.g. device_power_get_state, fails with CODE)
//     restore CALL
//     note TEXT                (a label on the plot)
//     restart                  (DestroyPlugin, then CreatePlugin at the same simulated time;
//                               the data directory is kept)
//     clock +DURATION|-DURATION (the wall clock jumps; the monotonic clock and the 10-second
//                               cadence go on)
//
// Each line is parsed once into a typed Command; the run applies it and the plot labels it from
// that value.
#pragma once

#include <wexf.h>

#include <cstdint>
#include <istream>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "Names.h"
#include "tvsim/Simulator.h"

namespace energysim {

namespace command {
struct Power {
    PowerSetting setting;
};
struct PowerState {
    int value;
};
struct AmbientMode {
    int value;
};
struct Volume {
    int value;
};
struct Speaker {
    int value;
};
// Register index (the plug-in's order) and its new value; no value stops publishing it.
struct Picture {
    std::vector<std::pair<int, std::optional<int32_t>>> registers;
};
struct Config {
    bool present;
};
struct ConfigRaw {
    std::string text;
};
struct Protocol {
    std::string name;
    wexf_protocol_status_e status;
};
struct Fail {
    tvsim::Call call;
    int code;
};
struct Restore {
    tvsim::Call call;
};
struct Note {
    std::string text;
};
struct Restart {};
// A wall-clock jump, in signed seconds.
struct Clock {
    int64_t seconds;
};
}  // namespace command

using Command = std::variant<command::Power, command::PowerState, command::AmbientMode,
                             command::Volume, command::Speaker, command::Picture, command::Config,
                             command::ConfigRaw, command::Protocol, command::Fail, command::Restore,
                             command::Note, command::Restart, command::Clock>;

// The command as a scenario line writes it ("power standby", "picture ANA=5 TEMP=-").
std::string Describe(const Command& command);

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

// `text` quoted for a one-line message: 'text', with bytes that are not printable ASCII
// written as \xNN and anything past 40 bytes cut to "...".
std::string Quote(const std::string& text);

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
