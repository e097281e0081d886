// Runs a host-kit program (energy-sim unless told otherwise) as a separate process for its
// tests: arguments, where stdout goes, a private $TMPDIR, and optionally a signal sent while it
// runs.
#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <string>
#include <vector>

#include "TestSupport.h"

extern char** environ;

namespace simtest {

struct SimCall {
    std::vector<std::string> args;
    std::string program = EC_ENERGY_SIM;
    std::string stdout_path;  // "" = a file read back into Result::out
    std::string tmpdir;       // "" = inherited $TMPDIR
    int signal = 0;           // sent once the program has run for 1.5 s
};

struct Result {
    int status = -1;  // exit status, or 128 + the signal that killed it
    std::string out, err;
};

inline Result RunSim(const SimCall& call) {
    testsupport::TempDir dir;
    std::vector<std::string> argv_s = {call.program};
    if (!call.tmpdir.empty()) {  // env execs the program in place: the pid stays the same
        argv_s = {"/usr/bin/env", "TMPDIR=" + call.tmpdir, call.program};
    }
    argv_s.insert(argv_s.end(), call.args.begin(), call.args.end());
    std::vector<char*> argv;
    for (auto& a : argv_s) {
        argv.push_back(a.data());
    }
    argv.push_back(nullptr);
    const std::string out = call.stdout_path.empty() ? dir.File("out") : call.stdout_path;
    const std::string err = dir.File("err");
    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    posix_spawn_file_actions_addopen(&fa, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&fa, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    pid_t pid;
    Result r;
    const int rc = posix_spawn(&pid, argv[0], &fa, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&fa);
    if (rc != 0) {
        ADD_FAILURE() << "cannot start " << argv[0];
        return r;
    }
    if (call.signal != 0) {
        usleep(1500 * 1000);
        kill(pid, call.signal);
    }
    int wstatus = 0;
    waitpid(pid, &wstatus, 0);
    r.status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : 128 + WTERMSIG(wstatus);
    r.out = call.stdout_path.empty() ? testsupport::ReadText(out) : "";
    r.err = testsupport::ReadText(err);
    return r;
}
inline Result RunSim(const std::vector<std::string>& args) {
    SimCall call;
    call.args = args;
    return RunSim(call);
}

// A file of the repository's data/ directory.
inline std::string Data(const std::string& rel) {
    return std::string(EC_SOURCE_DIR) + "/data/" + rel;
}
inline int Lines(const std::string& s) {
    return static_cast<int>(std::count(s.begin(), s.end(), '\n'));
}
inline bool Has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

}  // namespace simtest
