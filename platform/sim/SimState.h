// Internal state of the simulated TV, shared by the control API and the platform functions.
#pragma once

#include <array>
#include <atomic>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "tvsim/Simulator.h"

namespace tvsim {
namespace internal {

constexpr size_t kCallCount = static_cast<size_t>(Call::kTimeFromSec) + 1;
constexpr size_t kAppPathCount = 4;

struct State {
    std::mutex mutex;
    std::map<int, Text> system_info;
    std::map<std::string, Text> custom_strings;
    std::map<std::string, int> custom_ints;
    std::map<std::string, std::string> vconf;
    int volume = 0;
    int speaker = 0;
    int power_state = 0;
    int ambient_mode = 0;
    std::array<std::optional<std::string>, kAppPathCount> app_paths;
    std::optional<std::string> app_id;
    std::optional<std::string> app_version;
    std::map<std::string, Text> package_roots;
    std::array<std::optional<int>, kCallCount> failures;
    std::array<uint64_t, kCallCount> calls{};

    void ResetValues();
};

struct LogSink {
    std::mutex mutex;
    std::deque<LogLine> lines;
    uint64_t next_seq = 0;
    size_t retention = 200000;
    // Lines below this priority are dropped before they are formatted.
    std::atomic<int> drop_below{0};
    bool echo = false;
    int echo_min_priority = 0;
    std::function<void(const LogLine&)> observer;
};

State& GetState();
LogSink& GetLogSink();

// Records the call and returns its injected failure code, if any.
std::optional<int> EnterCall(Call call);

}  // namespace internal
}  // namespace tvsim
