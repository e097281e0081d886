// The platform's C functions, answered from the simulator's state.
#include <app_common.h>
#include <device_power.h>
#include <dlog.h>
#include <package_info.h>
#include <sound_manager.h>
#include <system_info.h>
#include <tu_time.h>
#include <vconf.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "SimState.h"

using tvsim::Call;
using tvsim::Text;
using tvsim::internal::EnterCall;
using tvsim::internal::GetState;

namespace {

char* Dup(const std::string& s) {
    return strdup(s.c_str());
}

// Answers a string query from an optional text: 0 with a copy (or NULL), or `missing`.
int AnswerText(const std::optional<Text>& text, char** out, int missing) {
    if (!text || (!text->value && !text->null_on_success)) {
        return missing;
    }
    *out = text->value ? Dup(*text->value) : nullptr;
    return 0;
}

template <typename Map, typename Key>
std::optional<typename Map::mapped_type> Find(const Map& map, const Key& key) {
    auto it = map.find(key);
    if (it == map.end()) {
        return std::nullopt;
    }
    return it->second;
}

char* AppPath(Call call, tvsim::AppPath which) {
    if (EnterCall(call)) {
        return nullptr;
    }
    auto& s = GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    const auto& path = s.app_paths[static_cast<size_t>(which)];
    return path ? Dup(*path) : nullptr;
}

int AppText(Call call, const std::optional<std::string> tvsim::internal::State::*member,
            char** out) {
    if (out == nullptr) {
        return APP_ERROR_INVALID_PARAMETER;
    }
    if (auto err = EnterCall(call)) {
        return *err;
    }
    auto& s = GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    const auto& value = s.*member;
    if (!value) {
        return APP_ERROR_INVALID_CONTEXT;
    }
    *out = Dup(*value);
    return APP_ERROR_NONE;
}

}  // namespace

struct package_info_s {
    std::string package;
};

extern "C" {

int dlog_print(log_priority prio, const char* tag, const char* fmt, ...) {
    if (auto err = EnterCall(Call::kDlogPrint)) {
        return *err;
    }
    if (prio < tvsim::internal::GetLogSink().drop_below.load(std::memory_order_relaxed)) {
        return 0;  // below the level kept: nothing is written
    }
    if (fmt == nullptr) {
        return dlog_print(prio, tag, "%s", "");  // a null format logs an empty line
    }
    char stack_buf[1024];
    va_list args;
    va_start(args, fmt);
    va_list copy;
    va_copy(copy, args);
    int n = std::vsnprintf(stack_buf, sizeof(stack_buf), fmt, args);
    va_end(args);
    std::string text;
    if (n < 0) {
        va_end(copy);
        return -EINVAL;
    }
    if (static_cast<size_t>(n) < sizeof(stack_buf)) {
        text.assign(stack_buf, static_cast<size_t>(n));
    } else {
        text.resize(static_cast<size_t>(n) + 1);
        std::vsnprintf(&text[0], text.size(), fmt, copy);
        text.resize(static_cast<size_t>(n));
    }
    va_end(copy);

    auto& sink = tvsim::internal::GetLogSink();
    tvsim::LogLine line;
    line.priority = prio;
    line.tag = tag ? tag : "";
    line.text = std::move(text);
    std::function<void(const tvsim::LogLine&)> observer;
    {
        std::lock_guard<std::mutex> lock(sink.mutex);
        line.seq = sink.next_seq++;
        if (sink.echo && prio >= sink.echo_min_priority) {
            std::fprintf(stderr, "%s %s: %s\n", tvsim::PriorityName(prio), line.tag.c_str(),
                         line.text.c_str());
        }
        if (sink.retention > 0) {
            sink.lines.push_back(line);
            while (sink.lines.size() > sink.retention) {
                sink.lines.pop_front();
            }
        }
        observer = sink.observer;
    }
    if (observer) {
        observer(line);
    }
    return n;
}

char* vconf_get_str(const char* key) {
    if (EnterCall(Call::kVconfGetStr) || key == nullptr) {
        return nullptr;
    }
    auto& s = GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    auto value = Find(s.vconf, std::string(key));
    return value ? Dup(*value) : nullptr;
}

int system_info_get_value_string(system_info_key_e key, char** value) {
    if (value == nullptr) {
        return SYSTEM_INFO_ERROR_INVALID_PARAMETER;
    }
    if (auto err = EnterCall(Call::kSystemInfoGetValueString)) {
        return *err;
    }
    auto& s = GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    return AnswerText(Find(s.system_info, static_cast<int>(key)), value,
                      SYSTEM_INFO_ERROR_NO_SUCH_KEY);
}

int system_info_get_custom_string(const char* key, char** value) {
    if (key == nullptr || value == nullptr) {
        return SYSTEM_INFO_ERROR_INVALID_PARAMETER;
    }
    if (auto err = EnterCall(Call::kSystemInfoGetCustomString)) {
        return *err;
    }
    auto& s = GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    return AnswerText(Find(s.custom_strings, std::string(key)), value,
                      SYSTEM_INFO_ERROR_NO_SUCH_KEY);
}

int system_info_get_custom_int(const char* key, int* value) {
    if (key == nullptr || value == nullptr) {
        return SYSTEM_INFO_ERROR_INVALID_PARAMETER;
    }
    if (auto err = EnterCall(Call::kSystemInfoGetCustomInt)) {
        return *err;
    }
    auto& s = GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    auto found = Find(s.custom_ints, std::string(key));
    if (!found) {
        return SYSTEM_INFO_ERROR_NO_SUCH_KEY;
    }
    *value = *found;
    return SYSTEM_INFO_ERROR_NONE;
}

int sound_manager_get_tv_master_volume(int* volume) {
    if (volume == nullptr) {
        return SOUND_MANAGER_ERROR_INVALID_OPERATION;
    }
    if (auto err = EnterCall(Call::kSoundGetTvMasterVolume)) {
        return *err;
    }
    auto& s = GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    *volume = s.volume;
    return SOUND_MANAGER_ERROR_NONE;
}

int sound_manager_get_speaker_selection(int* selection) {
    if (selection == nullptr) {
        return SOUND_MANAGER_ERROR_INVALID_OPERATION;
    }
    if (auto err = EnterCall(Call::kSoundGetSpeakerSelection)) {
        return *err;
    }
    auto& s = GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    *selection = s.speaker;
    return SOUND_MANAGER_ERROR_NONE;
}

int device_power_get_state(void) {
    if (auto err = EnterCall(Call::kDevicePowerGetState)) {
        return *err;
    }
    auto& s = GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.power_state;
}

int device_power_get_ambient_mode(void) {
    if (auto err = EnterCall(Call::kDevicePowerGetAmbientMode)) {
        return *err;
    }
    auto& s = GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.ambient_mode;
}

char* app_get_data_path(void) {
    return AppPath(Call::kAppGetDataPath, tvsim::AppPath::kData);
}

char* app_get_shared_resource_path(void) {
    return AppPath(Call::kAppGetSharedResourcePath, tvsim::AppPath::kSharedResource);
}

char* app_get_shared_data_path(void) {
    return AppPath(Call::kAppGetSharedDataPath, tvsim::AppPath::kSharedData);
}

char* app_get_resource_path(void) {
    return AppPath(Call::kAppGetResourcePath, tvsim::AppPath::kResource);
}

int app_get_id(char** id) {
    return AppText(Call::kAppGetId, &tvsim::internal::State::app_id, id);
}

int app_get_version(char** version) {
    return AppText(Call::kAppGetVersion, &tvsim::internal::State::app_version, version);
}

int package_info_create(const char* package, package_info_h* package_info) {
    if (package == nullptr || package_info == nullptr) {
        return PACKAGE_MANAGER_ERROR_INVALID_PARAMETER;
    }
    if (auto err = EnterCall(Call::kPackageInfoCreate)) {
        return *err;
    }
    auto& s = GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (s.package_roots.find(package) == s.package_roots.end()) {
        return PACKAGE_MANAGER_ERROR_NO_SUCH_PACKAGE;
    }
    *package_info = new package_info_s{package};
    return PACKAGE_MANAGER_ERROR_NONE;
}

int package_info_get_root_path(package_info_h package_info, char** path) {
    if (package_info == nullptr || path == nullptr) {
        return PACKAGE_MANAGER_ERROR_INVALID_PARAMETER;
    }
    if (auto err = EnterCall(Call::kPackageInfoGetRootPath)) {
        return *err;
    }
    auto& s = GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    return AnswerText(Find(s.package_roots, package_info->package), path,
                      PACKAGE_MANAGER_ERROR_IO_ERROR);
}

int package_info_destroy(package_info_h package_info) {
    if (package_info == nullptr) {
        return PACKAGE_MANAGER_ERROR_INVALID_PARAMETER;
    }
    // The handle is released even when a failure is injected, as a real destroy would.
    auto err = EnterCall(Call::kPackageInfoDestroy);
    delete package_info;
    return err ? *err : PACKAGE_MANAGER_ERROR_NONE;
}

int TU_GetPTTimeFromSec(TU_PTTime* record, unsigned long seconds) {
    if (record == nullptr) {
        return -EINVAL;
    }
    if (auto err = EnterCall(Call::kTimeFromSec)) {
        return *err;
    }
    std::time_t t = static_cast<std::time_t>(seconds);
    std::tm tm{};
    if (gmtime_r(&t, &tm) == nullptr) {
        return -EOVERFLOW;
    }
    record->year = tm.tm_year + 1900;
    record->month = tm.tm_mon + 1;
    record->day = tm.tm_mday;
    record->hour = tm.tm_hour;
    record->minute = tm.tm_min;
    record->second = tm.tm_sec;
    record->weekday = tm.tm_wday;
    record->yearday = tm.tm_yday;
    return 0;
}

}  // extern "C"
