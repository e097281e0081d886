// turn_driver: runs the real plug-in for a number of metering turns on the simulated TV in
// virtual time, for profiling (valgrind --tool=callgrind) and for watching its log.
//
//   turn_driver [turns] [--echo]
//
// Loads the plug-in with the framework host, reports the "corvane" protocol ready, lets the
// worker run `turns` turns (default 1000) of 10 virtual seconds each, then destroys the plug-in
// and prints what happened. --echo copies every log line to stderr.
#include <time.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "Registers.h"
#include "ServiceNames.h"
#include "TempDir.h"
#include "VirtualClock.h"
#include "tvsim/Simulator.h"
#include "wexfhost/FrameworkHost.h"

namespace {

constexpr int64_t kStart = 1700000000;

int64_t real_nanos() {
    return vclock::KernelNanos(CLOCK_MONOTONIC);
}

}  // namespace

int main(int argc, char** argv) {
    long turns = 1000;
    bool echo = false;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--echo") == 0) {
            echo = true;
        } else {
            turns = std::strtol(argv[i], nullptr, 10);
        }
    }
    if (turns < 1) {
        std::fprintf(stderr, "usage: turn_driver [turns >= 1] [--echo]\n");
        return 2;
    }

    const hostkit::TempDir scratch("turn-driver");
    const std::string& dir = scratch.path();
    std::ofstream(dir + "energy_factors.dat")
        << "DRIVER 1\n"
        << "1,2024,VXDRIVER55,VXDRIVER55,55,PT55DRIVE1,LED,80,240,36,44,1.5,4,1,-,9,26,2.8,10\n";

    tvsim::Reset();
    tvsim::SetLogRetention(100);
    tvsim::SetLogEcho(echo);
    tvsim::SetAppPath(tvsim::AppPath::kData, dir);
    tvsim::SetAppPath(tvsim::AppPath::kSharedResource, dir);
    tvsim::SetModelName(std::string("VXDRIVER55"));
    tvsim::SetPanelType(std::string("PT55DRIVE1"));
    tvsim::SetMasterVolume(20);
    tvsim::SetSpeakerSelection(0);
    tvsim::SetVconf(powermeter::Registers::kVconfKey,
                    std::string("{\"ANA\":\"700\",\"DutySum\":\"2000\",\"APL\":\"40\","
                                "\"RESOLUTION\":\"2160\",\"TEMP\":\"41\"}"));
    vclock::Enable(kStart);
    vclock::SetLimitSeconds(kStart + (turns - 1) * 10);

    std::string error;
    auto plugin = wexfhost::Plugin::Load(EC_PLUGIN_PATH, &error);
    if (!plugin) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return 1;
    }
    const int64_t real_start = real_nanos();
    plugin->Create();
    wexfhost::FireProtocolStatus(powermeter::names::kService, powermeter::names::kProtocol,
                                 WEXF_PROTOCOL_STATUS_CONNECTED);
    if (!vclock::WaitUntilParked(600000)) {
        std::fprintf(stderr, "the worker never parked\n");
        return 1;
    }
    const int64_t virtual_end = vclock::NowSeconds();
    plugin->Destroy();
    const double real_seconds = static_cast<double>(real_nanos() - real_start) / 1e9;
    plugin.reset();
    vclock::Disable();

    std::printf("turns %ld, virtual seconds %lld, notifications %zu, real seconds %.3f\n", turns,
                static_cast<long long>(virtual_end - kStart + 10), wexfhost::NotificationCount(),
                real_seconds);
    if (wexfhost::NotificationCount() > 0) {
        std::printf("first report %s\n", wexfhost::Notifications().front().json.c_str());
    }
    return 0;
}
