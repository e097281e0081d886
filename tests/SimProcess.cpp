#include "SimProcess.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>

#include "TestSupport.h"

extern char** environ;

namespace simtest {

Result RunSim(const SimCall& call) {
    testsupport::TempDir dir;
    std::vector<std::string> argv_s = {call.program.empty() ? EC_ENERGY_SIM : call.program};
    argv_s.insert(argv_s.end(), call.args.begin(), call.args.end());
    std::vector<char*> argv;
    for (auto& a : argv_s) {
        argv.push_back(a.data());
    }
    argv.push_back(nullptr);
    std::vector<std::string> env_s;
    for (char** e = environ; *e != nullptr; ++e) {
        if (call.tmpdir.empty() || std::string(*e).rfind("TMPDIR=", 0) != 0) {
            env_s.emplace_back(*e);
        }
    }
    if (!call.tmpdir.empty()) {
        env_s.push_back("TMPDIR=" + call.tmpdir);
    }
    std::vector<char*> envp;
    for (auto& e : env_s) {
        envp.push_back(e.data());
    }
    envp.push_back(nullptr);

    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    std::string out_path = call.stdout_path.empty() ? dir.File("out") : call.stdout_path;
    std::string err_path = dir.File("err");
    posix_spawn_file_actions_addopen(&fa, 1, out_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&fa, 2, err_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    pid_t pid;
    Result r;
    const int rc = posix_spawn(&pid, argv[0], &fa, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&fa);
    if (rc != 0) {
        ADD_FAILURE() << "cannot start " << argv[0];
        return r;
    }
    if (call.signal != 0) {
        usleep(static_cast<useconds_t>(call.signal_after_ms) * 1000);
        kill(pid, call.signal);
    }
    int wstatus = 0;
    waitpid(pid, &wstatus, 0);
    r.status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : 128 + WTERMSIG(wstatus);
    if (call.stdout_path.empty()) {
        r.out = testsupport::ReadText(out_path);
    }
    r.err = testsupport::ReadText(err_path);
    return r;
}

std::string Data(const std::string& rel) {
    return std::string(EC_SOURCE_DIR) + "/data/" + rel;
}

int Lines(const std::string& s) {
    return static_cast<int>(std::count(s.begin(), s.end(), '\n'));
}

}  // namespace simtest
