// Where energy-sim finds the plug-in and the sample data when the command line does not say.
#pragma once

#include <string>

namespace energysim {

// $ENERGY_SIM_PLUGIN, else the plug-in in the plug-in directory beside this program.
std::string DefaultPluginPath();
// The daily block report build of the plug-in, beside the default one.
std::string BlocksPluginPath();
// $ENERGY_SIM_DATA, else the data directory beside this program; with a trailing '/'.
std::string DefaultDataDir();

}  // namespace energysim
