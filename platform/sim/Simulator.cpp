#include <dlog.h>
#include <system_info.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "SimState.h"

namespace tvsim {
namespace internal {

void State::ResetValues() {
    system_info.clear();
    custom_strings.clear();
    custom_ints.clear();
    vconf.clear();
    volume = 0;
    speaker = 0;
    power_state = 0;
    ambient_mode = 0;
    app_paths.fill(std::nullopt);
    app_id.reset();
    app_version.reset();
    package_roots.clear();
    failures.fill(std::nullopt);
    calls.fill(0);
}

State& GetState() {
    static State* state = new State();  // never destroyed: platform calls may come at exit
    return *state;
}

LogSink& GetLogSink() {
    static LogSink* sink = new LogSink();
    return *sink;
}

std::optional<int> EnterCall(Call call) {
    State& s = GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    ++s.calls[static_cast<size_t>(call)];
    return s.failures[static_cast<size_t>(call)];
}

}  // namespace internal

using internal::GetLogSink;
using internal::GetState;

namespace {

constexpr const char kTvYearKey[] = "com.veltrix/featureconf/product.tv_year";

template <typename F>
void WithState(F&& f) {
    internal::State& s = GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    f(s);
}

}  // namespace

const char* CallName(Call call) {
    switch (call) {
        case Call::kDlogPrint:
            return "dlog_print";
        case Call::kVconfGetStr:
            return "vconf_get_str";
        case Call::kSystemInfoGetValueString:
            return "system_info_get_value_string";
        case Call::kSystemInfoGetCustomString:
            return "system_info_get_custom_string";
        case Call::kSystemInfoGetCustomInt:
            return "system_info_get_custom_int";
        case Call::kSoundGetTvMasterVolume:
            return "sound_manager_get_tv_master_volume";
        case Call::kSoundGetSpeakerSelection:
            return "sound_manager_get_speaker_selection";
        case Call::kDevicePowerGetState:
            return "device_power_get_state";
        case Call::kDevicePowerGetAmbientMode:
            return "device_power_get_ambient_mode";
        case Call::kAppGetDataPath:
            return "app_get_data_path";
        case Call::kAppGetSharedResourcePath:
            return "app_get_shared_resource_path";
        case Call::kAppGetSharedDataPath:
            return "app_get_shared_data_path";
        case Call::kAppGetResourcePath:
            return "app_get_resource_path";
        case Call::kAppGetId:
            return "app_get_id";
        case Call::kAppGetVersion:
            return "app_get_version";
        case Call::kPackageInfoCreate:
            return "package_info_create";
        case Call::kPackageInfoGetRootPath:
            return "package_info_get_root_path";
        case Call::kPackageInfoDestroy:
            return "package_info_destroy";
        case Call::kTimeFromSec:
            return "TU_GetPTTimeFromSec";
    }
    return "unknown";
}

void FailCall(Call call, int error) {
    WithState([&](internal::State& s) { s.failures[static_cast<size_t>(call)] = error; });
}

void ClearFailure(Call call) {
    WithState([&](internal::State& s) { s.failures[static_cast<size_t>(call)].reset(); });
}

void ClearAllFailures() {
    WithState([](internal::State& s) { s.failures.fill(std::nullopt); });
}

void Reset() {
    WithState([](internal::State& s) { s.ResetValues(); });
}

void SetSystemInfoString(int key, std::optional<Text> text) {
    WithState([&](internal::State& s) {
        if (text) {
            s.system_info[key] = *text;
        } else {
            s.system_info.erase(key);
        }
    });
}

static std::optional<Text> AsText(std::optional<std::string> value) {
    if (!value) {
        return std::nullopt;
    }
    return Text::Of(std::move(*value));
}

void SetModelName(std::optional<std::string> name) {
    SetSystemInfoString(SYSTEM_INFO_KEY_MODEL, AsText(std::move(name)));
}

void SetPanelType(std::optional<std::string> panel) {
    SetSystemInfoString(SYSTEM_INFO_KEY_PANEL_TYPE_STRING, AsText(std::move(panel)));
}

void SetLocaleSet(std::optional<std::string> locale) {
    SetSystemInfoString(SYSTEM_INFO_KEY_LOCAL_SET, AsText(std::move(locale)));
}

void SetCustomString(const std::string& key, std::optional<Text> text) {
    WithState([&](internal::State& s) {
        if (text) {
            s.custom_strings[key] = *text;
        } else {
            s.custom_strings.erase(key);
        }
    });
}

void SetCustomInt(const std::string& key, std::optional<int> value) {
    WithState([&](internal::State& s) {
        if (value) {
            s.custom_ints[key] = *value;
        } else {
            s.custom_ints.erase(key);
        }
    });
}

void SetModelYear(std::optional<int> two_digit_year) {
    SetCustomInt(kTvYearKey, two_digit_year);
}

void SetVconf(const std::string& key, std::optional<std::string> value) {
    WithState([&](internal::State& s) {
        if (value) {
            s.vconf[key] = *value;
        } else {
            s.vconf.erase(key);
        }
    });
}

void SetMasterVolume(int volume) {
    WithState([&](internal::State& s) { s.volume = volume; });
}

void SetSpeakerSelection(int selection) {
    WithState([&](internal::State& s) { s.speaker = selection; });
}

void SetPowerState(int state) {
    WithState([&](internal::State& s) { s.power_state = state; });
}

void SetAmbientMode(int mode) {
    WithState([&](internal::State& s) { s.ambient_mode = mode; });
}

void SetAppPath(AppPath which, std::optional<std::string> path) {
    WithState([&](internal::State& s) { s.app_paths[static_cast<size_t>(which)] = path; });
}

void SetAppId(std::optional<std::string> id) {
    WithState([&](internal::State& s) { s.app_id = id; });
}

void SetAppVersion(std::optional<std::string> version) {
    WithState([&](internal::State& s) { s.app_version = version; });
}

void SetPackageRootPath(const std::string& package, std::optional<Text> root) {
    WithState([&](internal::State& s) {
        if (root) {
            s.package_roots[package] = *root;
        } else {
            s.package_roots.erase(package);
        }
    });
}

uint64_t CallCount(Call call) {
    uint64_t count = 0;
    WithState([&](internal::State& s) { count = s.calls[static_cast<size_t>(call)]; });
    return count;
}

// ---- Log sink ----

std::string LogLine::Message() const {
    // The prefix is "<file> : <function>(<line>)  ".
    size_t colon = text.find(" : ");
    if (colon == std::string::npos) {
        return text;
    }
    size_t close = text.find(")  ", colon + 3);
    while (close != std::string::npos) {
        size_t open = text.rfind('(', close);
        bool digits = open != std::string::npos && open > colon && open + 1 < close;
        for (size_t i = open + 1; digits && i < close; ++i) {
            digits = text[i] >= '0' && text[i] <= '9';
        }
        if (digits) {
            return text.substr(close + 3);
        }
        close = text.find(")  ", close + 1);
    }
    return text;
}

const char* PriorityName(int priority) {
    switch (priority) {
        case DLOG_UNKNOWN:
            return "UNKNOWN";
        case DLOG_DEFAULT:
            return "DEFAULT";
        case DLOG_VERBOSE:
            return "VERBOSE";
        case DLOG_DEBUG:
            return "DEBUG";
        case DLOG_INFO:
            return "INFO";
        case DLOG_WARN:
            return "WARN";
        case DLOG_ERROR:
            return "ERROR";
        case DLOG_FATAL:
            return "FATAL";
        case DLOG_SILENT:
            return "SILENT";
        default:
            return "?";
    }
}

uint64_t LogMark() {
    internal::LogSink& sink = GetLogSink();
    std::lock_guard<std::mutex> lock(sink.mutex);
    return sink.next_seq;
}

namespace {

// The first kept line at or after `mark`. Lines are kept in the order of their sequence
// numbers, so a binary search finds it: asking for the last few lines of a long log costs
// what those lines cost, not a scan of everything kept before them.
std::deque<LogLine>::const_iterator FirstSince(const internal::LogSink& sink, uint64_t mark) {
    return std::partition_point(sink.lines.begin(), sink.lines.end(),
                                [mark](const LogLine& line) { return line.seq < mark; });
}

}  // namespace

std::vector<LogLine> LinesSince(uint64_t mark) {
    internal::LogSink& sink = GetLogSink();
    std::lock_guard<std::mutex> lock(sink.mutex);
    return std::vector<LogLine>(FirstSince(sink, mark), sink.lines.cend());
}

std::vector<LogLine> AllLines() {
    return LinesSince(0);
}

size_t CountLogged(int priority, const std::string& tag, const std::string& message,
                   uint64_t mark) {
    internal::LogSink& sink = GetLogSink();
    std::lock_guard<std::mutex> lock(sink.mutex);
    size_t count = 0;
    for (auto line = FirstSince(sink, mark); line != sink.lines.cend(); ++line) {
        if (line->priority == priority && line->tag == tag && line->Message() == message) {
            ++count;
        }
    }
    return count;
}

bool Logged(int priority, const std::string& tag, const std::string& message, uint64_t mark) {
    return CountLogged(priority, tag, message, mark) > 0;
}

void ClearLog() {
    internal::LogSink& sink = GetLogSink();
    std::lock_guard<std::mutex> lock(sink.mutex);
    sink.lines.clear();
}

void SetLogDropBelow(int priority) {
    GetLogSink().drop_below.store(priority, std::memory_order_relaxed);
}

void SetLogRetention(size_t max_lines) {
    internal::LogSink& sink = GetLogSink();
    std::lock_guard<std::mutex> lock(sink.mutex);
    sink.retention = max_lines;
    while (sink.lines.size() > sink.retention) {
        sink.lines.pop_front();
    }
}

void SetLogEcho(bool enabled, int min_priority) {
    internal::LogSink& sink = GetLogSink();
    std::lock_guard<std::mutex> lock(sink.mutex);
    sink.echo = enabled;
    sink.echo_min_priority = min_priority;
}

void SetLogObserver(std::function<void(const LogLine&)> observer) {
    internal::LogSink& sink = GetLogSink();
    std::lock_guard<std::mutex> lock(sink.mutex);
    sink.observer = std::move(observer);
}

}  // namespace tvsim
