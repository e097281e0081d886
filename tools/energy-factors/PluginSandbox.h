// The plug-in's loader and calculator on the simulated TV, pointed at a data set in a private
// temporary directory. Everything the tools compute goes through here, so they apply the
// plug-in's own rules. One sandbox at a time: it owns the simulated TV's global state and
// resets it when it goes away.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Inputs.h"
#include "PowerFactors.h"
#include "TempDir.h"
#include "tvsim/Simulator.h"

namespace energyfactors {

struct Selection {
    bool selected = false;
    powermeter::PowerFactors row;
    std::vector<tvsim::LogLine> log;  // what the loader logged, in order
};

class PluginSandbox {
  public:
    PluginSandbox();
    ~PluginSandbox();
    PluginSandbox(const PluginSandbox&) = delete;
    PluginSandbox& operator=(const PluginSandbox&) = delete;

    // Makes `text` the set's energy_factors.dat.
    void WriteDataSet(const std::string& text);
    // Runs the plug-in's loader for a set of this SW model and panel type.
    Selection Select(const std::string& sw_model, const std::string& panel_type);

    // Parses one row with the plug-in's parser; `log` gets the parser's messages.
    static bool ParseRow(const std::string& line, powermeter::PowerFactors* out,
                         std::vector<std::string>* log);
    // The six text columns of a parsed row, as the plug-in prints them.
    static std::vector<std::string> TextColumns(const powermeter::PowerFactors& row);

  private:
    hostkit::TempDir dir_;
};

// The plug-in's calculator initialised with one row, asked for the watts of given inputs.
class RowModel {
  public:
    // Makes `row_text` the only row of the sandbox's data set and initialises the calculator
    // with it. Throws std::runtime_error when the plug-in does not read or select it, or when a
    // factor is not a finite number.
    RowModel(PluginSandbox& sandbox, const std::string& row_text);
    ~RowModel();
    double Watts(const Inputs& in);

  private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace energyfactors
