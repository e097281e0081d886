// An SVG chart of a fit: measured power per turn and the power the plug-in estimates with the
// data set's row (before) and with the fitted row (after), and the energy errors per state.
#pragma once

#include <string>

#include "Fit.h"

namespace energyfactors {

std::string RenderFitSvg(const FitResult& r, const std::string& title);

}  // namespace energyfactors
