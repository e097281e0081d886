#include "InstallPaths.h"

#include <unistd.h>

#include <climits>

namespace energysim {

std::string ExecutableDir() {
    char buf[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", buf, sizeof buf);
    if (n <= 0 || static_cast<size_t>(n) >= sizeof buf) {
        return "";
    }
    const std::string path(buf, static_cast<size_t>(n));
    return path.substr(0, path.rfind('/'));
}

// EC_PLUGIN_DIR_FROM_BIN, EC_PLUGIN_FILE and EC_DATA_DIR_FROM_BIN are the install layout's
// relative paths, set by the build.
std::string DefaultPluginPath() {
    return ExecutableDir() + "/" EC_PLUGIN_DIR_FROM_BIN "/" EC_PLUGIN_FILE;
}

std::string DefaultDataDir() {
    return ExecutableDir() + "/" EC_DATA_DIR_FROM_BIN "/";
}

}  // namespace energysim
