// Where the plug-in's log goes: stderr or a file, from a minimum priority, one line each.
#pragma once

#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string>

#include "Text.h"
#include "tvsim/Simulator.h"

namespace energysim {

class LogOutput {
  public:
    // Opens (truncates) `file`, or writes to stderr when it is empty. Throws SimError when the
    // file cannot be opened.
    LogOutput(const std::string& file, int min_priority);
    ~LogOutput();
    LogOutput(const LogOutput&) = delete;
    LogOutput& operator=(const LogOutput&) = delete;

    void Write(const tvsim::LogLine& line, int64_t now);
    // Flushes the file; "" when everything was written, else why not.
    std::string Finish();
    // The first write error so far, or "".
    std::string Error() const;

  private:
    int min_priority_;
    std::string path_;
    FILE* file_ = nullptr;
    mutable std::mutex mutex_;
    std::string error_;
};

using hostkit::Iso;

}  // namespace energysim
