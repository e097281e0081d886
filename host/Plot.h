// An SVG chart of a run: power per turn and cumulative energy over simulated time, with the
// scenario's changes and the reports marked.
#pragma once

#include <string>
#include <vector>

#include "Recorder.h"
#include "Scenario.h"

namespace energysim {

struct PlotInput {
    std::string title;
    uint64_t start = 0;     // simulated epoch seconds of the run's start
    uint64_t duration = 0;  // seconds
    std::vector<Turn> turns;
    std::vector<Report> reports;
    std::vector<ScenarioEntry> changes;
};

std::string RenderSvg(const PlotInput& in);

}  // namespace energysim
