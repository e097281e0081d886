// Runs the real plug-in library on the simulated TV, with its clock under our control.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>

#include "Profile.h"
#include "Scenario.h"

namespace energysim {

struct RunOptions {
    std::string plugin_path;
    // The plug-in build: the running total, or the daily block report kept in a data file.
    enum class Queue { kTotal, kBlocks };
    Queue queue = Queue::kTotal;
    DeviceProfile profile;
    std::optional<Scenario> scenario;
    uint64_t duration = 24 * 3600;  // simulated seconds
    double speed = 0;               // 0 = as fast as possible, 1 = real time
    int64_t start = 0;              // simulated epoch seconds at the start
    std::string log_file;           // "" = stderr
    int log_level = 6;              // lowest dlog priority shown; 99 = none
    std::string plot_file;
    bool progress = false;  // a progress line on stderr
    // Set (to the signal number) when the run should end after the current turn.
    const std::atomic<int>* interrupt = nullptr;
};

// Returns the process exit code (0, or 128 + the signal that interrupted the run); writes
// notifications to `out` and the summary to `err`. Throws SimError for setup errors
// (unloadable plug-in, missing directories, unwritable outputs) and write errors; the plug-in
// is destroyed and the temporary data directory removed on every path.
int Run(const RunOptions& options, std::ostream& out, std::ostream& err);

}  // namespace energysim
