// The command table: every scenario command, its arguments, its text and its effect.
#include "Commands.h"

#include <cerrno>
#include <cstdlib>
#include <limits>

#include "Duration.h"
#include "Error.h"
#include "Names.h"
#include "Registers.h"
#include "Scenario.h"
#include "World.h"
#include "tvsim/Simulator.h"

namespace energysim {
namespace {

using powermeter::Registers;
using Words = std::vector<std::string>;

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

// The only word of `w` as a number from lo to hi.
std::optional<long long> OneInt(const Words& w, long long lo, long long hi) {
    return w.size() == 1 ? ParseInt(w[0], lo, hi) : std::nullopt;
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

tvsim::Call CallOf(const Command& c) {
    return static_cast<tvsim::Call>(c.numbers[0]);
}

int IntOf(const Command& c, size_t i = 0) {
    return static_cast<int>(c.numbers[i]);
}

std::string NameOrNumber(const char* name, int value) {
    return name != nullptr ? name : std::to_string(value);
}

void PublishPicture(Stage& stage) {
    tvsim::SetVconf(Registers::kVconfKey, PictureJson(stage.Picture()));
}

void ParsePower(const CommandArgs& a, Command* c) {
    auto s = a.words.size() == 1 ? ValueOf(kPowerNames, a.words[0]) : std::nullopt;
    if (!s) {
        throw SimError("power takes one of: " + NameList(kPowerNames));
    }
    c->numbers = {s->state, s->ambient};
}

// power-state and ambient-mode: one raw platform value.
void ParseRaw(const CommandArgs& a, Command* c) {
    auto v = OneInt(a.words, -1000000, 1000000);
    if (!v) {
        throw SimError(std::string(c->kind->name) + " takes one whole number");
    }
    c->numbers = {*v};
}

void ParseVolume(const CommandArgs& a, Command* c) {
    auto v = OneInt(a.words, 0, 100);
    if (!v) {
        throw SimError("volume takes a whole number from 0 to 100");
    }
    c->numbers = {*v};
}

void ParseSpeaker(const CommandArgs& a, Command* c) {
    auto named = a.words.size() == 1 ? ValueOf(kSpeakerNames, a.words[0]) : std::nullopt;
    auto v = named ? std::optional<long long>(*named) : OneInt(a.words, 0, 1000);
    if (!v) {
        throw SimError("speaker takes " + NameList(kSpeakerNames) + " or a number");
    }
    c->numbers = {*v};
}

void ParsePicture(const CommandArgs& a, Command* c) {
    if (a.words.empty()) {
        throw SimError("picture takes NAME=VALUE pairs");
    }
    for (const std::string& kv : a.words) {
        size_t eq = kv.find('=');
        auto index = eq == std::string::npos ? std::nullopt : RegisterIndex(kv.substr(0, eq));
        if (!index) {
            throw SimError(Quote(kv) + " is not REGISTER=VALUE with a known register");
        }
        std::string value = kv.substr(eq + 1);
        if (value == "-") {
            c->registers.emplace_back(*index, std::nullopt);
            continue;
        }
        auto v = ParseInt(value, std::numeric_limits<int32_t>::min(),
                          std::numeric_limits<int32_t>::max());
        if (!v) {
            throw SimError("value of " + kv.substr(0, eq) + " must be a whole number or '-'");
        }
        c->registers.emplace_back(*index, static_cast<int32_t>(*v));
    }
}

void ParseConfig(const CommandArgs& a, Command* c) {
    const Words& w = a.words;
    if (w.size() != 1 || (w[0] != "missing" && w[0] != "restore")) {
        throw SimError("config takes missing or restore");
    }
    c->numbers = {w[0] == "restore"};
}

void ParseText(const CommandArgs& a, Command* c) {
    c->text = a.rest;
}

// A number must be one of the framework's statuses: the status is a C enum whose values are
// 0-3, and no other value can be held in it or passed to the plug-in.
void ParseProtocol(const CommandArgs& a, Command* c) {
    const Words& w = a.words;
    auto status = w.size() == 2 ? ValueOf(kProtocolStatusNames, w[1]) : std::nullopt;
    if (!status && w.size() == 2) {
        if (auto n = ParseInt(w[1], WEXF_PROTOCOL_STATUS_CONNECTED, WEXF_PROTOCOL_STATUS_ERROR)) {
            status = static_cast<wexf_protocol_status_e>(*n);
        }
    }
    if (!status) {
        throw SimError("protocol takes NAME and " + NameList(kProtocolStatusNames, "|") +
                       "|N (N from 0 to 3)");
    }
    c->text = w[0];
    c->numbers = {*status};
}

void ParseFail(const CommandArgs& a, Command* c) {
    const Words& w = a.words;
    auto call = w.size() == 2 ? CallNamed(w[0]) : std::nullopt;
    auto code = w.size() == 2 ? ParseInt(w[1], -1000000000, 1000000000) : std::nullopt;
    if (!call || !code) {
        throw SimError("fail takes a platform call name and an error code");
    }
    c->numbers = {static_cast<int64_t>(*call), *code};
}

void ParseRestore(const CommandArgs& a, Command* c) {
    auto call = a.words.size() == 1 ? CallNamed(a.words[0]) : std::nullopt;
    if (!call) {
        throw SimError("restore takes a platform call name");
    }
    c->numbers = {static_cast<int64_t>(*call)};
}

void ParseRestart(const CommandArgs& a, Command*) {
    if (!a.words.empty()) {
        throw SimError("restart takes no arguments");
    }
}

// "clock +DURATION" or "clock -DURATION": the sign is required, so a jump never reads as a time.
void ParseClock(const CommandArgs& a, Command* c) {
    const Words& w = a.words;
    uint64_t seconds = 0;
    const bool signed_duration =
        w.size() == 1 && w[0].size() > 1 && (w[0][0] == '+' || w[0][0] == '-');
    if (!signed_duration || !ParseDuration(w[0].substr(1), &seconds) || seconds == 0) {
        throw SimError("clock takes +DURATION or -DURATION (e.g. -2d, +5m)");
    }
    const int64_t magnitude = static_cast<int64_t>(seconds);
    c->numbers = {w[0][0] == '-' ? -magnitude : magnitude};
}

// The command's name and its one number.
std::string DescribeNumber(const Command& c) {
    return std::string(c.kind->name) + " " + std::to_string(c.numbers[0]);
}

std::string DescribeText(const Command& c) {
    return std::string(c.kind->name) + " " + c.text;
}

const CommandKind kCommands[] = {
    {"power", ParsePower,
     [](const Command& c) {
         return std::string("power ") + NameOf(kPowerNames, PowerSetting{IntOf(c), IntOf(c, 1)});
     },
     [](const Command& c, Stage&) {
         tvsim::SetPowerState(IntOf(c));
         tvsim::SetAmbientMode(IntOf(c, 1));
     },
     false},
    {"power-state", ParseRaw, DescribeNumber,
     [](const Command& c, Stage&) { tvsim::SetPowerState(IntOf(c)); }, false},
    {"ambient-mode", ParseRaw, DescribeNumber,
     [](const Command& c, Stage&) { tvsim::SetAmbientMode(IntOf(c)); }, false},
    {"volume", ParseVolume, DescribeNumber,
     [](const Command& c, Stage&) { tvsim::SetMasterVolume(IntOf(c)); }, false},
    {"speaker", ParseSpeaker,
     [](const Command& c) {
         return "speaker " + NameOrNumber(NameOf(kSpeakerNames, IntOf(c)), IntOf(c));
     },
     [](const Command& c, Stage&) { tvsim::SetSpeakerSelection(IntOf(c)); }, false},
    {"picture", ParsePicture,
     [](const Command& c) {
         std::string out = "picture";
         for (const auto& [index, value] : c.registers) {
             out += std::string(" ") + Registers::kNames[index] + "=" +
                    (value ? std::to_string(*value) : "-");
         }
         return out;
     },
     [](const Command& c, Stage& stage) {
         for (const auto& [index, value] : c.registers) {
             const char* name = Registers::kNames[index];
             if (value) {
                 stage.Picture()[name] = std::to_string(*value);
             } else {
                 stage.Picture().erase(name);
             }
         }
         PublishPicture(stage);
     },
     false},
    {"config", ParseConfig,
     [](const Command& c) {
         return std::string(c.numbers[0] != 0 ? "config restore" : "config missing");
     },
     [](const Command& c, Stage& stage) {
         if (c.numbers[0] != 0) {
             PublishPicture(stage);
         } else {
             tvsim::SetVconf(Registers::kVconfKey, std::nullopt);
         }
     },
     false},
    {"config-raw", ParseText, DescribeText,
     [](const Command& c, Stage&) { tvsim::SetVconf(Registers::kVconfKey, c.text); }, false},
    {"protocol", ParseProtocol,
     [](const Command& c) {
         const auto status = static_cast<wexf_protocol_status_e>(c.numbers[0]);
         return "protocol " + c.text + " " +
                NameOrNumber(NameOf(kProtocolStatusNames, status), status);
     },
     [](const Command& c, Stage& stage) {
         stage.ReportProtocol(c.text, static_cast<wexf_protocol_status_e>(c.numbers[0]));
     },
     true},
    {"fail", ParseFail,
     [](const Command& c) {
         return std::string("fail ") + tvsim::CallName(CallOf(c)) + " " +
                std::to_string(c.numbers[1]);
     },
     [](const Command& c, Stage&) { tvsim::FailCall(CallOf(c), IntOf(c, 1)); }, false},
    {"restore", ParseRestore,
     [](const Command& c) { return std::string("restore ") + tvsim::CallName(CallOf(c)); },
     [](const Command& c, Stage&) { tvsim::ClearFailure(CallOf(c)); }, false},
    {"note", ParseText, DescribeText, [](const Command&, Stage&) {}, false},
    {"restart", ParseRestart, [](const Command&) { return std::string("restart"); },
     [](const Command&, Stage& stage) { stage.RestartPlugin(); }, false},
    {"clock", ParseClock,
     [](const Command& c) {
         const int64_t s = c.numbers[0];
         return std::string("clock ") + (s < 0 ? "-" : "+") +
                hostkit::FormatDuration(static_cast<uint64_t>(s < 0 ? -s : s),
                                        hostkit::DurationStyle::kUnits);
     },
     [](const Command& c, Stage& stage) { stage.JumpWallClock(c.numbers[0]); }, false},
};

}  // namespace

bool Command::Is(std::string_view name) const {
    return kind != nullptr && name == kind->name;
}

Command ParseCommand(const std::string& name, const CommandArgs& args) {
    for (const CommandKind& kind : kCommands) {
        if (name == kind.name) {
            Command command;
            command.kind = &kind;
            kind.parse(args, &command);
            return command;
        }
    }
    throw SimError("unknown command " + Quote(name));
}

std::string Describe(const Command& command) {
    return command.kind->describe(command);
}

void Apply(const Command& command, Stage& stage) {
    command.kind->apply(command, stage);
}

}  // namespace energysim
