// Wattmeter samples: a CSV of time and watts (time as seconds since the epoch, fractions
// allowed, or YYYY-MM-DDTHH:MM:SS[.fff]Z), at any sampling period, averaged over each turn.
#pragma once

#include <string>
#include <vector>

#include "Session.h"

namespace energyfactors {

struct Sample {
    double time = 0;  // seconds since the epoch
    double watts = 0;
};

// The largest wattmeter file read: 256 MiB, about ten weeks of samples every second.
constexpr uint64_t kMaxMeterBytes = 256ull * 1024 * 1024;

// The largest magnitude of a sample's watts read: a TV's wattmeter never shows more, and sums of
// absurd samples would overflow to infinity.
constexpr double kMaxMeterWatts = 1e6;

// Lines starting with '#', blank lines and a header line are skipped. Throws
// std::runtime_error "FILE:LINE: reason" for a line that is neither, for watts that are not a
// number within kMaxMeterWatts, or when the file cannot be read.
// The file must be a regular file of at most kMaxMeterBytes.
std::vector<Sample> ReadMeter(const std::string& path);
std::string FormatMeter(const std::vector<Sample>& samples);

struct TurnMeasure {
    int samples = 0;
    double watts = 0;  // mean of the samples in [time, time + 10 s)
};

// One entry per turn, aligned by time.
std::vector<TurnMeasure> AverageOverTurns(std::vector<Sample> samples,
                                          const std::vector<Turn>& turns);

}  // namespace energyfactors
