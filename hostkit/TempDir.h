// A fresh temporary directory, removed with everything in it on destruction. Shared by the
// host programs, tools, benchmarks, fuzz targets and tests (not by the plug-in).
#pragma once

#include <string>

namespace hostkit {

class TempDir {
  public:
    // Creates "<$TMPDIR or /tmp>/<prefix>-XXXXXX". Throws std::runtime_error when it cannot.
    explicit TempDir(const std::string& prefix = "ec-test");
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    // The directory with a trailing '/', as the platform reports application paths.
    const std::string& path() const { return path_; }
    std::string File(const std::string& name) const { return path_ + name; }
    // Removes the directory now (the destructor then does nothing). Safe to call twice.
    void Remove();

  private:
    std::string path_;
};

}  // namespace hostkit
