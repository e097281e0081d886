// Where the host kit's programs find the plug-in modules and the sample data when nothing on
// the command line or in the environment names them: relative to the running executable, so
// that an installed tree works wherever it is moved. The build tree mirrors the installed
// layout (a link to each built plug-in, and the data directory linked to data/).
#pragma once

#include <string>

namespace hostkit {

// The directory of the running executable (from /proc/self/exe), or "" when unknown.
std::string ExecutableDir();

// The plug-in directory, as placed relative to the running program; no trailing '/'.
std::string PluginDir();

// The directory of the sample data set, device profiles and scenarios; ends in '/'.
std::string DataDir();

}  // namespace hostkit
