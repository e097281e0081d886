#include "Identify.h"

#include <Eigen/QR>
#include <Eigen/SVD>
#include <algorithm>
#include <cmath>
#include <map>
#include <set>

#include "Grid.h"

namespace energyfactors {

namespace {

using powermeter::PowerFactors;

// Relative step of the numerical derivatives. The watts are at most quadratic in each
// backlight factor, so central differences are exact up to rounding.
constexpr double kStep = 1e-4;
// A singular value below this share of the largest is a direction the session does not see.
constexpr double kRankTolerance = 1e-7;

// The order in which factors enter the independent set that describes what the sessions cannot
// see: the components first (each acts alone in some power state), then the backlight's current
// factors before its voltage factors, ALPHA last (it only ever adds to VF_MIN).
constexpr int kPreference[] = {PowerFactors::kBluCount + powermeter::CELL,
                               PowerFactors::kBluCount + powermeter::MAIN,
                               PowerFactors::kBluCount + powermeter::MAIN_LPM,
                               PowerFactors::kBluCount + powermeter::SPEAKER,
                               powermeter::COMPENSATE_CONSTANT,
                               powermeter::OD_MIN,
                               powermeter::OD_MAX,
                               powermeter::VF_MAX,
                               powermeter::VF_MIN,
                               powermeter::ALPHA};

int Rank(const Eigen::MatrixXd& j, double largest) {
    if (j.cols() == 0) {
        return 0;
    }
    const Eigen::VectorXd s = Eigen::JacobiSVD<Eigen::MatrixXd>(j).singularValues();
    return static_cast<int>((s.array() > kRankTolerance * largest).count());
}

Eigen::MatrixXd Columns(const Eigen::MatrixXd& j, const std::vector<int>& which) {
    Eigen::MatrixXd out(j.rows(), static_cast<int>(which.size()));
    for (size_t c = 0; c < which.size(); ++c) {
        out.col(static_cast<int>(c)) = j.col(which[c]);
    }
    return out;
}

// Factors (held because no input reaches them) that change the watts of a grid state.
std::vector<int> UsedIn(PluginSandbox& sandbox, const DataRow& row, const std::vector<int>& held,
                        powermeter::_PowerStatusForEnergy state) {
    std::vector<Inputs> grid;
    for (const Inputs& in : ComparisonGrid()) {
        if (in.state == state) {
            grid.push_back(in);
        }
    }
    const Factors base = FactorsOf(row.row);
    const std::vector<double> w0 = WattsWith(sandbox, row, base, grid);
    std::vector<int> used;
    for (int f : held) {
        Factors moved = base;
        moved[f] += 0.1 * FactorScale(base[f]);
        if (WattsWith(sandbox, row, moved, grid) != w0) {
            used.push_back(f);
        }
    }
    return used;
}

}  // namespace

double FactorScale(double base) {
    return base != 0 ? std::fabs(base) : 1.0;
}

std::vector<double> WattsWith(PluginSandbox& sandbox, const DataRow& row, const Factors& factors,
                              const std::vector<Inputs>& inputs) {
    RowModel model(sandbox, FormatRow(row, factors));
    std::vector<double> w;
    w.reserve(inputs.size());
    for (const Inputs& in : inputs) {
        w.push_back(model.Watts(in));
    }
    return w;
}

Eigen::MatrixXd WattsJacobian(PluginSandbox& sandbox, const DataRow& row, const Factors& at,
                              const std::vector<int>& columns, const std::vector<Inputs>& inputs) {
    Eigen::MatrixXd j(static_cast<int>(inputs.size()), static_cast<int>(columns.size()));
    for (size_t c = 0; c < columns.size(); ++c) {
        Factors up = at, down = at;
        up[columns[c]] += kStep * FactorScale(at[columns[c]]);
        down[columns[c]] -= kStep * FactorScale(at[columns[c]]);
        const std::vector<double> wu = WattsWith(sandbox, row, up, inputs);
        const std::vector<double> wd = WattsWith(sandbox, row, down, inputs);
        for (size_t i = 0; i < inputs.size(); ++i) {
            j(static_cast<int>(i), static_cast<int>(c)) = (wu[i] - wd[i]) / (2 * kStep);
        }
    }
    return j;
}

namespace {

// Describes the directions the sessions cannot see: each reached factor outside a largest
// independent set, as the combination of that set it looks like.
void FindDirections(const Eigen::MatrixXd& j, const std::vector<int>& independent,
                    FactorChoice* c) {
    const Eigen::ColPivHouseholderQR<Eigen::MatrixXd> qr(Columns(j, independent));
    for (size_t k = 0; k < c->fitted.size(); ++k) {
        if (std::count(independent.begin(), independent.end(), static_cast<int>(k)) > 0) {
            continue;
        }
        const Eigen::VectorXd x = qr.solve(j.col(static_cast<int>(k)));
        Direction d{c->fitted[k], {}};
        for (size_t m = 0; m < independent.size(); ++m) {
            if (std::fabs(x[static_cast<int>(m)]) > 1e-3) {
                d.looks_like.emplace_back(c->fitted[independent[m]], x[static_cast<int>(m)]);
            }
        }
        c->directions.push_back(d);
    }
    // A factor is pinned on its own when no direction the sessions cannot see moves it.
    const Eigen::JacobiSVD<Eigen::MatrixXd> svd(j, Eigen::ComputeFullV);
    for (size_t k = 0; k < c->fitted.size(); ++k) {
        const double unseen =
            svd.matrixV().row(static_cast<int>(k)).tail(j.cols() - c->rank).norm();
        if (unseen < 1e-6) {
            c->alone.push_back(c->fitted[k]);
        }
    }
    c->basis = svd.matrixV().leftCols(c->rank);
}

// The states of the grid that no input visits, and the unreached factors held for that.
void FindUnvisited(PluginSandbox& sandbox, const DataRow& row, const std::vector<Inputs>& inputs,
                   const std::vector<int>& unreached, FactorChoice* c) {
    std::set<powermeter::_PowerStatusForEnergy> visited;
    for (const Inputs& in : inputs) {
        visited.insert(in.state);
    }
    std::map<int, std::string> why;
    for (const auto s : {powermeter::NORMAL, powermeter::LPM, powermeter::BACKGROUND_STANDBY,
                         powermeter::ALWAYS_ON_SCREEN, powermeter::PICTURE_OFF}) {
        if (visited.count(s) == 0) {
            c->unvisited.emplace_back(s, UsedIn(sandbox, row, unreached, s));
            for (int f : c->unvisited.back().second) {
                why[f] += (why[f].empty() ? "" : ", ") + std::string(StateName(s));
            }
        }
    }
    for (int f : unreached) {
        c->held.emplace_back(f, why.count(f) > 0 ? why[f] + " never visited"
                                                 : "no turn of the sessions depends on it");
    }
}

}  // namespace

FactorChoice ChooseFactors(PluginSandbox& sandbox, const DataRow& row,
                           const std::vector<Inputs>& inputs) {
    FactorChoice c;
    const Factors base = FactorsOf(row.row);
    std::vector<int> candidates, unreached;
    for (int f : kPreference) {
        if (base[f] == PowerFactors::kMissing) {
            c.held.emplace_back(f, "\"-\"");
        } else {
            candidates.push_back(f);
        }
    }
    const Eigen::MatrixXd all = WattsJacobian(sandbox, row, base, candidates, inputs);
    const double largest =
        all.size() > 0 ? Eigen::JacobiSVD<Eigen::MatrixXd>(all).singularValues()[0] : 0.0;
    std::vector<int> reached;  // columns of `all`
    for (size_t k = 0; k < candidates.size(); ++k) {
        if (all.col(static_cast<int>(k)).norm() <= kRankTolerance * largest) {
            unreached.push_back(candidates[k]);
        } else {
            reached.push_back(static_cast<int>(k));
            c.fitted.push_back(candidates[k]);
        }
    }
    const Eigen::MatrixXd j = Columns(all, reached);
    std::vector<int> independent;  // columns of j
    for (int k = 0; k < static_cast<int>(c.fitted.size()); ++k) {
        independent.push_back(k);
        if (Rank(Columns(j, independent), largest) < static_cast<int>(independent.size())) {
            independent.pop_back();
        }
    }
    c.rank = static_cast<int>(independent.size());
    FindUnvisited(sandbox, row, inputs, unreached, &c);
    if (!c.fitted.empty()) {
        FindDirections(j, independent, &c);
    }
    c.held.emplace_back(powermeter::BLOCK, "structural");
    c.held.emplace_back(powermeter::TYPE, "structural");
    return c;
}

}  // namespace energyfactors
