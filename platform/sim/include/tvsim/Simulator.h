// Control API of the simulated TV: tests and tools set what the platform functions answer,
// make any of them fail, and read back every log line. Thread-safe: the plug-in's worker may
// call platform functions while a test thread changes values.
//
// The plug-in and the support library never include this header; they see only the
// platform's C declarations.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tvsim {

// Every platform function the simulator implements, for failure injection.
enum class Call {
    kDlogPrint,
    kVconfGetStr,
    kSystemInfoGetValueString,
    kSystemInfoGetCustomString,
    kSystemInfoGetCustomInt,
    kSoundGetTvMasterVolume,
    kSoundGetSpeakerSelection,
    kDevicePowerGetState,
    kDevicePowerGetAmbientMode,
    kAppGetDataPath,
    kAppGetSharedResourcePath,
    kAppGetSharedDataPath,
    kAppGetResourcePath,
    kAppGetId,
    kAppGetVersion,
    kPackageInfoCreate,
    kPackageInfoGetRootPath,
    kPackageInfoDestroy,
    kTimeFromSec,
};

// Name of a call ("vconf_get_str", ...), for messages.
const char* CallName(Call call);

// A failing call returns `error` where the function returns an int (device power returns it
// as its value), and NULL where it returns a string.
void FailCall(Call call, int error);
void ClearFailure(Call call);
void ClearAllFailures();

// A platform text: std::nullopt makes the query fail as "not found"; Text::Null() makes it
// succeed with a NULL string.
struct Text {
    static Text Null() { return Text{std::nullopt, true}; }
    static Text Of(std::string value) { return Text{std::move(value), false}; }
    std::optional<std::string> value;
    bool null_on_success = false;
};

// Restores the defaults: no system information, no configuration keys, volume 0 on the TV
// speaker, power state 0 (on), ambient mode 0, no paths, no app id or version, no packages,
// no failures; the log keeps its lines (see ClearLog).
void Reset();

// System information.
void SetSystemInfoString(int key, std::optional<Text> text);  // std::nullopt clears the key
void SetModelName(std::optional<std::string> name);           // key 0
void SetPanelType(std::optional<std::string> panel);          // key 74
void SetLocaleSet(std::optional<std::string> locale);         // key 90
void SetCustomString(const std::string& key, std::optional<Text> text);
void SetCustomInt(const std::string& key, std::optional<int> value);
void SetModelYear(std::optional<int> two_digit_year);  // "com.veltrix/featureconf/product.tv_year"

// Configuration keys.
void SetVconf(const std::string& key, std::optional<std::string> value);

// Sound and power.
void SetMasterVolume(int volume);
void SetSpeakerSelection(int selection);
void SetPowerState(int state);
void SetAmbientMode(int mode);

// Application framework.
enum class AppPath { kData, kSharedResource, kSharedData, kResource };
void SetAppPath(AppPath which, std::optional<std::string> path);
void SetAppId(std::optional<std::string> id);
void SetAppVersion(std::optional<std::string> version);
void SetPackageRootPath(const std::string& package, std::optional<Text> root);

// Counts calls of one function since the last Reset (to check that a path was not taken).
uint64_t CallCount(Call call);

// ---- Log sink ----

struct LogLine {
    uint64_t seq = 0;  // position in the whole log, from 0
    int priority = 0;
    std::string tag;
    std::string text;  // the whole formatted line
    // The text after the "<file> : <function>(<line>)  " prefix, or the whole text.
    std::string Message() const;
};

// Name of a dlog priority: "DEBUG", "INFO", "ERROR", ...
const char* PriorityName(int priority);

// Position of the next line to be logged; pass it to LinesSince.
uint64_t LogMark();
std::vector<LogLine> LinesSince(uint64_t mark);
std::vector<LogLine> AllLines();
// True when a line with this priority, tag and message (prefix stripped) was logged since mark.
bool Logged(int priority, const std::string& tag, const std::string& message, uint64_t mark = 0);
// Number of such lines since mark.
size_t CountLogged(int priority, const std::string& tag, const std::string& message,
                   uint64_t mark = 0);
void ClearLog();
// Keep at most this many recent lines (default 200000); older ones are dropped.
void SetLogRetention(size_t max_lines);
// Drop lines below `priority` before they are formatted: not kept, echoed or observed (0, the
// default, drops none). For callers that run the plug-in's code for its results alone.
void SetLogDropBelow(int priority);
// Echo each line to stderr as "<PRIORITY> <tag>: <text>" when its priority >= min_priority.
void SetLogEcho(bool enabled, int min_priority = 0);
// Called for every line, on the logging thread, outside the sink's lock.
void SetLogObserver(std::function<void(const LogLine&)> observer);

}  // namespace tvsim
