#include "Paths.h"

#include <cstdlib>

namespace energysim {

std::string DefaultPluginPath() {
    if (const char* env = std::getenv("ENERGY_SIM_PLUGIN")) {
        return env;
    }
    return EC_DEFAULT_PLUGIN;
}

std::string DefaultDataDir() {
    if (const char* env = std::getenv("ENERGY_SIM_DATA")) {
        std::string dir = env;
        return dir.empty() || dir.back() == '/' ? dir : dir + "/";
    }
    return EC_DATA_DIR;
}

}  // namespace energysim
