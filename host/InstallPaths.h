// Where energy-sim finds its plug-in and its sample data when no option or environment
// variable names them: relative to the running executable, so that an installed tree works
// wherever it is moved. The build tree mirrors the installed layout.
#pragma once

#include <string>

namespace energysim {

// The directory of the running executable (from /proc/self/exe), or "" when unknown.
std::string ExecutableDir();

// The plug-in module in the plug-in directory, as placed relative to this program.
std::string DefaultPluginPath();

// The directory of the sample data set, device profiles and scenarios; ends in "/".
std::string DefaultDataDir();

}  // namespace energysim
