#include "Scenario.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <sstream>

#include "Error.h"
#include "InputFile.h"
#include "Registers.h"

namespace energysim {
namespace {

using powermeter::Registers;

std::optional<long long> ParseInt(const std::string& text, long long lo, long long hi) {
    if (text.empty()) {
        return std::nullopt;
    }
    errno = 0;
    char* end = nullptr;
    long long v = std::strtoll(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || v < lo || v > hi) {
        return std::nullopt;
    }
    return v;
}

std::optional<int> RegisterIndex(const std::string& name) {
    for (int i = 0; i < Registers::kCount; ++i) {
        if (name == Registers::kNames[i]) {
            return i;
        }
    }
    return std::nullopt;
}

std::optional<tvsim::Call> CallNamed(const std::string& name) {
    for (int c = 0; c <= static_cast<int>(tvsim::Call::kTimeFromSec); ++c) {
        if (name == tvsim::CallName(static_cast<tvsim::Call>(c))) {
            return static_cast<tvsim::Call>(c);
        }
    }
    return std::nullopt;
}

// One scenario line after its time: the command word and its arguments.
struct Words {
    std::string command;
    std::vector<std::string> args;
    std::string rest;  // everything after the command word, for free-text commands
};

// "clock +DURATION" or "clock -DURATION": the sign is required, so a jump never reads as a time.
Command BuildClock(const std::vector<std::string>& a) {
    uint64_t seconds = 0;
    const bool signed_duration =
        a.size() == 1 && a[0].size() > 1 && (a[0][0] == '+' || a[0][0] == '-');
    if (!signed_duration || !ParseDuration(a[0].substr(1), &seconds) || seconds == 0) {
        throw SimError("clock takes +DURATION or -DURATION (e.g. -2d, +5m)");
    }
    const int64_t magnitude = static_cast<int64_t>(seconds);
    return command::Clock{a[0][0] == '-' ? -magnitude : magnitude};
}

// Builds the typed command; throws SimError(why) for bad arguments.
Command Build(const Words& w) {
    const auto& a = w.args;
    const std::string& c = w.command;
    auto fail = [](const std::string& why) -> Command { throw SimError(why); };
    auto one_int = [&](long long lo, long long hi) -> std::optional<int> {
        if (a.size() != 1) {
            return std::nullopt;
        }
        auto v = ParseInt(a[0], lo, hi);
        return v ? std::optional<int>(static_cast<int>(*v)) : std::nullopt;
    };
    if (c == "power") {
        auto s = a.size() == 1 ? ValueOf(kPowerNames, a[0]) : std::nullopt;
        return s ? Command(command::Power{*s})
                 : fail("power takes one of: " + NameList(kPowerNames));
    }
    if (c == "power-state" || c == "ambient-mode") {
        auto v = one_int(-1000000, 1000000);
        if (!v) {
            return fail(c + " takes one whole number");
        }
        return c == "power-state" ? Command(command::PowerState{*v})
                                  : Command(command::AmbientMode{*v});
    }
    if (c == "volume") {
        auto v = one_int(0, 100);
        return v ? Command(command::Volume{*v}) : fail("volume takes a whole number from 0 to 100");
    }
    if (c == "speaker") {
        auto v = a.size() == 1 ? ValueOf(kSpeakerNames, a[0]) : std::nullopt;
        if (!v) {
            v = one_int(0, 1000);
        }
        return v ? Command(command::Speaker{*v})
                 : fail("speaker takes " + NameList(kSpeakerNames) + " or a number");
    }
    if (c == "picture") {
        if (a.empty()) {
            return fail("picture takes NAME=VALUE pairs");
        }
        command::Picture p;
        for (const std::string& kv : a) {
            size_t eq = kv.find('=');
            auto index = eq == std::string::npos ? std::nullopt : RegisterIndex(kv.substr(0, eq));
            if (!index) {
                return fail(Quote(kv) + " is not REGISTER=VALUE with a known register");
            }
            std::string value = kv.substr(eq + 1);
            if (value == "-") {
                p.registers.emplace_back(*index, std::nullopt);
                continue;
            }
            auto v = ParseInt(value, std::numeric_limits<int32_t>::min(),
                              std::numeric_limits<int32_t>::max());
            if (!v) {
                return fail("value of " + kv.substr(0, eq) + " must be a whole number or '-'");
            }
            p.registers.emplace_back(*index, static_cast<int32_t>(*v));
        }
        return p;
    }
    if (c == "config") {
        if (a.size() != 1 || (a[0] != "missing" && a[0] != "restore")) {
            return fail("config takes missing or restore");
        }
        return command::Config{a[0] == "restore"};
    }
    if (c == "config-raw") {
        return command::ConfigRaw{w.rest};
    }
    if (c == "note") {
        return command::Note{w.rest};
    }
    if (c == "protocol") {
        // A number must be one of the framework's statuses: the status is a C enum whose
        // values are 0-3, and no other value can be held in it or passed to the plug-in.
        auto status = a.size() == 2 ? ValueOf(kProtocolStatusNames, a[1]) : std::nullopt;
        if (!status && a.size() == 2) {
            if (auto n =
                    ParseInt(a[1], WEXF_PROTOCOL_STATUS_CONNECTED, WEXF_PROTOCOL_STATUS_ERROR)) {
                status = static_cast<wexf_protocol_status_e>(*n);
            }
        }
        if (!status) {
            return fail("protocol takes NAME and " + NameList(kProtocolStatusNames, "|") +
                        "|N (N from 0 to 3)");
        }
        return command::Protocol{a[0], *status};
    }
    if (c == "fail") {
        auto call = a.size() == 2 ? CallNamed(a[0]) : std::nullopt;
        auto code = a.size() == 2 ? ParseInt(a[1], -1000000000, 1000000000) : std::nullopt;
        if (!call || !code) {
            return fail("fail takes a platform call name and an error code");
        }
        return command::Fail{*call, static_cast<int>(*code)};
    }
    if (c == "restore") {
        auto call = a.size() == 1 ? CallNamed(a[0]) : std::nullopt;
        return call ? Command(command::Restore{*call}) : fail("restore takes a platform call name");
    }
    if (c == "restart") {
        return a.empty() ? Command(command::Restart{}) : fail("restart takes no arguments");
    }
    if (c == "clock") {
        return BuildClock(a);
    }
    return fail("unknown command " + Quote(c));
}

template <class... Ts>
struct Overloaded : Ts... {
    using Ts::operator()...;
};
template <class... Ts>
Overloaded(Ts...) -> Overloaded<Ts...>;

// A duration as a scenario writes it: "2d", "1h30m", "45s".
std::string DurationText(uint64_t s) {
    std::string out;
    const std::pair<uint64_t, char> units[] = {{86400, 'd'}, {3600, 'h'}, {60, 'm'}, {1, 's'}};
    for (const auto& [size, unit] : units) {
        if (s >= size) {
            out += std::to_string(s / size) + unit;
            s %= size;
        }
    }
    return out;
}

std::string NameOrNumber(const char* name, int value) {
    return name != nullptr ? name : std::to_string(value);
}

}  // namespace

std::string Describe(const Command& command) {
    return std::visit(
        Overloaded{
            [](const command::Power& c) {
                return std::string("power ") + NameOf(kPowerNames, c.setting);
            },
            [](const command::PowerState& c) { return "power-state " + std::to_string(c.value); },
            [](const command::AmbientMode& c) { return "ambient-mode " + std::to_string(c.value); },
            [](const command::Volume& c) { return "volume " + std::to_string(c.value); },
            [](const command::Speaker& c) {
                return "speaker " + NameOrNumber(NameOf(kSpeakerNames, c.value), c.value);
            },
            [](const command::Picture& c) {
                std::string out = "picture";
                for (const auto& [index, value] : c.registers) {
                    out += std::string(" ") + Registers::kNames[index] + "=" +
                           (value ? std::to_string(*value) : "-");
                }
                return out;
            },
            [](const command::Config& c) {
                return std::string(c.present ? "config restore" : "config missing");
            },
            [](const command::ConfigRaw& c) { return "config-raw " + c.text; },
            [](const command::Protocol& c) {
                return "protocol " + c.name + " " +
                       NameOrNumber(NameOf(kProtocolStatusNames, c.status), c.status);
            },
            [](const command::Fail& c) {
                return std::string("fail ") + tvsim::CallName(c.call) + " " +
                       std::to_string(c.code);
            },
            [](const command::Restore& c) {
                return std::string("restore ") + tvsim::CallName(c.call);
            },
            [](const command::Note& c) { return "note " + c.text; },
            [](const command::Restart&) { return std::string("restart"); },
            [](const command::Clock& c) {
                return std::string("clock ") + (c.seconds < 0 ? "-" : "+") +
                       DurationText(static_cast<uint64_t>(c.seconds < 0 ? -c.seconds : c.seconds));
            },
        },
        command);
}

bool ParseDuration(const std::string& text, uint64_t* seconds) {
    if (text.empty()) {
        return false;
    }
    if (text.find(':') != std::string::npos) {
        unsigned long long h = 0, m = 0, s = 0;
        char tail = 0;
        int n = std::sscanf(text.c_str(), "%llu:%llu:%llu%c", &h, &m, &s, &tail);
        size_t colons = std::count(text.begin(), text.end(), ':');
        bool digits = text.find_first_not_of("0123456789:") == std::string::npos;
        if (!digits || colons > 2 || n != static_cast<int>(colons) + 1 || m > 59 || s > 59 ||
            text.size() > 20 || h > kMaxDurationSeconds / 3600) {
            return false;
        }
        *seconds = h * 3600 + m * 60 + s;
        return true;
    }
    uint64_t total = 0;
    size_t i = 0;
    bool any = false;
    while (i < text.size()) {
        size_t start = i;
        while (i < text.size() && std::isdigit(static_cast<unsigned char>(text[i]))) {
            ++i;
        }
        if (i == start || i - start > 9) {
            return false;
        }
        uint64_t n = std::stoull(text.substr(start, i - start));
        uint64_t unit = 1;
        if (i < text.size()) {
            switch (text[i]) {
                case 'd':
                    unit = 86400;
                    break;
                case 'h':
                    unit = 3600;
                    break;
                case 'm':
                    unit = 60;
                    break;
                case 's':
                    unit = 1;
                    break;
                default:
                    return false;
            }
            ++i;
        } else if (any) {
            return false;  // "1h30" is ambiguous
        }
        // Each term is below 10^14 and the total stays at most 10^12: no overflow.
        total += n * unit;
        if (total > kMaxDurationSeconds) {
            return false;
        }
        any = true;
    }
    *seconds = total;
    return any;
}

std::string Quote(const std::string& text) {
    constexpr size_t kShown = 40;
    std::string out = "'";
    for (size_t i = 0; i < text.size() && i < kShown; ++i) {
        unsigned char c = static_cast<unsigned char>(text[i]);
        if (c >= 0x20 && c < 0x7f) {
            out += static_cast<char>(c);
        } else {
            out += fmt::format("\\x{:02x}", c);
        }
    }
    return out + (text.size() > kShown ? "...'" : "'");
}

bool Scenario::SetsCorvaneAtStart() const {
    for (const ScenarioEntry& e : entries) {
        const auto* p = std::get_if<command::Protocol>(&e.command);
        if (e.offset == 0 && p != nullptr && p->name == "corvane") {
            return true;
        }
    }
    return false;
}

Scenario ParseScenario(std::istream& in, const std::string& origin) {
    Scenario scenario;
    scenario.origin = origin;
    int line_no = 0;
    uint64_t previous = 0;
    // Lines are read into a bounded buffer, so a huge line costs no more than the bound.
    std::vector<char> buffer(kMaxLineBytes + 2);
    while (true) {
        in.getline(buffer.data(), static_cast<std::streamsize>(buffer.size()));
        const size_t got = static_cast<size_t>(in.gcount());
        const bool too_long = in.fail() && !in.eof() && got + 1 >= buffer.size();
        if (got == 0 && !in) {
            break;
        }
        ++line_no;
        auto fail = [&](const std::string& why) {
            throw SimError(origin + ":" + std::to_string(line_no) + ": " + why);
        };
        if (too_long) {
            fail("line longer than " + std::to_string(kMaxLineBytes) + " bytes");
        }
        // gcount() counts the newline when one was read.
        std::string line(buffer.data(), in.eof() ? got : got - 1);
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        line = line.substr(0, line.find('#'));
        std::istringstream words(line);
        std::string when;
        if (!(words >> when)) {
            continue;
        }
        bool relative = when[0] == '+';
        uint64_t offset = 0;
        if (!ParseDuration(relative ? when.substr(1) : when, &offset)) {
            fail("bad time " + Quote(when) + " (use e.g. 90s, 15m, 3h, 1h30m, 2d or HH:MM[:SS])");
        }
        ScenarioEntry e;
        e.line = line_no;
        e.offset = relative ? previous + offset : offset;
        if (e.offset < previous) {
            fail("time goes back (entries must be in time order)");
        }
        if (e.offset > kMaxDurationSeconds) {
            fail("time is past any run");
        }
        Words w;
        if (!(words >> w.command)) {
            fail("missing command after the time");
        }
        std::getline(words >> std::ws, w.rest);
        w.rest.erase(w.rest.find_last_not_of(" \t") + 1);
        std::istringstream args(w.rest);
        for (std::string word; args >> word;) {
            w.args.push_back(word);
        }
        try {
            e.command = Build(w);
        } catch (const SimError& why) {
            fail(why.what());
        }
        previous = e.offset;
        scenario.entries.push_back(std::move(e));
        if (in.eof()) {
            break;
        }
    }
    return scenario;
}

void CheckClockJumps(const Scenario& scenario, int64_t start, uint64_t duration) {
    const auto& entries = scenario.entries;
    int64_t shift = 0;
    for (size_t i = 0; i < entries.size() && entries[i].offset < duration; ++i) {
        const auto* jump = std::get_if<command::Clock>(&entries[i].command);
        if (jump == nullptr) {
            continue;
        }
        shift += jump->seconds;
        // Offsets and jumps are at most kMaxDurationSeconds each: no overflow.
        const int64_t at = start + static_cast<int64_t>(entries[i].offset) + shift;
        uint64_t until = duration;  // the wall clock runs on from the jump to the next one
        for (size_t j = i + 1; j < entries.size() && entries[j].offset < duration; ++j) {
            if (std::holds_alternative<command::Clock>(entries[j].command)) {
                until = entries[j].offset;
                break;
            }
        }
        const std::string where = scenario.origin + ":" + std::to_string(entries[i].line) + ": ";
        if (at < 0) {
            throw SimError(where + Describe(entries[i].command) +
                           " would move the wall clock before 1970");
        }
        if (start + shift + static_cast<int64_t>(until) > kLastTimeStamp) {
            throw SimError(where + "after " + Describe(entries[i].command) +
                           " the run would end after 2106-02-07T06:28:15Z, past 32-bit time "
                           "stamps");
        }
    }
}

Scenario ParseScenario(const std::string& text, const std::string& origin) {
    std::istringstream in(text);
    return ParseScenario(in, origin);
}

Scenario LoadScenario(const std::string& path) {
    hostkit::InputFile file(path, kMaxScenarioBytes);
    std::istream in(&file);
    Scenario scenario;
    if (file.ok()) {
        scenario = ParseScenario(in, path);
    }
    if (!file.ok()) {
        throw SimError("cannot read scenario " + path + ": " + file.error());
    }
    return scenario;
}

}  // namespace energysim
