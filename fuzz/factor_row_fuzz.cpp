// Arbitrary text as one row of energy_factors.dat: Parse (and the loader's Screen, which must
// agree with it), Print, and the similar-panel-type comparison against a fixed 9-character
// panel type.
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>

#include "FuzzTarget.h"
#include "PowerFactors.h"
#include "tvsim/Simulator.h"

FUZZ_TARGET(FactorRow) {
#if defined(EC_LIBFUZZER)
    // Every Parse logs; keep the simulated log sink from growing for the whole run.
    static const bool quiet = (tvsim::SetLogRetention(0), true);
    (void)quiet;
#endif
    const std::string line(reinterpret_cast<const char*>(data), size);
    powermeter::PowerFactors factors;
    const bool parsed = factors.Parse(line);
    // The loader's check without copying must agree with Parse on every row.
    std::string_view sw_model;
    if (powermeter::PowerFactors::Screen(line, sw_model) != parsed ||
        (parsed && !factors.IsSameSWModel(std::string(sw_model)))) {
        std::abort();
    }
    factors.Print();
    factors.PrintInfo();
    try {
        factors.IsSimilarPanelType("AB12CD3EF");
    } catch (const std::out_of_range&) {
        // Only a failed parse can leave a panel type short enough to throw.
        if (parsed) {
            std::abort();
        }
    }
    return 0;
}
