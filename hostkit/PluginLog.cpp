#include "PluginLog.h"

#include <cstdlib>
#include <cstring>

#include "LogTexts.h"

namespace hostkit {
namespace {

namespace text = powermeter::logtext;
using Kind = PluginLogLine::Kind;

struct Key {
    const char* text;
    Kind kind;
    bool whole;  // the text is the whole message
};

// The plug-in's own messages all start with this.
constexpr char kEnergy[] = "[Energy";

const Key kEnergyKeys[] = {
    {text::kPowerStatus, Kind::kPowerStatus, false},
    {text::kCalculatedPower, Kind::kCalculatedPower, false},
    {text::kInstantaneousPower, Kind::kInstantaneousPower, false},
    {text::kTurnFailed, Kind::kTurnFailed, false},
    {text::kUploadNow, Kind::kUploadNow, true},
    {text::kSnapshotTime, Kind::kSnapshotTime, false},
    {text::kSnapshotRow, Kind::kSnapshotRow, false},
    {text::kSnapshotInputs, Kind::kSnapshotInputs, false},
    {text::kSwModel, Kind::kSwModel, false},
    {text::kPanelType, Kind::kPanelType, false},
};

// The line from `at` without its line end.
std::string_view From(const std::string& line, size_t at) {
    std::string_view rest(line);
    rest.remove_prefix(at);
    while (!rest.empty() && (rest.back() == '\r' || rest.back() == '\n')) {
        rest.remove_suffix(1);
    }
    return rest;
}

PluginLogLine Line(Kind kind, std::string_view value = {}) {
    PluginLogLine l;
    l.kind = kind;
    l.value = value;
    return l;
}

}  // namespace

double PluginLogLine::Number() const {
    // The value ends at the line's end or before a line end: strtod stops there.
    return value.empty() ? 0.0 : std::strtod(value.data(), nullptr);
}

PluginLogLine ReadPluginLog(const std::string& line) {
    const size_t energy = line.find(kEnergy);
    if (energy != std::string::npos) {
        for (const Key& key : kEnergyKeys) {
            const size_t n = std::strlen(key.text);
            if (line.compare(energy, n, key.text) == 0) {
                const std::string_view value = From(line, energy + n);
                if (!key.whole || value.empty()) {
                    return Line(key.kind, value);
                }
            }
        }
        return Line(Kind::kOther);
    }
    const size_t rule = line.find(text::kTurnRule);
    if (rule != std::string::npos) {
        const size_t n = rule + std::strlen(text::kTurnRule);
        const bool numbered = line.size() > n && line[n] >= '0' && line[n] <= '9';
        return Line(numbered ? Kind::kTurnStart : Kind::kOther);
    }
    const std::string_view message = From(line, 0);
    const std::string_view not_ready = text::kProtocolNotReady;
    if (message.size() >= not_ready.size() &&
        message.substr(message.size() - not_ready.size()) == not_ready) {
        return Line(Kind::kUploadFailed);
    }
    const size_t failed = line.find(text::kNotifyFailed);
    if (failed != std::string::npos) {
        return Line(Kind::kUploadFailed, From(line, failed + std::strlen(text::kNotifyFailed)));
    }
    return Line(Kind::kOther);
}

}  // namespace hostkit
