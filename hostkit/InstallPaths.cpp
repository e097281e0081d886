#include "InstallPaths.h"

#include <unistd.h>

#include <climits>

namespace hostkit {

std::string ExecutableDir() {
    char buf[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", buf, sizeof buf);
    if (n <= 0 || static_cast<size_t>(n) >= sizeof buf) {
        return "";
    }
    const std::string path(buf, static_cast<size_t>(n));
    return path.substr(0, path.rfind('/'));
}

// EC_PLUGIN_DIR_FROM_BIN and EC_DATA_DIR_FROM_BIN are the install layout's paths relative to
// the program directory, set by the build.
std::string PluginDir() {
    return ExecutableDir() + "/" EC_PLUGIN_DIR_FROM_BIN;
}

std::string DataDir() {
    return ExecutableDir() + "/" EC_DATA_DIR_FROM_BIN "/";
}

}  // namespace hostkit
