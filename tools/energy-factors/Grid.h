// A row's watts over a fixed grid of inputs, compared with another row's: what a new row changes
// where no session looked.
#pragma once

#include <string>
#include <vector>

#include "Inputs.h"
#include "PluginSandbox.h"

namespace energyfactors {

// ANA 0-1023 in six steps, DutySum 0-1023 in five, 1080 and 2160 lines, volume 0, 50 and 100,
// in each of NORMAL, LPM, BACKGROUND_STANDBY, ALWAYS_ON_SCREEN and PICTURE_OFF: 900 inputs.
std::vector<Inputs> ComparisonGrid();

struct GridError {
    int points = 0;
    double max_percent = 0;  // largest |watts - reference| / reference
    double p95_percent = 0;  // 95th percentile of the same
    Inputs worst;
};

// How far `row_text`'s watts are from `reference_text`'s over the grid. A point where the
// reference draws 0 W counts 0% when the row does too, else 100%.
GridError CompareOnGrid(PluginSandbox& sandbox, const std::string& row_text,
                        const std::string& reference_text);

// "NORMAL ANA 1023 DutySum 767 2160 lines volume 50"
std::string DescribeInputs(const Inputs& in);

}  // namespace energyfactors
