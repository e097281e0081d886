// Watts per power state of every row of a data set at stated inputs, each row selected through
// the plug-in's loader and computed by its calculator.
#pragma once

#include <string>

#include "DataSet.h"
#include "Inputs.h"
#include "PluginSandbox.h"

namespace energyfactors {

// A Markdown table; `picture` gives ANA, DutySum, resolution and volume (its state is unused).
std::string FactorTable(PluginSandbox& sandbox, const DataSet& set, const Inputs& picture);

}  // namespace energyfactors
