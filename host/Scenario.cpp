#include "Scenario.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <limits>
#include <sstream>
#include <stdexcept>

#include "PowerStates.h"
#include "Profile.h"
#include "tvsim/Simulator.h"

namespace energysim {
namespace {

bool ParseInt(const std::string& text, long long lo, long long hi, long long* out) {
    if (text.empty()) {
        return false;
    }
    errno = 0;
    char* end = nullptr;
    long long v = std::strtoll(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || v < lo || v > hi) {
        return false;
    }
    *out = v;
    return true;
}

bool IsRegister(const std::string& name) {
    for (const char* r : kPictureRegisters) {
        if (name == r) {
            return true;
        }
    }
    return false;
}

bool IsProtocolStatus(const std::string& s) {
    long long n;
    return s == "ready" || s == "connected" || s == "disconnected" || s == "error" ||
           ParseInt(s, -1000, 1000, &n);
}

bool IsCallName(const std::string& name) {
    for (int c = 0; c <= static_cast<int>(tvsim::Call::kTimeFromSec); ++c) {
        if (name == tvsim::CallName(static_cast<tvsim::Call>(c))) {
            return true;
        }
    }
    return false;
}

// Checks one entry's arguments; returns "" when valid, else why not.
std::string Validate(const ScenarioEntry& e) {
    const auto& a = e.args;
    long long n;
    const std::string& c = e.command;
    if (c == "power") {
        PowerSetting s;
        if (a.size() != 1 || !ParsePowerName(a[0], &s)) {
            return "power takes one of: " + PowerNames();
        }
    } else if (c == "power-state" || c == "ambient-mode") {
        if (a.size() != 1 || !ParseInt(a[0], -1000000, 1000000, &n)) {
            return c + " takes one whole number";
        }
    } else if (c == "volume") {
        if (a.size() != 1 || !ParseInt(a[0], 0, 100, &n)) {
            return "volume takes a whole number from 0 to 100";
        }
    } else if (c == "speaker") {
        if (a.size() != 1 || !(a[0] == "tv" || a[0] == "external" || ParseInt(a[0], 0, 1000, &n))) {
            return "speaker takes tv, external or a number";
        }
    } else if (c == "picture") {
        if (a.empty()) {
            return "picture takes NAME=VALUE pairs";
        }
        for (const std::string& kv : a) {
            size_t eq = kv.find('=');
            std::string name = kv.substr(0, eq);
            std::string value = eq == std::string::npos ? "" : kv.substr(eq + 1);
            if (eq == std::string::npos || !IsRegister(name)) {
                return "'" + kv + "' is not REGISTER=VALUE with a known register";
            }
            if (value != "-" && !ParseInt(value, std::numeric_limits<int32_t>::min(),
                                          std::numeric_limits<int32_t>::max(), &n)) {
                return "value of " + name + " must be a whole number or '-'";
            }
        }
    } else if (c == "config") {
        if (a.size() != 1 || (a[0] != "missing" && a[0] != "restore")) {
            return "config takes missing or restore";
        }
    } else if (c == "config-raw") {
        // Any text, including none.
    } else if (c == "protocol") {
        if (a.size() != 2 || !IsProtocolStatus(a[1])) {
            return "protocol takes NAME and ready|connected|disconnected|error|N";
        }
    } else if (c == "fail") {
        if (a.size() != 2 || !IsCallName(a[0]) || !ParseInt(a[1], -1000000000, 1000000000, &n)) {
            return "fail takes a platform call name and an error code";
        }
    } else if (c == "restore") {
        if (a.size() != 1 || !IsCallName(a[0])) {
            return "restore takes a platform call name";
        }
    } else if (c == "note") {
        // Free text.
    } else {
        return "unknown command '" + c + "'";
    }
    return "";
}

}  // namespace

bool ParseDuration(const std::string& text, uint64_t* seconds) {
    if (text.empty()) {
        return false;
    }
    if (text.find(':') != std::string::npos) {
        unsigned long long h = 0, m = 0, s = 0;
        char tail = 0;
        int n = std::sscanf(text.c_str(), "%llu:%llu:%llu%c", &h, &m, &s, &tail);
        size_t colons = std::count(text.begin(), text.end(), ':');
        bool digits = text.find_first_not_of("0123456789:") == std::string::npos;
        if (!digits || colons > 2 || n != static_cast<int>(colons) + 1 || m > 59 || s > 59) {
            return false;
        }
        *seconds = h * 3600 + m * 60 + s;
        return true;
    }
    uint64_t total = 0;
    size_t i = 0;
    bool any = false;
    while (i < text.size()) {
        size_t start = i;
        while (i < text.size() && std::isdigit(static_cast<unsigned char>(text[i]))) {
            ++i;
        }
        if (i == start || i - start > 9) {
            return false;
        }
        uint64_t n = std::stoull(text.substr(start, i - start));
        uint64_t unit = 1;
        if (i < text.size()) {
            switch (text[i]) {
                case 'd':
                    unit = 86400;
                    break;
                case 'h':
                    unit = 3600;
                    break;
                case 'm':
                    unit = 60;
                    break;
                case 's':
                    unit = 1;
                    break;
                default:
                    return false;
            }
            ++i;
        } else if (any) {
            return false;  // "1h30" is ambiguous
        }
        total += n * unit;
        any = true;
    }
    *seconds = total;
    return any;
}

bool Scenario::SetsCorvaneAtStart() const {
    for (const ScenarioEntry& e : entries) {
        if (e.offset == 0 && e.command == "protocol" && e.args.size() == 2 &&
            e.args[0] == "corvane") {
            return true;
        }
    }
    return false;
}

Scenario ParseScenario(const std::string& text, const std::string& origin) {
    Scenario scenario;
    scenario.origin = origin;
    std::istringstream in(text);
    std::string raw;
    int line_no = 0;
    uint64_t previous = 0;
    while (std::getline(in, raw)) {
        ++line_no;
        if (!raw.empty() && raw.back() == '\r') {
            raw.pop_back();
        }
        std::string line = raw.substr(0, raw.find('#'));
        std::istringstream words(line);
        std::string when;
        if (!(words >> when)) {
            continue;
        }
        auto fail = [&](const std::string& why) {
            throw std::runtime_error(origin + ":" + std::to_string(line_no) + ": " + why);
        };
        ScenarioEntry e;
        e.line = line_no;
        bool relative = when[0] == '+';
        uint64_t offset = 0;
        if (!ParseDuration(relative ? when.substr(1) : when, &offset)) {
            fail("bad time '" + when + "' (use e.g. 90s, 15m, 3h, 1h30m, 2d or HH:MM[:SS])");
        }
        e.offset = relative ? previous + offset : offset;
        if (e.offset < previous) {
            fail("time goes back (entries must be in time order)");
        }
        if (!(words >> e.command)) {
            fail("missing command after the time");
        }
        std::string word;
        if (e.command == "config-raw" || e.command == "note") {
            std::getline(words >> std::ws, word);
            if (!word.empty()) {
                e.args.push_back(word);
            }
        } else {
            while (words >> word) {
                e.args.push_back(word);
            }
        }
        std::string why = Validate(e);
        if (!why.empty()) {
            fail(why);
        }
        size_t first = line.find_first_not_of(" \t");
        size_t last = line.find_last_not_of(" \t");
        e.text = line.substr(first, last - first + 1);
        previous = e.offset;
        scenario.entries.push_back(std::move(e));
    }
    return scenario;
}

Scenario LoadScenario(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw std::runtime_error("cannot read scenario " + path + ": " + std::strerror(errno));
    }
    std::ostringstream text;
    text << in.rdbuf();
    return ParseScenario(text.str(), path);
}

}  // namespace energysim
