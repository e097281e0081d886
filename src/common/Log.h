// Logging convention shared by the plug-in and the support library: every line goes to
// dlog_print as "<source file> : <function>(<line>)  <message>".
#pragma once

#include <dlog.h>

namespace common {
namespace log {

// The file name part of a __FILE__ path, computed at compile time.
constexpr const char* BaseName(const char* path) {
    const char* base = path;
    for (const char* p = path; *p != '\0'; ++p) {
        if (*p == '/') {
            base = p + 1;
        }
    }
    return base;
}

constexpr const char kCommonTag[] = "WEXF_COMMON";
constexpr const char kEnergyTag[] = "ENERGY_SERVICE";

}  // namespace log
}  // namespace common

#define COMMON_LOG_PRINT(prio, tag, fmt, ...)                                               \
    dlog_print(prio, tag, "%s : %s(%d)  " fmt, ::common::log::BaseName(__FILE__), __func__, \
               __LINE__, ##__VA_ARGS__)

// Support library (tag "WEXF_COMMON").
#define CLOGD(fmt, ...) COMMON_LOG_PRINT(DLOG_DEBUG, ::common::log::kCommonTag, fmt, ##__VA_ARGS__)
#define CLOGI(fmt, ...) COMMON_LOG_PRINT(DLOG_INFO, ::common::log::kCommonTag, fmt, ##__VA_ARGS__)
#define CLOGE(fmt, ...) COMMON_LOG_PRINT(DLOG_ERROR, ::common::log::kCommonTag, fmt, ##__VA_ARGS__)

// Energy-consumption plug-in (tag "ENERGY_SERVICE").
#define ELOGD(fmt, ...) COMMON_LOG_PRINT(DLOG_DEBUG, ::common::log::kEnergyTag, fmt, ##__VA_ARGS__)
#define ELOGI(fmt, ...) COMMON_LOG_PRINT(DLOG_INFO, ::common::log::kEnergyTag, fmt, ##__VA_ARGS__)
#define ELOGE(fmt, ...) COMMON_LOG_PRINT(DLOG_ERROR, ::common::log::kEnergyTag, fmt, ##__VA_ARGS__)
