// The fit's report: what was fitted and held, the solver's account, the energy per state before
// and after, the fitted row's change over the input grid, and the fitted row.
#include <fmt/format.h>

#include "Fit.h"

namespace energyfactors {

std::string FormatFitReport(const FitResult& r) {
    std::vector<std::string> fitted, held;
    for (int i : r.choice.fitted) {
        fitted.push_back(FactorName(i));
    }
    for (const auto& [i, why] : r.choice.held) {
        held.push_back(fmt::format("{} ({})", FactorName(i), why));
    }
    std::string out;
    out += fmt::format("row       line {}: {}\n", r.row.line, r.row.text);
    out += fmt::format("fitted    {}\n",
                       fitted.empty() ? "none" : fmt::format("{}", fmt::join(fitted, " ")));
    out += fmt::format("held      {}\n", fmt::join(held, ", "));
    out += fmt::format("solver    Eigen Levenberg-Marquardt: {}, {} iterations, {} evaluations\n",
                       r.solver_status, r.iterations, r.evaluations);
    out += fmt::format("turns     {} with wattmeter samples\n\n", r.turns_measured);
    out += fmt::format("{:<20} {:>6} {:>11} | {:>11} {:>8} {:>7} | {:>11} {:>8} {:>7}\n", "state",
                       "turns", "meter Wh", "before Wh", "error", "RMS W", "after Wh", "error",
                       "RMS W");
    auto line = [&](const char* name, const StateError& e) {
        out += fmt::format(
            "{:<20} {:>6} {:>11.3f} | {:>11.3f} {:>+7.2f}% {:>7.2f} | {:>11.3f} {:>+7.2f}% "
            "{:>7.2f}\n",
            name, e.turns, e.measured_wh, e.before_wh, ErrorPercent(e.before_wh, e.measured_wh),
            e.before_rms, e.after_wh, ErrorPercent(e.after_wh, e.measured_wh), e.after_rms);
    };
    for (int s = 0; s < kStateCount; ++s) {
        if (r.states[s].turns > 0) {
            line(StateName(static_cast<powermeter::_PowerStatusForEnergy>(s)), r.states[s]);
        }
    }
    line("all", r.all);
    out += fmt::format(
        "\ngrid      fitted row vs the data set's row over {} inputs (ANA, DutySum, lines, volume, "
        "state): largest {:.2f}% ({}), 95th percentile {:.2f}%\n",
        r.grid.points, r.grid.max_percent, DescribeInputs(r.grid.worst), r.grid.p95_percent);
    out += fmt::format("\nfitted row (data-set format):\n{}\n", r.after_text);
    return out;
}

}  // namespace energyfactors
