#include "Paths.h"

#include <cstdlib>

#include "InstallPaths.h"

namespace energysim {

std::string DefaultPluginPath() {
    if (const char* env = std::getenv("ENERGY_SIM_PLUGIN")) {
        return env;
    }
    return hostkit::PluginDir() + "/" EC_PLUGIN_FILE;
}

std::string BlocksPluginPath() {
    const std::string beside = DefaultPluginPath();
    const size_t slash = beside.rfind('/');
    return (slash == std::string::npos ? std::string(".") : beside.substr(0, slash)) +
           "/" EC_BLOCKS_PLUGIN_FILE;
}

std::string DefaultDataDir() {
    if (const char* env = std::getenv("ENERGY_SIM_DATA")) {
        std::string dir = env;
        return dir.empty() || dir.back() == '/' ? dir : dir + "/";
    }
    return hostkit::DataDir();
}

}  // namespace energysim
