// Arbitrary text as the value of the picture-engine configuration key: Refresh, then every
// register's IsAvailable and Value.
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <string>

#include "FuzzTarget.h"
#include "Registers.h"
#include "tvsim/Simulator.h"

FUZZ_TARGET(Registers) {
#if defined(EC_LIBFUZZER)
    // Every Refresh logs; keep the simulated log sink from growing for the whole run.
    static const bool quiet = (tvsim::SetLogRetention(0), true);
    (void)quiet;
#endif
    tvsim::SetVconf("memory/ave/powerconsumption",
                    std::string(reinterpret_cast<const char*>(data), size));
    powermeter::Registers registers;
    try {
        registers.Refresh();
    } catch (const std::exception&) {
        // JSON that is not an object, or a member without a text form: the metering turn
        // reports these; the registers read so far stay.
    }
    for (int i = powermeter::ANA; i <= powermeter::TEMP; ++i) {
        const auto r = static_cast<powermeter::_SYSTEMREGISTER>(i);
        // An available register has its value; any other throws.
        const bool available = registers.IsAvailable(r);
        try {
            if (registers.Value(r) == powermeter::Registers::kNotAvailable || !available) {
                std::abort();
            }
        } catch (const std::runtime_error&) {
            if (available) {
                std::abort();
            }
        }
    }
    return 0;
}
