#include "Session.h"

#include <fmt/format.h>

#include <cstdio>
#include <ctime>
#include <stdexcept>

#include "InputFile.h"

namespace energyfactors {

namespace {

// The text after `key` in `line`, or nullptr.
const char* After(const std::string& line, const char* key) {
    const size_t at = line.find(key);
    return at == std::string::npos ? nullptr
                                   : line.c_str() + at + std::char_traits<char>::length(key);
}

bool ParseUtc(const char* text, int64_t* out) {
    std::tm tm{};
    if (std::sscanf(text, "%d-%d-%d %d:%d:%d", &tm.tm_year, &tm.tm_mon, &tm.tm_mday, &tm.tm_hour,
                    &tm.tm_min, &tm.tm_sec) != 6) {
        return false;
    }
    tm.tm_year -= 1900;
    tm.tm_mon -= 1;
    *out = static_cast<int64_t>(timegm(&tm));
    return true;
}

std::string Word(const char* text) {
    std::string w;
    while (*text != '\0' && *text != ' ' && *text != '\r' && *text != '\n') {
        w += *text++;
    }
    return w;
}

// The rest of the line, without a carriage return.
std::string Rest(const char* text) {
    std::string r = text;
    while (!r.empty() && (r.back() == '\r' || r.back() == '\n')) {
        r.pop_back();
    }
    return r;
}

}  // namespace

Session ReadSession(const std::string& path) {
    hostkit::InputFile file(path, kMaxLogBytes);
    std::istream in(&file);
    Session s = file.ok() ? ParseSession(in) : Session();
    if (!file.ok()) {
        throw std::runtime_error(fmt::format("cannot read {}: {}", path, file.error()));
    }
    if (s.turns.empty()) {
        throw std::runtime_error(fmt::format(
            "{}: no \"[Energy Factors]\" snapshot lines (write the log at level info)", path));
    }
    return s;
}

Session ParseSession(std::istream& in) {
    Session s;
    std::string line;
    int64_t utc = -1;      // time of the last "[Energy] UTC:" line
    bool in_turn = false;  // an "enum" line came after it
    bool have_inputs = false;
    Turn turn;
    while (std::getline(in, line)) {
        const char* v = nullptr;
        if ((v = After(line, "[Energy] UTC: ")) != nullptr) {
            in_turn = have_inputs = false;
            if (!ParseUtc(v, &utc)) {
                utc = -1;
            }
        } else if ((v = After(line, "[Energy Factors] enum: ")) != nullptr) {
            in_turn = utc >= 0 && std::sscanf(v, "%d", &s.row_id) == 1;
            have_inputs = false;
        } else if (in_turn && (v = After(line, "[Energy Factors] ana:")) != nullptr) {
            Inputs& i = turn.in;
            have_inputs = std::sscanf(v, "%d, dutysum:%d, resolution: %d, volume: %d", &i.ana,
                                      &i.dutysum, &i.resolution, &i.volume) == 4;
        } else if (have_inputs && (v = After(line, "[Energy Factors] Power Status: ")) != nullptr) {
            if (StateFromName(Word(v), &turn.in.state)) {
                turn.time = utc;
                s.turns.push_back(turn);
            }
            in_turn = have_inputs = false;
        } else if ((v = After(line, "[Energy] SW Model: ")) != nullptr) {
            s.sw_model = Rest(v);
        } else if ((v = After(line, "[Energy] Panel Type: ")) != nullptr) {
            s.panel_type = Rest(v);
        }
    }
    return s;
}

}  // namespace energyfactors
