// Runs a host-kit program (energy-sim unless told otherwise) as a separate process for its
// tests, through the shell (and the emulator of a cross build): arguments, where stdout goes, a
// private $TMPDIR, and optionally a signal sent while it runs.
#pragma once

#include <sys/wait.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "TestEmulator.h"
#include "TestSupport.h"

namespace simtest {

struct SimCall {
    std::vector<std::string> args;
    std::string program = EC_ENERGY_SIM;
    std::string stdout_path;  // "" = a file read back into Result::out
    std::string stderr_path;  // "" = a file read back into Result::err
    // A shell command that reads the program's stdout through a pipe (e.g. "head -c 1"),
    // instead of stdout_path; not with `signal`.
    std::string stdout_reader;
    std::string tmpdir;  // "" = inherited $TMPDIR
    int signal = 0;      // sent once the program runs (needs tmpdir)
};

struct Result {
    int status = -1;  // exit status, or 128 + the signal that killed it
    std::string out, err;
};

inline std::string ShellQuote(const std::string& s) {
    std::string q = "'";
    for (char c : s) {
        q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return q + "'";
}

inline Result RunSim(const SimCall& call) {
    testsupport::TempDir dir;
    const std::string out = call.stdout_path.empty() ? dir.File("out") : call.stdout_path;
    std::string cmd = call.tmpdir.empty() ? "" : "TMPDIR=" + ShellQuote(call.tmpdir) + " ";
    for (const std::string& e : testsupport::kEmulator) {
        cmd += ShellQuote(e) + " ";
    }
    cmd += ShellQuote(call.program);
    for (const std::string& a : call.args) {
        cmd += " " + ShellQuote(a);
    }
    const std::string err = call.stderr_path.empty() ? dir.File("err") : call.stderr_path;
    cmd += " 2>" + ShellQuote(err);
    if (!call.stdout_reader.empty()) {
        // The pipeline's status is the reader's: the program's own goes through a file.
        cmd = "{ " + cmd + "; echo $? >" + ShellQuote(dir.File("status")) + "; } | " +
              call.stdout_reader;
    } else {
        cmd += " >" + ShellQuote(out);
    }
    if (call.signal != 0) {
        // The program makes its temporary directory after it has set up its signal handlers:
        // signal it half a second after that directory appears, whatever the machine's load;
        // `wait` gives the program's own status.
        const std::string made = "[ -n \"$(ls -A " + ShellQuote(call.tmpdir) + ")\" ]";
        cmd += " & pid=$!; while kill -0 $pid 2>/dev/null && ! " + made +
               "; do sleep 0.05; done; sleep 0.5; kill -" + std::to_string(call.signal) +
               " $pid; wait $pid";
    }
    Result r;
    r.status = WEXITSTATUS(std::system(cmd.c_str()));
    if (!call.stdout_reader.empty()) {
        r.status = std::atoi(testsupport::ReadText(dir.File("status")).c_str());
    }
    r.out =
        call.stdout_path.empty() && call.stdout_reader.empty() ? testsupport::ReadText(out) : "";
    r.err = call.stderr_path.empty() ? testsupport::ReadText(err) : "";
    return r;
}
inline Result RunSim(const std::vector<std::string>& args,
                     const std::string& program = EC_ENERGY_SIM) {
    SimCall call;
    call.args = args;
    call.program = program;
    return RunSim(call);
}

// A file of the repository's data/ directory.
inline std::string Data(const std::string& rel) {
    return std::string(EC_SOURCE_DIR) + "/data/" + rel;
}
inline bool Has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

}  // namespace simtest
