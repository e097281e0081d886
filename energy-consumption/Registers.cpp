#include "Registers.h"
#include "Strtol32.h"

#include <vconf.h>

#include <climits>
#include <cstdlib>
#include <stdexcept>

#include "CString.h"
#include "Log.h"
#include "SharedJson.h"

namespace powermeter {

Registers::Registers() {
    for (int i = 0; i < kCount; ++i) {
        values_[i] = kNotAvailable;
        names_[i] = kNames[i];
    }
}

void Registers::Refresh() {
    for (int32_t& v : values_) {
        v = kNotAvailable;
    }
    parse(read_vconf());
}

std::string Registers::read_vconf() {
    char* value = vconf_get_str(Registers::kVconfKey);
    std::string text;
    if (value == nullptr) {
        ELOGE("[ENERGY] failed to get vconf: %s", Registers::kVconfKey);
        text = "-";
    } else {
        text = common::TakeString(value);
    }
    ELOGD("[ENERGY] %s: %s", Registers::kVconfKey, text.c_str());
    return text;
}

void Registers::parse(const std::string& text) {
    if (text == "-") {
        return;
    }
    const common::json::JsonValue json = common::json::JsonValue::Create(text);
    if (json.isNull()) {
        return;
    }
    for (int i = 0; i < kCount; ++i) {
        if (json.isMember(names_[i])) {
            const std::string member = json[names_[i]].asString();
            values_[i] = Strtol32(member.c_str());
        }
    }
}

bool Registers::IsAvailable(_SYSTEMREGISTER r) const {
    return values_[r] != kNotAvailable;
}

int Registers::Value(_SYSTEMREGISTER r) const {
    if (!IsAvailable(r)) {
        throw std::runtime_error(names_[r] + " is not available");
    }
    return values_[r];
}

}  // namespace powermeter
