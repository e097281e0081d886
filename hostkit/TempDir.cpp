#include "TempDir.h"

#include <stdlib.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <vector>

namespace hostkit {

TempDir::TempDir(const std::string& prefix) {
    const char* base = std::getenv("TMPDIR");
    std::string pattern =
        std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/" + prefix + "-XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (mkdtemp(buffer.data()) == nullptr) {
        throw std::runtime_error("cannot create a temporary directory " + pattern + ": " +
                                 std::strerror(errno));
    }
    path_ = std::string(buffer.data()) + "/";
}

TempDir::~TempDir() {
    Remove();
}

void TempDir::Remove() {
    if (!path_.empty()) {
        std::error_code ec;
        std::filesystem::remove_all(path_, ec);
        path_.clear();
    }
}

}  // namespace hostkit
