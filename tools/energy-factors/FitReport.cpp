// The fit's report: what was fitted and held, the solver's account, the energy per state before
// and after, the fitted row's change over the input grid, and the fitted row.
#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "Fit.h"

namespace energyfactors {

namespace {

std::string Names(const std::vector<int>& factors) {
    std::vector<std::string> names;
    for (int f : factors) {
        names.push_back(FactorName(f));
    }
    return names.empty() ? "none" : fmt::format("{}", fmt::join(names, " "));
}

// What the sessions pin, what they cannot tell apart, what was held and why.
std::string FormatChoice(const FactorChoice& c) {
    std::string out = fmt::format(
        "pins      the sessions' watts depend on {} factors; they pin {} independent "
        "combinations of them\n",
        c.fitted.size(), c.rank);
    std::vector<int> together;
    for (int f : c.fitted) {
        if (std::count(c.alone.begin(), c.alone.end(), f) == 0) {
            together.push_back(f);
        }
    }
    out += c.fitted.empty() ? std::string("pinned    none")
                            : fmt::format("pinned    {} each on its own", Names(c.alone));
    if (!together.empty()) {
        out += fmt::format("; {} only in {} combinations", Names(together),
                           c.rank - static_cast<int>(c.alone.size()));
    }
    out += "\n";
    for (const Direction& d : c.directions) {
        std::vector<std::string> terms;
        for (const auto& [f, percent] : d.looks_like) {
            terms.push_back(fmt::format("{} {:+.3g}%", FactorName(f), percent));
        }
        out += fmt::format("unpinned  {} +1% looks the same as {}\n", FactorName(d.factor),
                           fmt::join(terms, " "));
    }
    if (!c.directions.empty()) {
        out +=
            "          the fit moves only what the sessions pin; the rest stays as in the data "
            "set's row\n";
    }
    for (const auto& [state, factors] : c.unvisited) {
        out += fmt::format("never     {} was never visited: {}\n", StateName(state),
                           factors.empty() ? std::string("the factors it uses are pinned elsewhere")
                                           : "held " + Names(factors) + " at the data set's value");
    }
    std::vector<std::string> held;
    for (const auto& [i, why] : c.held) {
        held.push_back(fmt::format("{} ({})", FactorName(i), why));
    }
    out += fmt::format("held      {}\n", fmt::join(held, ", "));
    return out;
}

}  // namespace

std::string FormatFitReport(const FitResult& r) {
    std::string out;
    out += fmt::format("row       line {}: {}\n", r.row.line, r.row.text);
    out += FormatChoice(r.choice);
    out += fmt::format("solver    Eigen Levenberg-Marquardt: {}, {} iterations, {} evaluations\n",
                       r.solver_status, r.iterations, r.evaluations);
    out += fmt::format("turns     {} with wattmeter samples\n", r.turns_measured);
    out += fmt::format("fitted    {:<20} {:>11} {:>11} {:>22}\n", "factor", "before", "after",
                       "standard uncertainty");
    for (size_t k = 0; k < r.choice.fitted.size(); ++k) {
        const int f = r.choice.fitted[k];
        const double sigma = k < r.sigma.size() ? r.sigma[k] : 0.0;
        const bool alone = std::count(r.choice.alone.begin(), r.choice.alone.end(), f) > 0;
        out += fmt::format("          {:<20} {:>11.6g} {:>11.6g} {:>11.3g} ({:.2g}%){}\n",
                           FactorName(f), r.before[f], r.after[f], sigma,
                           r.after[f] != 0 ? sigma / std::fabs(r.after[f]) * 100 : 0.0,
                           alone ? "" : " *");
    }
    if (r.choice.alone.size() < r.choice.fitted.size()) {
        out +=
            "          * not pinned on its own: the uncertainty is that of the pinned "
            "combinations alone\n";
    }
    out += "\n";
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
