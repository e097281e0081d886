// Runs a host-kit program (energy-sim unless told otherwise) as a separate process for its
// tests: arguments, where stdout goes, a private $TMPDIR, and optionally a signal sent while it
// runs.
#pragma once

#include <string>
#include <vector>

namespace simtest {

struct SimCall {
    std::vector<std::string> args;
    std::string program;      // "" = energy-sim
    std::string stdout_path;  // "" = a file read back into Result::out
    std::string tmpdir;       // "" = inherited $TMPDIR
    int signal = 0;           // sent once the program has run for signal_after_ms
    int signal_after_ms = 0;
};

struct Result {
    int status = -1;  // exit status, or 128 + the signal that killed it
    std::string out;
    std::string err;
};

Result RunSim(const SimCall& call);
inline Result RunSim(const std::vector<std::string>& args) {
    SimCall call;
    call.args = args;
    return RunSim(call);
}

// A file of the repository's data/ directory.
std::string Data(const std::string& rel);
int Lines(const std::string& s);

}  // namespace simtest
