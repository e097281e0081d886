#include "Lint.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>
#include <stdexcept>
#include <utility>

#include "Calculator.h"
#include "PowerMeter.h"
#include "SharedJson.h"

namespace energyfactors {

namespace {

using powermeter::PowerFactors;

using powermeter::Calculator;
using powermeter::PowerMeter;

// Above this the metering loop replaces a turn's energy by 0 (its plausibility limit in Wh over
// a nominal turn).
constexpr double kLimitWatts =
    PowerMeter::kPlausibilityLimit * 3600.0 / PowerMeter::kNominalInterval;
constexpr int kLevels[] = {0, 256, 512, 768, 1023};  // ANA and DutySum
constexpr int kResolutions[] = {1080, 2160};
constexpr int kVolumes[] = {0, 50, 100};
// Inputs at which a factor that the row uses shows in the watts of some state.
const Inputs kProbes[] = {{powermeter::NORMAL, 700, 800, 2160, 20},
                          {powermeter::NORMAL, 1023, 1023, 1080, 100}};

std::string Describe(const Inputs& in) {
    return fmt::format("ANA {}, DutySum {}, {} lines, volume {}", in.ana, in.dutysum, in.resolution,
                       in.volume);
}

void CheckVersion(const DataSet& set, std::vector<Defect>* out) {
    if (!set.has_first_line) {
        out->push_back({1, Severity::kError, "empty file: no version line"});
        return;
    }
    powermeter::PowerFactors row;
    if (PluginSandbox::ParseRow(set.first_line, &row, nullptr)) {
        out->push_back({1, Severity::kError,
                        "no version line: this row is read as the data-set version and is "
                        "never selected"});
    }
}

std::string ParseReason(const DataRow& row) {
    const std::string prefix = "[Energy] ";
    for (const std::string& m : row.parse_log) {
        if (m.compare(0, prefix.size(), prefix) == 0) {
            return "skipped by the plug-in: " + m.substr(prefix.size());
        }
    }
    return "skipped by the plug-in";
}

void CheckType(const DataRow& row, std::vector<Defect>* out) {
    const double factor = row.row.BLUFactors(powermeter::TYPE);
    const int type = Calculator::BluType(factor);
    if (type == Calculator::kBluTypeUndefined) {
        out->push_back({row.line, Severity::kWarning,
                        fmt::format("backlight type {} is undefined: the plug-in meters 0 W for "
                                    "the backlight",
                                    type)});
    } else if (type < 0 || type > Calculator::kBluTypeCompensated) {
        out->push_back({row.line, Severity::kError,
                        fmt::format("backlight type {} is outside 0-{}: the plug-in meters 0 W for "
                                    "the backlight",
                                    FactorText(factor), Calculator::kBluTypeCompensated)});
    }
}

// The states whose watts at the probe inputs differ between the two rows.
std::vector<std::string> StatesThatDiffer(RowModel& a, RowModel& b) {
    std::vector<std::string> states;
    for (int s = 0; s < kStateCount; ++s) {
        for (Inputs in : kProbes) {
            in.state = static_cast<powermeter::_PowerStatusForEnergy>(s);
            const double wa = a.Watts(in), wb = b.Watts(in);
            if (wa != wb && !(std::isnan(wa) && std::isnan(wb))) {
                states.push_back(StateName(in.state));
                break;
            }
        }
    }
    return states;
}

// A "-" factor that the row's backlight type or components use. True when one was found.
bool CheckMissing(PluginSandbox& sandbox, const DataRow& row, std::vector<Defect>* out) {
    const Factors f = FactorsOf(row.row);
    bool found = false;
    std::unique_ptr<RowModel> as_is;
    for (int i = 0; i < kFactorCount; ++i) {
        if (f[i] != PowerFactors::kMissing || i == powermeter::TYPE) {
            continue;
        }
        Factors filled = f;
        filled[i] = 1.0;
        if (!as_is) {
            as_is = std::make_unique<RowModel>(sandbox, row.text);
        }
        RowModel with_value(sandbox, FormatRow(row, filled));
        const std::vector<std::string> states = StatesThatDiffer(*as_is, with_value);
        if (!states.empty()) {
            found = true;
            out->push_back({row.line, Severity::kError,
                            fmt::format("{} is \"-\" but the row uses it ({}): it reads as "
                                        "-12345678 and meters absurd power",
                                        FactorName(i), fmt::join(states, ", "))});
        }
    }
    return found;
}

struct Extreme {
    double watts = 0;
    Inputs at;
};

// Watts outside what the loop meters, over the whole input range, one line per kind.
void CheckRange(PluginSandbox& sandbox, const DataRow& row, std::vector<Defect>* out) {
    RowModel model(sandbox, row.text);
    std::map<int, Extreme> low, high, nan;
    for (int ana : kLevels) {
        for (int duty : kLevels) {
            for (int res : kResolutions) {
                for (int vol : kVolumes) {
                    for (int s = 0; s < powermeter::SUSPEND; ++s) {
                        Inputs in{static_cast<powermeter::_PowerStatusForEnergy>(s), ana, duty, res,
                                  vol};
                        const double w = model.Watts(in);
                        if (!std::isfinite(w)) {
                            nan.emplace(s, Extreme{w, in});
                        } else if (w < 0 && (!low.count(s) || w < low[s].watts)) {
                            low[s] = {w, in};
                        } else if (w > kLimitWatts && (!high.count(s) || w > high[s].watts)) {
                            high[s] = {w, in};
                        }
                    }
                }
            }
        }
    }
    auto report = [&](const std::map<int, Extreme>& found, const char* what) {
        if (found.empty()) {
            return;
        }
        std::vector<std::string> parts;
        for (const auto& [s, e] : found) {
            // A watt that is not finite is named, not printed as "nan" or "inf".
            parts.push_back(fmt::format(
                "{} {}at {}", StateName(static_cast<powermeter::_PowerStatusForEnergy>(s)),
                std::isfinite(e.watts) ? fmt::format("{:.1f} W ", e.watts) : "", Describe(e.at)));
        }
        out->push_back(
            {row.line, Severity::kError, fmt::format("{}: {}", what, fmt::join(parts, "; "))});
    };
    report(low, "negative watts");
    const std::string above = fmt::format("watts above {:g} ({:g} Wh per turn: the loop meters 0)",
                                          kLimitWatts, PowerMeter::kPlausibilityLimit);
    report(high, above.c_str());
    report(nan, "watts not a finite number");
}

}  // namespace

std::vector<Defect> Lint(PluginSandbox& sandbox, const DataSet& set) {
    std::vector<Defect> defects;
    CheckVersion(set, &defects);
    std::map<std::pair<std::string, std::string>, int> first_of;
    for (const DataRow& row : set.rows) {
        if (!row.parsed) {
            defects.push_back({row.line, Severity::kError, ParseReason(row)});
            continue;
        }
        auto [it, inserted] =
            first_of.emplace(std::make_pair(row.SwModel(), row.PanelType()), row.line);
        if (!inserted) {
            defects.push_back({row.line, Severity::kError,
                               fmt::format("never selected: line {} has the same SW model {} and "
                                           "panel type {} (the first row wins)",
                                           it->second, row.SwModel(), row.PanelType())});
        }
        CheckType(row, &defects);
        // The calculator refuses a row it does not select for its own SW model and panel type
        // (a NUL in them: the TV's names end there) or one with a factor that is not finite.
        try {
            if (!CheckMissing(sandbox, row, &defects)) {
                CheckRange(sandbox, row, &defects);
            }
        } catch (const std::runtime_error& e) {
            defects.push_back({row.line, Severity::kError, e.what()});
        }
    }
    return defects;
}

std::string FormatDefectsText(const std::string& path, const std::vector<Defect>& defects) {
    std::string out;
    for (const Defect& d : defects) {
        out += fmt::format("{}:{}: {}: {}\n", path, d.line,
                           d.severity == Severity::kError ? "error" : "warning", d.reason);
    }
    return out;
}

std::string FormatDefectsJson(const std::string& path, const std::vector<Defect>& defects) {
    using common::json::JsonType;
    using common::json::JsonValue;
    int errors = 0;
    JsonValue items(JsonType::Array);
    for (const Defect& d : defects) {
        errors += d.severity == Severity::kError;
        JsonValue item(JsonType::Object);
        item["line"] = d.line;
        item["severity"] = d.severity == Severity::kError ? "error" : "warning";
        item["reason"] = d.reason;
        items.append(std::move(item));
    }
    JsonValue doc(JsonType::Object);
    doc["file"] = path;
    doc["errors"] = errors;
    doc["warnings"] = static_cast<int>(defects.size()) - errors;
    doc["defects"] = std::move(items);
    return doc.toString(false) + "\n";
}

}  // namespace energyfactors
