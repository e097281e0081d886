// Arbitrary bytes as energy_log.dat: loading, writing over it, reporting and printing must
// neither crash nor let an exception out of the block log.
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "FuzzTarget.h"
#include "PowerLogQueue.h"
#include "TempDir.h"
#include "tvsim/Simulator.h"

namespace {

// Created on first use, removed at exit.
const std::string& DataDir() {
    static const hostkit::TempDir dir("ec-fuzz-energylog");
    return dir.path();
}

}  // namespace

FUZZ_TARGET(EnergyLog) {
    static const bool once = [] {
#if defined(EC_LIBFUZZER)
        // Millions of runs: keep no log lines so memory stays flat.
        tvsim::SetLogRetention(0);
#endif
        DataDir();
        return true;
    }();
    (void)once;
    tvsim::SetAppPath(tvsim::AppPath::kData, DataDir());
    const std::string path = DataDir() + "energy_log.dat";
    if (FILE* f = std::fopen(path.c_str(), "wb")) {
        if (size > 0) {
            std::fwrite(data, 1, size, f);
        }
        std::fclose(f);
    }

    powermeter::PowerLogQueue queue;
    powermeter::IPowerLogQueue& log = queue;
    log.Init();
    // Default options: 900 s write intervals, 1 h blocks. A merge, then a new block, over
    // whatever was loaded (time stamps may lie before or after the loaded blocks).
    const unsigned long t0 = 1609459200ul;
    log.Add(t0, 0.5, 900);
    log.Add(t0 + 900, 0.25, 900);
    log.Add(t0 + 3600, 1.0, 900);
    log.IsUploadRequired();
    log.GetJson();
    log.Print();
    // Whatever is on disk now must load again.
    powermeter::PowerLogQueue reloaded;
    reloaded.Init();
    reloaded.GetJson();
    log.Reset();
    return 0;
}
