#include "Fit.h"

#include <fmt/format.h>

#include <Eigen/Core>
#include <Eigen/LU>
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <stdexcept>
#include <unsupported/Eigen/LevenbergMarquardt>
#include <unsupported/Eigen/NumericalDiff>

namespace energyfactors {

namespace {

using powermeter::PowerFactors;

constexpr double kWhPerWattTurn = 10.0 / 3600.0;

std::vector<Inputs> KeysOf(const InputCounts& inputs) {
    std::vector<Inputs> keys;
    keys.reserve(inputs.size());
    for (const auto& [in, n] : inputs) {
        keys.push_back(in);
    }
    return keys;
}

// Residuals: the weighted misfit of each distinct input's mean measured watts. The unknowns z
// are coordinates in the pinned combinations: fitted factor k is
// base + FactorScale(base) * (basis z)_k, so what the sessions cannot see stays as it was.
struct Problem : Eigen::DenseFunctor<double> {
    Problem(PluginSandbox& sandbox, const DataRow& row, const Factors& base,
            const FactorChoice& choice, const std::vector<Inputs>& inputs,
            const std::vector<double>& weights, const std::vector<double>& means)
        : Eigen::DenseFunctor<double>(choice.rank, static_cast<int>(inputs.size())),
          sandbox(&sandbox),
          row(&row),
          base(base),
          choice(&choice),
          inputs(&inputs),
          weights(weights),
          means(means) {}

    Factors FactorsAt(const InputType& z) const {
        const Eigen::VectorXd x = choice->basis * z;
        Factors f = base;
        for (size_t k = 0; k < choice->fitted.size(); ++k) {
            const int i = choice->fitted[k];
            f[i] = base[i] + FactorScale(base[i]) * x[static_cast<int>(k)];
        }
        return f;
    }

    int operator()(const InputType& x, ValueType& r) const {
        const std::vector<double> w = WattsWith(*sandbox, *row, FactorsAt(x), *inputs);
        for (size_t u = 0; u < w.size(); ++u) {
            r[static_cast<int>(u)] = weights[u] * (means[u] - w[u]);
        }
        return 0;
    }

    PluginSandbox* sandbox;
    const DataRow* row;
    Factors base;
    const FactorChoice* choice;
    const std::vector<Inputs>* inputs;
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
        if (const int i = NonFiniteFactor(FactorsOf(row->row)); i >= 0) {
            throw std::runtime_error(fmt::format("{}:{}: {} is not a finite number", set.path,
                                                 row->line, FactorName(i)));
        }
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

namespace {

// Turns with samples, grouped by their inputs over all sessions: the misfit of a group's mean,
// weighted by the square root of its share of the turns, equals the per-turn least squares up
// to a constant.
struct Groups {
    int turns = 0;
    InputCounts inputs;
    std::vector<Inputs> keys;            // the inputs in map order
    std::vector<double> weights, means;  // in the order of `keys`
    std::vector<double> squares;         // sum of the squared measured watts per input
};

Groups GroupMeasures(const std::vector<MeteredSession>& sessions) {
    Groups g;
    std::map<Inputs, double> sums, squares;
    for (const MeteredSession& s : sessions) {
        for (size_t i = 0; i < s.session.turns.size(); ++i) {
            if (s.measures[i].samples > 0) {
                ++g.turns;
                ++g.inputs[s.session.turns[i].in];
                sums[s.session.turns[i].in] += s.measures[i].watts;
                squares[s.session.turns[i].in] += s.measures[i].watts * s.measures[i].watts;
            }
        }
    }
    if (g.turns == 0) {
        throw std::runtime_error("no wattmeter sample falls in a turn of the sessions");
    }
    g.keys = KeysOf(g.inputs);
    for (const auto& [in, n] : g.inputs) {
        g.weights.push_back(std::sqrt(static_cast<double>(n) / g.turns));
        g.means.push_back(sums[in] / n);
        g.squares.push_back(squares[in]);
    }
    return g;
}

// Fits the chosen factors; fills the fitted row and the solver's account.
void Solve(PluginSandbox& sandbox, const Groups& g, FitResult* r) {
    r->after = r->before;
    if (r->choice.rank == 0) {
        r->solver_status = "nothing to fit";
    } else {
        Problem problem(sandbox, r->row, r->before, r->choice, g.keys, g.weights, g.means);
        Eigen::NumericalDiff<Problem> numeric(problem);
        Eigen::LevenbergMarquardt<Eigen::NumericalDiff<Problem>> lm(numeric);
        lm.setMaxfev(400 * (r->choice.rank + 1));
        Eigen::VectorXd x = Eigen::VectorXd::Zero(r->choice.rank);
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

// Standard uncertainty of each fitted factor with the unseen directions held. The meter's noise
// grows with the watts, so one residual variance for all turns would misstate the factors of
// the low-power states: the covariance in the pinned coordinates is the sandwich
// (J^T J)^-1 (sum of r_t^2 J_t^T J_t) (J^T J)^-1 over the turns, scaled by N / (N - p), with J
// at the fitted row; it is carried back to the factors.
void Uncertainty(PluginSandbox& sandbox, const Groups& g, FitResult* r) {
    const FactorChoice& c = r->choice;
    const int p = c.rank;
    r->sigma.assign(c.fitted.size(), 0.0);
    if (p == 0 || g.turns <= p) {
        return;
    }
    Eigen::MatrixXd j = WattsJacobian(sandbox, r->row, r->after, c.fitted, g.keys);
    for (size_t k = 0; k < c.fitted.size(); ++k) {  // per relative change of the data set's row
        const int i = c.fitted[k];
        j.col(static_cast<int>(k)) *= FactorScale(r->before[i]) / FactorScale(r->after[i]);
    }
    const Eigen::MatrixXd jz = j * c.basis;
    const std::vector<double> fitted = WattsWith(sandbox, r->row, r->after, g.keys);
    Eigen::MatrixXd bread = Eigen::MatrixXd::Zero(p, p), meat = Eigen::MatrixXd::Zero(p, p);
    size_t u = 0;
    for (const auto& [in, n] : g.inputs) {
        const Eigen::MatrixXd outer =
            jz.row(static_cast<int>(u)).transpose() * jz.row(static_cast<int>(u));
        const double mean = g.means[u], w = fitted[u];
        // Sum over the input's turns of (measured - fitted)^2.
        const double misfit = std::max(0.0, g.squares[u] - 2 * w * mean * n + n * w * w);
        bread += n * outer;
        meat += misfit * outer;
        ++u;
    }
    const Eigen::MatrixXd inv = bread.inverse();
    const Eigen::MatrixXd cov_z = inv * meat * inv * (static_cast<double>(g.turns) / (g.turns - p));
    const Eigen::MatrixXd cov = c.basis * cov_z * c.basis.transpose();
    for (size_t k = 0; k < c.fitted.size(); ++k) {
        r->sigma[k] = FactorScale(r->before[c.fitted[k]]) *
                      std::sqrt(std::max(0.0, cov(static_cast<int>(k), static_cast<int>(k))));
    }
}

std::map<Inputs, double> WattsByInput(PluginSandbox& sandbox, const DataRow& row,
                                      const Factors& factors, const std::vector<Inputs>& keys) {
    const std::vector<double> w = WattsWith(sandbox, row, factors, keys);
    std::map<Inputs, double> out;
    for (size_t u = 0; u < keys.size(); ++u) {
        out[keys[u]] = w[u];
    }
    return out;
}

// Energy and RMS error per state of the data set's row and the fitted row, and the series for
// the plot (the sessions one after the other).
void Compare(PluginSandbox& sandbox, const std::vector<MeteredSession>& sessions, const Groups& g,
             FitResult* r) {
    const std::map<Inputs, double> before = WattsByInput(sandbox, r->row, r->before, g.keys);
    const std::map<Inputs, double> after = WattsByInput(sandbox, r->row, r->after, g.keys);
    int64_t shift = 0;
    for (const MeteredSession& s : sessions) {
        if (!r->times.empty() && !s.session.turns.empty()) {
            shift = r->times.back() + kTurnSeconds - s.session.turns.front().time;
        }
        for (size_t i = 0; i < s.session.turns.size(); ++i) {
            if (s.measures[i].samples == 0) {
                continue;
            }
            const Inputs& in = s.session.turns[i].in;
            const double m = s.measures[i].watts, b = before.at(in), a = after.at(in);
            Accumulate(r->states[in.state], m, b, a);
            Accumulate(r->all, m, b, a);
            r->times.push_back(s.session.turns[i].time + shift);
            r->measured.push_back(m);
            r->estimated_before.push_back(b);
            r->estimated_after.push_back(a);
        }
    }
    for (StateError& e : r->states) {
        FinishRms(e);
    }
    FinishRms(r->all);
}

bool Finite(const StateError& e) {
    return std::isfinite(e.measured_wh) && std::isfinite(e.before_wh) &&
           std::isfinite(e.after_wh) && std::isfinite(e.before_rms) && std::isfinite(e.after_rms) &&
           std::isfinite(ErrorPercent(e.before_wh, e.measured_wh)) &&
           std::isfinite(ErrorPercent(e.after_wh, e.measured_wh));
}

// Every number the report and the plot show: finite sums, squares and solver steps are not
// assured by finite factors and samples alone (a factor of 1e300 squares to infinity).
bool Finite(const FitResult& r) {
    auto all = [](const auto& values) {
        return std::all_of(std::begin(values), std::end(values),
                           [](double v) { return std::isfinite(v); });
    };
    for (size_t k = 0; k < r.sigma.size(); ++k) {  // the report's uncertainty in percent
        const double after = r.after[r.choice.fitted[k]];
        if (after != 0 && !std::isfinite(r.sigma[k] / std::fabs(after) * 100)) {
            return false;
        }
    }
    for (const Direction& d : r.choice.directions) {
        for (const auto& [f, percent] : d.looks_like) {
            if (!std::isfinite(percent)) {
                return false;
            }
        }
    }
    return all(r.before) && all(r.after) && all(r.sigma) && all(r.measured) &&
           all(r.estimated_before) && all(r.estimated_after) && Finite(r.all) &&
           std::all_of(r.states.begin(), r.states.end(),
                       [](const StateError& e) { return Finite(e); }) &&
           std::isfinite(r.grid.max_percent) && std::isfinite(r.grid.p95_percent);
}

}  // namespace

FitResult Fit(PluginSandbox& sandbox, const DataRow& row,
              const std::vector<MeteredSession>& sessions) {
    FitResult r;
    r.row = row;
    r.before = FactorsOf(row.row);
    const Groups groups = GroupMeasures(sessions);
    r.turns_measured = groups.turns;
    r.choice = ChooseFactors(sandbox, row, groups.keys);
    Solve(sandbox, groups, &r);
    Compare(sandbox, sessions, groups, &r);
    Uncertainty(sandbox, groups, &r);
    r.grid = CompareOnGrid(sandbox, r.after_text, row.text);
    if (!Finite(r)) {
        throw std::runtime_error(
            "the fit's watts or factors are not finite numbers: the row's factors are too large");
    }
    return r;
}

}  // namespace energyfactors
