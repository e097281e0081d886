#include "Truth.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <map>
#include <random>
#include <stdexcept>

#include "Fit.h"
#include "Grid.h"

namespace energyfactors {

std::string SkewedRow(PluginSandbox& sandbox, const DataRow& row, const Session& session,
                      double skew, uint32_t seed) {
    std::vector<Inputs> inputs;
    for (const auto& [in, n] : CountInputs(session.turns)) {
        inputs.push_back(in);
    }
    const FactorChoice choice = ChooseFactors(sandbox, row, inputs);
    std::vector<int> reached = choice.fitted;
    std::sort(reached.begin(), reached.end());
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> factor(1.0 - skew, 1.0 + skew);
    Factors f = FactorsOf(row.row);
    for (int i : reached) {
        // Four significant digits keep the printed row readable.
        f[i] = std::strtod(fmt::format("{:.4g}", f[i] * factor(random)).c_str(), nullptr);
    }
    return FormatRow(row, f);
}

std::vector<Sample> TrueSamples(PluginSandbox& sandbox, const std::string& true_row,
                                const Session& session, const TruthOptions& options) {
    RowModel model(sandbox, true_row);
    std::map<Inputs, double> watts;
    for (const Turn& t : session.turns) {
        if (!watts.count(t.in)) {
            watts[t.in] = model.Watts(t.in);
        }
    }
    std::mt19937 random(options.seed);
    std::normal_distribution<double> noise(0.0, options.noise_percent / 100.0);
    std::vector<Sample> samples;
    const std::vector<Turn>& turns = session.turns;
    const double first = static_cast<double>(turns.front().time);
    const double end = static_cast<double>(turns.back().time + kTurnSeconds);
    size_t k = 0;  // the last turn that starts at or before t
    for (int64_t n = 0;; ++n) {
        const double t = first + static_cast<double>(n) * options.period;
        if (t >= end) {
            break;
        }
        while (k + 1 < turns.size() && static_cast<double>(turns[k + 1].time) <= t) {
            ++k;
        }
        if (t >= static_cast<double>(turns[k].time + kTurnSeconds)) {
            continue;  // between two turns that are further apart than one turn
        }
        const double w = watts[turns[k].in] * (1.0 + noise(random));
        // What fit would refuse to read, and never a NaN or an infinity in the CSV.
        if (!(std::fabs(w) <= kMaxMeterWatts)) {
            throw std::runtime_error(fmt::format(
                "the true row's watts at {} are out of a wattmeter's range (a number from -{:.0f} "
                "to {:.0f})",
                DescribeInputs(turns[k].in), kMaxMeterWatts, kMaxMeterWatts));
        }
        samples.push_back({t, w});
    }
    return samples;
}

}  // namespace energyfactors
