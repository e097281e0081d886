// A ground truth for testing the fit: wattmeter samples of a session as a set whose real row
// differs from the data set's would draw them, with Gaussian noise.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "DataSet.h"
#include "Meter.h"
#include "PluginSandbox.h"
#include "Session.h"

namespace energyfactors {

// The row with each factor that the session's watts depend on multiplied by a factor
// drawn uniformly from [1 - skew, 1 + skew] (skew 0.2 for up to 20%).
std::string SkewedRow(PluginSandbox& sandbox, const DataRow& row, const Session& session,
                      double skew, uint32_t seed);

struct TruthOptions {
    double noise_percent = 2.0;  // standard deviation of the multiplicative noise
    double period = 1.0;         // seconds between samples
    uint32_t seed = 1;
};

// Samples from the first turn to the end of the last, at the period; a sample outside every
// turn (a gap in the log) is left out. Throws std::runtime_error for a row the plug-in does not
// read, or whose watts with the noise exceed kMaxMeterWatts or are not a number.
std::vector<Sample> TrueSamples(PluginSandbox& sandbox, const std::string& true_row,
                                const Session& session, const TruthOptions& options);

}  // namespace energyfactors
