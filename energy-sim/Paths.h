// Where energy-sim finds the plug-in and the sample data when the command line does not say.
#pragma once

#include <string>

namespace energysim {

// $ENERGY_SIM_PLUGIN, else the plug-in built with this program.
std::string DefaultPluginPath();
// $ENERGY_SIM_DATA, else the repository's data/ directory; with a trailing '/'.
std::string DefaultDataDir();

}  // namespace energysim
