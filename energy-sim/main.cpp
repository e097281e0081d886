// energy-sim: runs the real energy-consumption plug-in on a simulated TV.
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <exception>
#include <iostream>
#include <string>

#include "Check.h"
#include "Error.h"
#include "Options.h"
#include "Paths.h"
#include "Profile.h"
#include "Runner.h"
#include "Scenario.h"

namespace {

std::atomic<int> g_signal{0};

// SIGINT, SIGTERM and SIGHUP ask the run to end after the current turn; a second one ends the
// program at once. SIGXFSZ comes from a write that passed the file-size limit (the write itself
// fails with EFBIG): it ends the run the same way, and since every later write to a regular
// file raises it again, a repeat is not taken as a second request.
extern "C" void OnSignal(int sig) {
    int none = 0;
    if (!g_signal.compare_exchange_strong(none, sig) && sig != SIGXFSZ) {
        _exit(128 + sig);
    }
}

void CatchSignals() {
    struct sigaction sa {};
    sa.sa_handler = OnSignal;
    sigemptyset(&sa.sa_mask);
    for (int sig : {SIGINT, SIGTERM, SIGHUP, SIGXFSZ}) {
        sigaction(sig, &sa, nullptr);
    }
    // A reader that went away (energy-sim | head) makes the write fail with EPIPE, which ends
    // the run as any other write error does.
    std::signal(SIGPIPE, SIG_IGN);
}

// An exception's text as one line.
std::string OneLine(std::string text) {
    for (char& c : text) {
        if (c == '\n' || c == '\r') {
            c = ' ';
        }
    }
    return text;
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
        energysim::CheckClockJumps(*o.scenario, o.start, o.duration);
    }
    o.progress = o.progress && isatty(STDERR_FILENO) != 0;
    o.interrupt = &g_signal;
    CatchSignals();
    return energysim::Run(o, std::cout, std::cerr);
}

}  // namespace

// Every error, ours or a library's, ends in one line and exit status 2; the run's objects are
// destroyed on the way out, so the plug-in is stopped and the temporary data removed.
int main(int argc, char** argv) {
    try {
        return Main(argc, argv);
    } catch (const std::exception& e) {
        std::cerr << "energy-sim: " << OneLine(e.what()) << "\n";
    } catch (...) {
        std::cerr << "energy-sim: unexpected error\n";
    }
    return 2;
}
