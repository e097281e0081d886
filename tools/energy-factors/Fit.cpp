#include "Fit.h"

#include <fmt/format.h>

#include <Eigen/Core>
#include <cmath>
#include <cstdlib>
#include <stdexcept>
#include <unsupported/Eigen/LevenbergMarquardt>
#include <unsupported/Eigen/NumericalDiff>

namespace energyfactors {

namespace {

using powermeter::PowerFactors;

// Weight of the pull towards the data set's row, in watts per unit of relative change of a
// factor. Small: it only picks one solution where the session cannot tell factors apart
// (ALPHA and VF_MIN always add up, for example), and leaves the rest to the data.
constexpr double kPull = 0.01;
constexpr double kWhPerWattTurn = 10.0 / 3600.0;

// Watts of every distinct input, in map order.
std::vector<double> WattsOf(PluginSandbox& sandbox, const std::string& row_text,
                            const InputCounts& inputs) {
    RowModel model(sandbox, row_text);
    std::vector<double> w;
    w.reserve(inputs.size());
    for (const auto& [in, n] : inputs) {
        w.push_back(model.Watts(in));
    }
    return w;
}

double Scale(double base) {
    return base != 0 ? std::fabs(base) : 1.0;
}

// Residuals: the weighted misfit of each distinct input's mean measured watts, then the pull of
// each fitted factor.
struct Problem : Eigen::DenseFunctor<double> {
    Problem(PluginSandbox& sandbox, const DataRow& row, const Factors& base,
            const std::vector<int>& fitted, const InputCounts& inputs,
            const std::vector<double>& weights, const std::vector<double>& means)
        : Eigen::DenseFunctor<double>(static_cast<int>(fitted.size()),
                                      static_cast<int>(inputs.size() + fitted.size())),
          sandbox(&sandbox),
          row(&row),
          base(base),
          fitted(fitted),
          inputs(&inputs),
          weights(weights),
          means(means) {}

    Factors FactorsAt(const InputType& x) const {
        Factors f = base;
        for (size_t j = 0; j < fitted.size(); ++j) {
            f[fitted[j]] = base[fitted[j]] + Scale(base[fitted[j]]) * x[static_cast<int>(j)];
        }
        return f;
    }

    int operator()(const InputType& x, ValueType& r) const {
        const std::vector<double> w = WattsOf(*sandbox, FormatRow(*row, FactorsAt(x)), *inputs);
        for (size_t u = 0; u < w.size(); ++u) {
            r[static_cast<int>(u)] = weights[u] * (means[u] - w[u]);
        }
        for (size_t j = 0; j < fitted.size(); ++j) {
            r[static_cast<int>(w.size() + j)] = kPull * x[static_cast<int>(j)];
        }
        return 0;
    }

    PluginSandbox* sandbox;
    const DataRow* row;
    Factors base;
    std::vector<int> fitted;
    const InputCounts* inputs;
    std::vector<double> weights;
    std::vector<double> means;
};

const char* StatusText(Eigen::LevenbergMarquardtSpace::Status s) {
    using namespace Eigen::LevenbergMarquardtSpace;
    switch (s) {
        case RelativeReductionTooSmall:
            return "converged (relative reduction of the misfit below tolerance)";
        case RelativeErrorTooSmall:
            return "converged (relative change of the factors below tolerance)";
        case RelativeErrorAndReductionTooSmall:
            return "converged (misfit and factors both settled)";
        case CosinusTooSmall:
            return "converged (residuals orthogonal to the Jacobian)";
        case TooManyFunctionEvaluation:
            return "stopped: too many evaluations";
        case FtolTooSmall:
        case XtolTooSmall:
        case GtolTooSmall:
            return "stopped: tolerance too small for machine precision";
        default:
            return "stopped";
    }
}

// Rounds to six significant digits, so that the printed row is the row the report describes.
double Round6(double v) {
    return std::strtod(fmt::format("{:.6g}", v).c_str(), nullptr);
}

void Accumulate(StateError& e, double measured, double before, double after) {
    e.turns += 1;
    e.measured_wh += measured * kWhPerWattTurn;
    e.before_wh += before * kWhPerWattTurn;
    e.after_wh += after * kWhPerWattTurn;
    e.before_rms += (before - measured) * (before - measured);
    e.after_rms += (after - measured) * (after - measured);
}

void FinishRms(StateError& e) {
    if (e.turns > 0) {
        e.before_rms = std::sqrt(e.before_rms / e.turns);
        e.after_rms = std::sqrt(e.after_rms / e.turns);
    }
}

}  // namespace

DataRow SessionRow(PluginSandbox& sandbox, const DataSet& set, const Session& session) {
    if (session.sw_model.empty() || session.panel_type.empty()) {
        throw std::runtime_error(
            "the log does not name the set (no \"[Energy] SW Model:\" and \"[Energy] Panel "
            "Type:\" lines); give --model and --panel");
    }
    sandbox.WriteDataSet(set.text);
    const Selection s = sandbox.Select(session.sw_model, session.panel_type);
    if (!s.selected) {
        throw std::runtime_error(fmt::format("{} has no row for SW model {} and panel type {}",
                                             set.path, session.sw_model, session.panel_type));
    }
    if (const DataRow* row = FindRow(set, s.row)) {
        return *row;
    }
    throw std::runtime_error("the selected row is not in the file");  // cannot happen
}

InputCounts CountInputs(const std::vector<Turn>& turns) {
    InputCounts counts;
    for (const Turn& t : turns) {
        ++counts[t.in];
    }
    return counts;
}

FactorChoice ChooseFactors(PluginSandbox& sandbox, const DataRow& row, const InputCounts& inputs) {
    FactorChoice c;
    const Factors base = FactorsOf(row.row);
    const std::vector<double> w0 = WattsOf(sandbox, row.text, inputs);
    for (int i = 0; i < kFactorCount; ++i) {
        if (i == powermeter::BLOCK || i == powermeter::TYPE) {
            c.held.emplace_back(i, "structural");
            continue;
        }
        if (base[i] == PowerFactors::kMissing) {
            c.held.emplace_back(i, "\"-\"");
            continue;
        }
        Factors moved = base;
        moved[i] = base[i] + 0.1 * Scale(base[i]);
        if (WattsOf(sandbox, FormatRow(row, moved), inputs) == w0) {
            c.held.emplace_back(i, "no turn of the session depends on it");
        } else {
            c.fitted.push_back(i);
        }
    }
    return c;
}

namespace {

// Turns with samples, grouped by their inputs: the misfit of a group's mean, weighted by the
// square root of its share of the turns, equals the per-turn least squares up to a constant.
struct Groups {
    int turns = 0;
    InputCounts inputs;
    std::vector<double> weights, means;  // in the order of `inputs`
};

Groups GroupMeasures(const Session& session, const std::vector<TurnMeasure>& measures) {
    Groups g;
    std::vector<Turn> measured_turns;
    std::map<Inputs, double> sums;
    for (size_t i = 0; i < session.turns.size(); ++i) {
        if (measures[i].samples > 0) {
            measured_turns.push_back(session.turns[i]);
            sums[session.turns[i].in] += measures[i].watts;
        }
    }
    if (measured_turns.empty()) {
        throw std::runtime_error("no wattmeter sample falls in a turn of the session");
    }
    g.turns = static_cast<int>(measured_turns.size());
    g.inputs = CountInputs(measured_turns);
    for (const auto& [in, n] : g.inputs) {
        g.weights.push_back(std::sqrt(static_cast<double>(n) / g.turns));
        g.means.push_back(sums[in] / n);
    }
    return g;
}

// Fits the chosen factors; fills the fitted row and the solver's account.
void Solve(PluginSandbox& sandbox, const Groups& g, FitResult* r) {
    r->after = r->before;
    if (r->choice.fitted.empty()) {
        r->solver_status = "nothing to fit";
    } else {
        Problem problem(sandbox, r->row, r->before, r->choice.fitted, g.inputs, g.weights, g.means);
        Eigen::NumericalDiff<Problem> numeric(problem);
        Eigen::LevenbergMarquardt<Eigen::NumericalDiff<Problem>> lm(numeric);
        lm.setMaxfev(400 * (static_cast<int>(r->choice.fitted.size()) + 1));
        Eigen::VectorXd x = Eigen::VectorXd::Zero(static_cast<int>(r->choice.fitted.size()));
        r->solver_status = StatusText(lm.minimize(x));
        r->iterations = static_cast<int>(lm.iterations());
        r->evaluations = static_cast<int>(lm.nfev());
        r->after = problem.FactorsAt(x);
        for (int i : r->choice.fitted) {
            r->after[i] = Round6(r->after[i]);
        }
    }
    r->after_text = FormatRow(r->row, r->after);
}

std::map<Inputs, double> WattsByInput(PluginSandbox& sandbox, const std::string& row_text,
                                      const InputCounts& inputs) {
    const std::vector<double> w = WattsOf(sandbox, row_text, inputs);
    std::map<Inputs, double> out;
    size_t u = 0;
    for (const auto& [in, n] : inputs) {
        out[in] = w[u++];
    }
    return out;
}

// Energy and RMS error per state of the data set's row and the fitted row, and the series for
// the plot.
void Compare(PluginSandbox& sandbox, const Session& session,
             const std::vector<TurnMeasure>& measures, const InputCounts& inputs, FitResult* r) {
    const std::map<Inputs, double> before = WattsByInput(sandbox, r->row.text, inputs);
    const std::map<Inputs, double> after = WattsByInput(sandbox, r->after_text, inputs);
    for (size_t i = 0; i < session.turns.size(); ++i) {
        if (measures[i].samples == 0) {
            continue;
        }
        const Inputs& in = session.turns[i].in;
        const double m = measures[i].watts, b = before.at(in), a = after.at(in);
        Accumulate(r->states[in.state], m, b, a);
        Accumulate(r->all, m, b, a);
        r->times.push_back(session.turns[i].time);
        r->measured.push_back(m);
        r->estimated_before.push_back(b);
        r->estimated_after.push_back(a);
    }
    for (StateError& e : r->states) {
        FinishRms(e);
    }
    FinishRms(r->all);
}

}  // namespace

FitResult Fit(PluginSandbox& sandbox, const DataRow& row, const Session& session,
              const std::vector<TurnMeasure>& measures) {
    FitResult r;
    r.row = row;
    r.before = FactorsOf(row.row);
    const Groups groups = GroupMeasures(session, measures);
    r.turns_measured = groups.turns;
    r.choice = ChooseFactors(sandbox, row, groups.inputs);
    Solve(sandbox, groups, &r);
    Compare(sandbox, session, measures, groups.inputs, &r);
    r.grid = CompareOnGrid(sandbox, r.after_text, row.text);
    return r;
}

}  // namespace energyfactors
