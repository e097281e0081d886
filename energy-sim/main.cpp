// energy-sim: runs the real energy-consumption plug-in on a simulated TV.
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <iostream>

#include "Error.h"
#include "Options.h"
#include "Paths.h"
#include "Profile.h"
#include "Runner.h"
#include "Scenario.h"

namespace {

std::atomic<int> g_signal{0};

// The first signal asks the run to end after the current turn; a second one ends the program.
extern "C" void OnSignal(int sig) {
    if (g_signal.exchange(sig) != 0) {
        _exit(128 + sig);
    }
}

void CatchSignals() {
    struct sigaction sa {};
    sa.sa_handler = OnSignal;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
}

int Main(int argc, char** argv) {
    using energysim::CommandLine;
    CommandLine cl = energysim::ParseCommandLine(argc, argv);
    if (cl.command == CommandLine::Command::kHelp) {
        std::cout << cl.help;
        return 0;
    }
    energysim::RunOptions& o = cl.run;
    o.profile = cl.profile_path.empty() ? energysim::DefaultProfile()
                                        : energysim::LoadProfile(cl.profile_path);
    if (o.profile.shared_dir.empty()) {
        o.profile.shared_dir = energysim::DefaultDataDir();
    }
    if (cl.command == CommandLine::Command::kCheck) {
        return energysim::Check(o.profile, energysim::DefaultDataDir(), std::cout);
    }
    if (!cl.scenario_path.empty()) {
        o.scenario = energysim::LoadScenario(cl.scenario_path);
    }
    o.progress = o.progress && isatty(STDERR_FILENO) != 0;
    o.interrupt = &g_signal;
    CatchSignals();
    return energysim::Run(o, std::cout, std::cerr);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return Main(argc, argv);
    } catch (const energysim::SimError& e) {
        std::cerr << "energy-sim: " << e.what() << "\n";
        return 2;
    }
}
