// The scenario commands. Each command is one entry of the command table (Commands.cpp): its
// name, how its arguments are read, how it is written back (the plot's labels) and what it does
// to the run. A new command is a new entry there.
#pragma once

#include <wexf.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace energysim {

class Stage;
struct CommandKind;

// One scenario command as parsed: its table entry and the values its arguments gave.
struct Command {
    const CommandKind* kind = nullptr;
    // The command's numbers in the order its line gives them: a power setting's state and
    // ambient mode, a value, a protocol status, a platform call and its error code, or the
    // signed seconds of a wall-clock jump.
    std::vector<int64_t> numbers;
    std::string text;  // a protocol's name, or the free text of config-raw and note
    // picture: register index (the plug-in's order) and its new value; none stops publishing it.
    std::vector<std::pair<int, std::optional<int32_t>>> registers;

    bool Is(std::string_view name) const;
};

// The command's words after its name, as a scenario line gives them.
struct CommandArgs {
    std::vector<std::string> words;
    std::string rest;  // everything after the command word, for free-text commands
};

struct CommandKind {
    const char* name;
    // Reads the arguments into `command`; throws SimError(why) for bad ones.
    void (*parse)(const CommandArgs& args, Command* command);
    // The command as a scenario line writes it ("power standby", "picture ANA=5 TEMP=-").
    std::string (*describe)(const Command& command);
    void (*apply)(const Command& command, Stage& stage);
    // At time 0 the command is applied after CreatePlugin (it needs the service), not before.
    bool needs_service;
};

// What commands act on during a run, besides the simulated TV's own settings.
class Stage {
  public:
    virtual ~Stage() = default;
    // The picture engine's registers as published in the configuration key (name -> text).
    virtual std::map<std::string, std::string>& Picture() = 0;
    // The framework reports a protocol's status to the service, and again to a re-created one.
    virtual void ReportProtocol(const std::string& name, wexf_protocol_status_e status) = 0;
    // DestroyPlugin, then CreatePlugin at the same simulated time; nothing before the plug-in's
    // first creation.
    virtual void RestartPlugin() = 0;
    // The wall clock jumps by `seconds`; the monotonic clock does not.
    virtual void JumpWallClock(int64_t seconds) = 0;
};

// Parses one command; throws SimError(why) for an unknown command or bad arguments.
Command ParseCommand(const std::string& name, const CommandArgs& args);

std::string Describe(const Command& command);
void Apply(const Command& command, Stage& stage);

}  // namespace energysim
