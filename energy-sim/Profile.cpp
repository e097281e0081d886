#include "Profile.h"

#include <algorithm>
#include <limits>
#include <stdexcept>

#include "Error.h"
#include "InputFile.h"
#include "Names.h"
#include "Registers.h"
#include "Scenario.h"
#include "SharedJson.h"

namespace energysim {

using common::json::JsonException;
using common::json::JsonType;
using common::json::JsonValue;

DeviceProfile DefaultProfile() {
    DeviceProfile p;
    p.name = "built-in default (VX55Q7000, 55-inch QLED, 2024)";
    p.model = "24_QUASAR_55";
    p.panel_type = "VP55UA2X01";
    p.locale_set = "EU_DTV";
    p.model_year = 24;
    p.picture = {{"ANA", "700"}, {"DutySum", "800"},     {"APL", "420"},
                 {"BLOSD", "0"}, {"RESOLUTION", "2160"}, {"PC", "0"},
                 {"HDR", "0"},   {"IDS", "1"},           {"TEMP", "41"}};
    p.volume = 20;
    return p;
}

namespace {

[[noreturn]] void Fail(const std::string& origin, const std::string& field,
                       const std::string& why) {
    throw SimError(origin + ": field \"" + field + "\": " + why);
}

std::string AsText(const JsonValue& v, const std::string& origin, const std::string& field) {
    if (!v.isString()) {
        Fail(origin, field, "must be a string");
    }
    return v.asString();
}

int AsInt(const JsonValue& v, const std::string& origin, const std::string& field, long long lo,
          long long hi) {
    if (v.type() != JsonType::Int) {
        Fail(origin, field, "must be a whole number");
    }
    long long n = v.asInt64();
    if (n < lo || n > hi) {
        Fail(origin, field, "must be between " + std::to_string(lo) + " and " + std::to_string(hi));
    }
    return static_cast<int>(n);
}

// A text the platform may not publish: a string, or null for "not published".
std::optional<std::string> OptionalText(const JsonValue& v, const std::string& origin,
                                        const std::string& field) {
    if (v.isNull()) {
        return std::nullopt;
    }
    return AsText(v, origin, field);
}

// A picture register: a whole number, or a decimal string (published as is).
std::string RegisterText(const JsonValue& v, const std::string& origin, const std::string& field) {
    if (v.type() == JsonType::Int) {
        long long n = v.asInt64();
        if (n < std::numeric_limits<int32_t>::min() || n > std::numeric_limits<int32_t>::max()) {
            Fail(origin, field, "is out of the 32-bit range");
        }
        return std::to_string(n);
    }
    if (v.isString()) {
        return v.asString();
    }
    Fail(origin, field, "must be a whole number or a string");
}

// Where the JSON object that `text` starts with (after white space) ends: one past its closing
// brace, or npos. Strings are skipped whole, so braces inside them do not count.
size_t ObjectEnd(const std::string& text) {
    size_t i = text.find_first_not_of(" \t\r\n");
    if (i == std::string::npos || text[i] != '{') {
        return std::string::npos;
    }
    int depth = 0;
    for (; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '"') {
            for (++i; i < text.size() && text[i] != '"'; ++i) {
                i += text[i] == '\\' ? 1 : 0;
            }
        } else if (c == '{' || c == '[') {
            ++depth;
        } else if ((c == '}' || c == ']') && --depth == 0) {
            return i + 1;
        }
    }
    return std::string::npos;
}

// Parses `text` as one JSON object and nothing else.
JsonValue ParseObject(const std::string& text, const std::string& origin) {
    JsonValue root = JsonValue::Create(text);
    if (root.isNull()) {
        throw SimError(origin + ": not valid JSON");
    }
    if (root.type() != JsonType::Object) {
        throw SimError(origin + ": not a JSON object");
    }
    // The JSON parser takes a second document or a comment after the object; a profile is the
    // one object and nothing else.
    const size_t end = ObjectEnd(text);
    if (end == std::string::npos) {
        throw SimError(origin + ": not valid JSON");
    }
    const size_t extra = text.find_first_not_of(" \t\r\n", end);
    if (extra != std::string::npos) {
        const auto line = 1 + std::count(text.begin(), text.begin() + extra, '\n');
        throw SimError(origin + ":" + std::to_string(line) + ": text after the JSON object: " +
                       Quote(text.substr(extra, text.find_last_not_of(" \t\r\n") + 1 - extra)));
    }
    return root;
}

void CheckFieldsKnown(const JsonValue& root, const std::string& origin) {
    static const char* const kKnown[] = {"name",       "model",       "panelType", "localeSet",
                                         "modelYear",  "picture",     "volume",    "speaker",
                                         "powerState", "ambientMode", "dataDir",   "sharedDir"};
    for (const std::string& key : root.getMemberNames()) {
        bool known = false;
        for (const char* k : kKnown) {
            known = known || key == k;
        }
        if (!known) {
            Fail(origin, key, "unknown field");
        }
    }
}

void ReadSpeaker(const JsonValue& s, const std::string& origin, DeviceProfile* p) {
    auto named = s.isString() ? ValueOf(kSpeakerNames, s.asString()) : std::nullopt;
    if (named) {
        p->speaker = *named;
    } else if (s.type() == JsonType::Int) {
        p->speaker = AsInt(s, origin, "speaker", 0, 1000);
    } else {
        Fail(origin, "speaker", "must be \"tv\", \"external\" or a number");
    }
}

void ReadPowerState(const JsonValue& s, const std::string& origin, DeviceProfile* p) {
    auto setting = s.isString() ? ValueOf(kPowerNames, s.asString()) : std::nullopt;
    if (setting) {
        p->power_state = setting->state;
        p->ambient_mode = setting->ambient;
    } else if (s.type() == JsonType::Int) {
        p->power_state = AsInt(s, origin, "powerState", -1000, 1000);
    } else {
        Fail(origin, "powerState", "must be one of " + NameList(kPowerNames) + " or a number");
    }
}

// The registers listed change the default picture's; a register set to null is not
// published, and a picture of null publishes an empty key.
void ReadPicture(const JsonValue& pic, const std::string& origin, DeviceProfile* p) {
    if (pic.isNull()) {
        p->picture.clear();
        return;
    }
    if (pic.type() != JsonType::Object) {
        Fail(origin, "picture", "must be an object of register values");
    }
    for (const std::string& key : pic.getMemberNames()) {
        bool known = false;
        for (const char* name : powermeter::Registers::kNames) {
            known = known || key == name;
        }
        if (!known) {
            Fail(origin, "picture." + key, "unknown register");
        }
        if (pic[key].isNull()) {
            p->picture.erase(key);
        } else {
            p->picture[key] = RegisterText(pic[key], origin, "picture." + key);
        }
    }
}

// The fields, in this order: the first bad one is reported. A field left out keeps the
// built-in default's value.
void ReadFields(const JsonValue& r, const std::string& origin, DeviceProfile* p) {
    if (r.isMember("name"))
        p->name = AsText(r["name"], origin, "name");
    if (r.isMember("model"))
        p->model = OptionalText(r["model"], origin, "model");
    if (r.isMember("panelType"))
        p->panel_type = OptionalText(r["panelType"], origin, "panelType");
    if (r.isMember("localeSet"))
        p->locale_set = OptionalText(r["localeSet"], origin, "localeSet");
    if (r.isMember("modelYear") && r["modelYear"].isNull())
        p->model_year.reset();
    else if (r.isMember("modelYear"))
        p->model_year = AsInt(r["modelYear"], origin, "modelYear", 0, 99);
    if (r.isMember("volume"))
        p->volume = AsInt(r["volume"], origin, "volume", 0, 100);
    if (r.isMember("speaker"))
        ReadSpeaker(r["speaker"], origin, p);
    if (r.isMember("powerState"))
        ReadPowerState(r["powerState"], origin, p);
    if (r.isMember("ambientMode"))
        p->ambient_mode = AsInt(r["ambientMode"], origin, "ambientMode", -1000, 1000);
    if (r.isMember("dataDir"))
        p->data_dir = AsText(r["dataDir"], origin, "dataDir");
    if (r.isMember("sharedDir"))
        p->shared_dir = AsText(r["sharedDir"], origin, "sharedDir");
    if (r.isMember("picture"))
        ReadPicture(r["picture"], origin, p);
}

}  // namespace

DeviceProfile ParseProfile(const std::string& text, const std::string& origin) {
    const JsonValue root = ParseObject(text, origin);
    DeviceProfile p = DefaultProfile();
    p.name = origin;
    CheckFieldsKnown(root, origin);
    try {
        ReadFields(root, origin, &p);
    } catch (const JsonException& e) {
        throw SimError(origin + ": " + e.what());
    }
    for (std::string* dir : {&p.data_dir, &p.shared_dir}) {
        if (!dir->empty() && dir->back() != '/') {
            dir->push_back('/');  // the platform reports directories with a trailing '/'
        }
    }
    return p;
}

DeviceProfile LoadProfile(const std::string& path) {
    hostkit::InputFile file(path, kMaxProfileBytes);
    std::string text;
    if (!file.ReadAll(&text)) {
        throw SimError("cannot read profile " + path + ": " + file.error());
    }
    return ParseProfile(text, path);
}

std::string PictureJson(const std::map<std::string, std::string>& picture) {
    JsonValue doc(JsonType::Object);
    for (const char* name : powermeter::Registers::kNames) {
        auto it = picture.find(name);
        if (it != picture.end()) {
            doc[name] = it->second;
        }
    }
    for (const auto& [name, value] : picture) {
        if (!doc.isMember(name)) {
            doc[name] = value;
        }
    }
    return doc.toString(false);
}

}  // namespace energysim
