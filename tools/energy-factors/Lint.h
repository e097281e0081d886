// Checks a data set for rows that the plug-in skips, can never select, or meters wrongly.
#pragma once

#include <string>
#include <vector>

#include "DataSet.h"
#include "PluginSandbox.h"

namespace energyfactors {

enum class Severity { kWarning, kError };

struct Defect {
    int line = 0;
    Severity severity = Severity::kError;
    std::string reason;
};

// Every defect of the data set, in line order.
std::vector<Defect> Lint(PluginSandbox& sandbox, const DataSet& set);

// "FILE:LINE: error: reason" lines, or a JSON document.
std::string FormatDefectsText(const std::string& path, const std::vector<Defect>& defects);
std::string FormatDefectsJson(const std::string& path, const std::vector<Defect>& defects);

}  // namespace energyfactors
