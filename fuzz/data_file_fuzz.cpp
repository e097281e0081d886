// Arbitrary bytes as energy_log.dat: loading, writing over it, reporting and printing must
// neither crash nor let an exception out of the block log.
#include <cstdio>
#include <string>

#include "FuzzTarget.h"
#include "PowerLogQueue.h"
#include "TempDir.h"
#include "tvsim/Simulator.h"

FUZZ_TARGET(EnergyLog) {
#if defined(EC_LIBFUZZER)
    // Millions of runs: keep no log lines so memory stays flat.
    static const bool quiet = (tvsim::SetLogRetention(0), true);
    (void)quiet;
#endif
    static const hostkit::TempDir dir("ec-fuzz-energylog");  // removed at exit
    tvsim::SetAppPath(tvsim::AppPath::kData, dir.path());
    if (FILE* f = std::fopen(dir.File("energy_log.dat").c_str(), "wb")) {
        if (size > 0) {  // an empty input comes with a null pointer, which fwrite must not get
            std::fwrite(data, 1, size, f);
        }
        std::fclose(f);
    }
    powermeter::PowerLogQueue queue;
    queue.Init();
    // Default options: 900 s write intervals, 1 h blocks. A merge, then a new block, over
    // whatever was loaded (time stamps may lie before or after the loaded blocks).
    const unsigned long t0 = 1609459200ul;
    queue.Add(t0, 0.5, 900);
    queue.Add(t0 + 900, 0.25, 900);
    queue.Add(t0 + 3600, 1.0, 900);
    queue.IsUploadRequired();
    queue.GetJson();
    queue.Print();
    // Whatever is on disk now must load again.
    powermeter::PowerLogQueue reloaded;
    reloaded.Init();
    reloaded.GetJson();
    queue.Reset();
    return 0;
}
