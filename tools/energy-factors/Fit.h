// Calibrates one row's factors from a metering session and a wattmeter log: nonlinear least
// squares (Eigen's Levenberg-Marquardt) over the plug-in's own calculator.
#pragma once

#include <array>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "DataSet.h"
#include "Grid.h"
#include "Identify.h"
#include "Meter.h"
#include "PluginSandbox.h"
#include "Session.h"

namespace energyfactors {

// The row the plug-in selects for the session's set. Throws std::runtime_error when the log
// does not name the set, the data set has no row for it or a factor of the row is not finite.
DataRow SessionRow(PluginSandbox& sandbox, const DataSet& set, const Session& session);

// Distinct inputs of the session, with how many turns had them.
using InputCounts = std::map<Inputs, int>;
InputCounts CountInputs(const std::vector<Turn>& turns);

// One session: the plug-in's log read back and the wattmeter averaged over its turns.
struct MeteredSession {
    std::string name;
    Session session;
    std::vector<TurnMeasure> measures;  // one per turn
};

struct StateError {
    int turns = 0;
    double measured_wh = 0;
    double before_wh = 0;
    double after_wh = 0;
    double before_rms = 0;  // watts, per turn
    double after_rms = 0;
};

struct FitResult {
    DataRow row;
    FactorChoice choice;
    Factors before{};
    Factors after{};
    std::string after_text;     // the fitted row in data-set format
    std::vector<double> sigma;  // standard uncertainty of each fitted factor, in its units
    int iterations = 0;
    int evaluations = 0;
    std::string solver_status;
    int turns_measured = 0;
    std::array<StateError, kStateCount> states{};
    StateError all;
    GridError grid;  // the fitted row against the data set's row
    // Per turn with samples, for the plot.
    std::vector<int64_t> times;
    std::vector<double> measured, estimated_before, estimated_after;
};

// Fits the row to all sessions at once: one residual per distinct input over all of them.
// Throws std::runtime_error when a number of the result is not finite.
FitResult Fit(PluginSandbox& sandbox, const DataRow& row,
              const std::vector<MeteredSession>& sessions);

// The report: choice, solver, per-state table, fitted row.
std::string FormatFitReport(const FitResult& r);

// Signed relative error in percent.
inline double ErrorPercent(double estimate, double measured) {
    return measured != 0 ? (estimate - measured) / measured * 100.0 : 0.0;
}

}  // namespace energyfactors
