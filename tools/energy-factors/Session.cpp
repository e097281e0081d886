#include "Session.h"

#include <fmt/format.h>

#include <cstdio>
#include <ctime>
#include <stdexcept>

#include "InputFile.h"
#include "PluginLog.h"

namespace energyfactors {

namespace {

bool ParseUtc(std::string_view text, int64_t* out) {
    std::tm tm{};
    if (std::sscanf(std::string(text).c_str(), "%d-%d-%d %d:%d:%d", &tm.tm_year, &tm.tm_mon,
                    &tm.tm_mday, &tm.tm_hour, &tm.tm_min, &tm.tm_sec) != 6) {
        return false;
    }
    tm.tm_year -= 1900;
    tm.tm_mon -= 1;
    *out = static_cast<int64_t>(timegm(&tm));
    return true;
}

// The first word of `text`.
std::string Word(std::string_view text) {
    return std::string(text.substr(0, text.find(' ')));
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
    using Kind = hostkit::PluginLogLine::Kind;
    Session s;
    std::string text;
    int64_t utc = -1;      // time of the last snapshot time line
    bool in_turn = false;  // a row line came after it
    bool have_inputs = false;
    Turn turn;
    while (std::getline(in, text)) {
        const hostkit::PluginLogLine line = hostkit::ReadPluginLog(text);
        const std::string value(line.value);
        switch (line.kind) {
            case Kind::kSnapshotTime:
                in_turn = have_inputs = false;
                if (!ParseUtc(value, &utc)) {
                    utc = -1;
                }
                break;
            case Kind::kSnapshotRow:
                in_turn = utc >= 0 && std::sscanf(value.c_str(), "%d", &s.row_id) == 1;
                have_inputs = false;
                break;
            case Kind::kSnapshotInputs:
                if (in_turn) {
                    Inputs& i = turn.in;
                    have_inputs =
                        std::sscanf(value.c_str(), "%d, dutysum:%d, resolution: %d, volume: %d",
                                    &i.ana, &i.dutysum, &i.resolution, &i.volume) == 4;
                }
                break;
            case Kind::kPowerStatus:
                if (have_inputs) {
                    if (StateFromName(Word(value), &turn.in.state)) {
                        turn.time = utc;
                        s.turns.push_back(turn);
                    }
                    in_turn = have_inputs = false;
                }
                break;
            case Kind::kSwModel:
                s.sw_model = value;
                break;
            case Kind::kPanelType:
                s.panel_type = value;
                break;
            default:
                break;
        }
    }
    return s;
}

}  // namespace energyfactors
