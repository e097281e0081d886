#include "PowerStates.h"

namespace energysim {
namespace {

struct Named {
    const char* name;
    PowerSetting setting;
};

constexpr Named kNames[] = {{"on", {0, 0}},      {"picture-off", {1, 0}}, {"standby", {2, 0}},
                            {"ambient", {2, 1}}, {"suspend", {3, 0}},     {"lpm", {4, 2}}};

}  // namespace

bool ParsePowerName(const std::string& name, PowerSetting* out) {
    for (const Named& n : kNames) {
        if (name == n.name) {
            *out = n.setting;
            return true;
        }
    }
    return false;
}

std::string PowerNames() {
    std::string out;
    for (const Named& n : kNames) {
        out += out.empty() ? "" : ", ";
        out += n.name;
    }
    return out;
}

}  // namespace energysim
