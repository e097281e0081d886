// What a session can and cannot tell about a row: the Jacobian of the watts of the session's
// distinct inputs with respect to the row's factors, its rank, the factors a fit can move
// together without ambiguity, and the combinations it cannot see.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include <Eigen/Core>

#include "DataSet.h"
#include "Inputs.h"
#include "PluginSandbox.h"

namespace energyfactors {

// The unit in which a factor moves: its own size (1 for a factor of 0).
double FactorScale(double base);

// Watts of each input with `row`'s factors replaced by `factors`.
std::vector<double> WattsWith(PluginSandbox& sandbox, const DataRow& row, const Factors& factors,
                              const std::vector<Inputs>& inputs);

// d watts(input i) / d x_j, where factor `columns[j]` is at + FactorScale(at) * x_j: the change
// of the watts per relative change of the factor. Central differences.
Eigen::MatrixXd WattsJacobian(PluginSandbox& sandbox, const DataRow& row, const Factors& at,
                              const std::vector<int>& columns, const std::vector<Inputs>& inputs);

// A direction the sessions cannot see: moving `factor` by +1% changes no watts of theirs when
// the factors of `looks_like` (factor, percent) move the other way.
struct Direction {
    int factor = 0;
    std::vector<std::pair<int, double>> looks_like;
};

struct FactorChoice {
    // Factors the sessions' watts depend on, in the order of preference below. The fit moves
    // them only within `basis`: the combinations the sessions pin.
    std::vector<int> fitted;
    int rank = 0;                       // independent combinations of them the sessions pin
    Eigen::MatrixXd basis;              // fitted.size() x rank, orthonormal, in relative changes
    std::vector<int> alone;             // fitted factors pinned on their own
    std::vector<Direction> directions;  // the rest of the fitted factors, as what they look like
    std::vector<std::pair<int, std::string>> held;  // factor, reason
    // Power states of the grid the sessions never visit, with the factors held for that.
    std::vector<std::pair<powermeter::_PowerStatusForEnergy, std::vector<int>>> unvisited;
};

// Holds the block count and backlight type (structural), "-" factors and those no input of the
// sessions reaches. The directions the sessions cannot see (the null space of the Jacobian at
// the data set's row) stay at the data set's row; they are described by taking factors in the
// order CELL, MAIN, MAIN_LPM, SPEAKER, COMPENSATE_CONSTANT, OD_MIN, OD_MAX, VF_MAX, VF_MIN,
// ALPHA into a largest independent set and writing each other factor as what it looks like.
FactorChoice ChooseFactors(PluginSandbox& sandbox, const DataRow& row,
                           const std::vector<Inputs>& inputs);

}  // namespace energyfactors
