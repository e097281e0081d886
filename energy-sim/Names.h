// The names energy-sim accepts for the simulated TV's settings, one table per domain: power
// settings, speakers and protocol statuses. Profiles, scenarios and plot labels all read these.
#pragma once

#include <wexf.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "PowerStatus.h"

namespace energysim {

// A platform (power state, ambient mode) pair.
struct PowerSetting {
    int state = 0;
    int ambient = 0;
    bool operator==(const PowerSetting& o) const {
        return state == o.state && ambient == o.ambient;
    }
};

template <typename T>
struct Named {
    const char* name;
    T value;
};

using powermeter::PowerStatus;
inline constexpr Named<PowerSetting> kPowerNames[] = {
    {"on", {PowerStatus::kStateOn, PowerStatus::kAmbientOff}},
    {"picture-off", {PowerStatus::kStatePictureOff, PowerStatus::kAmbientOff}},
    {"standby", {PowerStatus::kStateStandby, PowerStatus::kAmbientOff}},
    {"ambient", {PowerStatus::kStateStandby, PowerStatus::kAmbientAlwaysOnScreen}},
    {"suspend", {PowerStatus::kStateSuspend, PowerStatus::kAmbientOff}},
    {"lpm", {PowerStatus::kStateLowPower, PowerStatus::kAmbientLowPower}}};

inline constexpr Named<int> kSpeakerNames[] = {{"tv", 0}, {"external", 1}};

inline constexpr Named<wexf_protocol_status_e> kProtocolStatusNames[] = {
    {"ready", WEXF_PROTOCOL_STATUS_READY},
    {"connected", WEXF_PROTOCOL_STATUS_CONNECTED},
    {"disconnected", WEXF_PROTOCOL_STATUS_DISCONNECTED},
    {"error", WEXF_PROTOCOL_STATUS_ERROR}};

// The value named `name` in `table`, if any.
template <typename T, std::size_t N>
std::optional<T> ValueOf(const Named<T> (&table)[N], std::string_view name) {
    for (const Named<T>& n : table) {
        if (name == n.name) {
            return n.value;
        }
    }
    return std::nullopt;
}

// The name of `value` in `table`, or nullptr when it has none.
template <typename T, std::size_t N>
const char* NameOf(const Named<T> (&table)[N], const T& value) {
    for (const Named<T>& n : table) {
        if (n.value == value) {
            return n.name;
        }
    }
    return nullptr;
}

// The names joined for messages: "a, b, c" (`separator` ", ") or "a|b|c" (`separator` "|").
template <typename T, std::size_t N>
std::string NameList(const Named<T> (&table)[N], const char* separator = ", ") {
    std::string out;
    for (std::size_t i = 0; i < N; ++i) {
        out += i == 0 ? "" : separator;
        out += table[i].name;
    }
    return out;
}

}  // namespace energysim
