// Which row the plug-in's loader selects for a set, and why.
#pragma once

#include <string>
#include <vector>

#include "DataSet.h"
#include "PluginSandbox.h"

namespace energyfactors {

struct Candidate {
    const DataRow* row = nullptr;
    bool equal = false;    // equal panel type
    bool similar = false;  // similar panel type (characters 0-1, 4-5 and 7-8)
};

struct Explanation {
    std::string sw_model;
    std::string panel_type;
    std::string version;                     // the data set's first line
    std::vector<Candidate> candidates;       // the rows of the SW model, in file order
    const DataRow* winner = nullptr;         // nullptr: no row selected
    std::vector<std::string> loader_errors;  // the loader's ERROR messages
};

Explanation Explain(PluginSandbox& sandbox, const DataSet& set, const std::string& sw_model,
                    const std::string& panel_type);
std::string FormatExplanation(const Explanation& e);

}  // namespace energyfactors
