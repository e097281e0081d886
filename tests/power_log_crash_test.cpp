// Killing the process at any moment while it appends, merges and rewrites blocks never
// leaves a log that loads as something it never was, nor one with fewer blocks than the last
// completed write: a new queue loads the last completed write or the one under way. Full
// rewrites are forced by a full disk on every other write, which makes the next one find
// the file's count two blocks behind.
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <random>

#include "PowerLogQueue.h"
#include "PowerLogTestSupport.h"
#include "TestSupport.h"

using powerlogtest::Block;
using testsupport::Bytes;

namespace {

constexpr uint32_t kT0 = 1609459200u;

// A writer starts from at most kMaxLoaded blocks and adds at most kIntervalsPerWriter, so the
// log never holds 256 blocks: record 256 would straddle the file's first 4 KiB page, and a
// kill can land inside one write between two pages (the kernel stops a write at a page when a
// fatal signal is pending), tearing that record. With the set's own options the log is sent
// and cleared at 24 hours, about 25 blocks and 404 bytes; only the test options' long logs
// reach a page boundary.
constexpr size_t kMaxLoaded = 150;
constexpr uint32_t kIntervalsPerWriter = 100;

uint32_t TimeOf(uint32_t i) {
    return kT0 + 10 * i;
}
// Multiples of 1/8 keep every sum exact, so the expected doubles match bit for bit.
double EnergyOf(uint32_t i) {
    return 0.125 * (1 + i % 7);
}

// The block log's merge rule (blocks of `block` seconds), applied to the i-th interval.
void Apply(std::vector<Block>& blocks, uint32_t i, uint32_t block) {
    const uint32_t t = TimeOf(i);
    if (!blocks.empty() && t - blocks.back().start < block) {
        blocks.back().end = t + 10;
        blocks.back().power += EnergyOf(i);
    } else {
        blocks.push_back({t, t + 10, EnergyOf(i)});
    }
}

// True when `file` holds the log of `blocks`, perhaps followed by bytes a reader ignores.
bool Holds(const Bytes& file, const std::vector<Block>& blocks) {
    const Bytes image = powerlogtest::LogImage(blocks);
    return file.size() >= image.size() && std::equal(image.begin(), image.end(), file.begin());
}

std::vector<std::string> PrintLines(const std::vector<Block>& blocks) {
    std::vector<std::string> lines;
    for (const Block& b : blocks) {
        char line[200];
        std::snprintf(line, sizeof line,
                      "[Energy] start time: %u, end time: %u, duration: %u sec, power: %f", b.start,
                      b.end, b.end - b.start, b.power);
        lines.push_back(line);
    }
    return lines;
}

// Where the log that `path` holds ends: its count's records, not bytes past them (a record a
// kill cut off from its count). 0 when the file is absent.
uint64_t LogEnd(const std::string& path) {
    if (!testsupport::Exists(path)) {
        return 0;
    }
    const Bytes file = testsupport::ReadBytes(path);
    if (file.size() < 4) {
        return file.size();
    }
    const uint64_t count = file[0] | file[1] << 8 | file[2] << 16 | uint64_t{file[3]} << 24;
    return std::min<uint64_t>(file.size(), 4 + 16 * count);
}

// Caps the size of the files this process writes at the end of the log in `path`, as a full
// disk would, or lifts the cap. A cap at the file's size would let the next append overwrite
// a stray record in place and succeed where the model expects a failure.
void DiskFull(const std::string& path, bool full) {
    struct rlimit lim;
    getrlimit(RLIMIT_FSIZE, &lim);
    lim.rlim_cur = full ? static_cast<rlim_t>(LogEnd(path)) : lim.rlim_max;
    setrlimit(RLIMIT_FSIZE, &lim);
}

class PowerLogCrashTest : public testsupport::SimTest {
  protected:
    void SetUp() override { tvsim::SetAppPath(tvsim::AppPath::kData, dir.path()); }
    testsupport::TempDir dir;
};

// Each row: the options (every interval is written), the block size they give, and whether
// every even-numbered write fails on a full disk.
TEST_F(PowerLogCrashTest, KilledWriterLeavesLastOrInFlightWrite) {
    const struct {
        const char* options;
        uint32_t block;
        bool full_disk;
    } rows[] = {
        {"10 30 86400", 30, false},  // appends and merges in place
        {"10 10 86400", 10, true},   // a block per write: failed appends, then full rewrites
    };
    const std::string log_path = dir.File("energy_log.dat");
    for (const auto& row : rows) {
        SCOPED_TRACE(row.options);
        powerlogtest::WriteOptions(dir.path(), row.options);
        std::remove(log_path.c_str());
        const auto fails = [&](uint32_t i) { return row.full_disk && i % 2 == 0; };
        std::mt19937 rng(4242);
        std::vector<Block> loaded;  // what the last reload gave: where the next child starts
        uint32_t next = 0;          // the next child's first interval
        int runs = 0, mid_stream = 0, rewrites = 0, lost = 0;
        size_t blocks_lost = 0;  // of the last completed writes, not loaded
        const auto begin = std::chrono::steady_clock::now();
        while (runs < 400 && std::chrono::steady_clock::now() - begin < std::chrono::seconds(100)) {
            ++runs;
            tvsim::ClearLog();  // the log checks below scan every line kept
            int fds[2];
            ASSERT_EQ(pipe(fds), 0);
            const pid_t pid = fork();
            ASSERT_GE(pid, 0);
            if (pid == 0) {
                // Loads the log, then adds up to kIntervalsPerWriter intervals from `next` on
                // and waits for the kill. Each message i says that Init and every interval
                // before i are done.
                tvsim::SetLogRetention(0);
                signal(SIGXFSZ, SIG_IGN);  // a write past the cap fails instead
                powermeter::PowerLogQueue queue;
                queue.Init();
                for (uint32_t i = next; i < next + kIntervalsPerWriter; ++i) {
                    if (write(fds[1], &i, sizeof i) != sizeof i) {
                        _exit(2);
                    }
                    DiskFull(log_path, fails(i));
                    queue.Add(TimeOf(i), EnergyOf(i), 10);
                }
                for (;;) {
                    pause();
                }
            }
            close(fds[1]);
            // Up to 8 completed writes first, so that kills land mid-stream however slow the
            // build.
            uint32_t done = 0;
            for (uint32_t n = 1 + rng() % 8; n > 0; --n) {
                ASSERT_EQ(read(fds[0], &done, sizeof done), static_cast<ssize_t>(sizeof done));
            }
            usleep(rng() % 1000);
            kill(pid, SIGKILL);
            int status = 0;
            ASSERT_EQ(waitpid(pid, &status, 0), pid);
            ASSERT_TRUE(WIFSIGNALED(status)) << "writer ended by itself: " << status;
            while (read(fds[0], &done, sizeof done) == static_cast<ssize_t>(sizeof done)) {
            }
            close(fds[0]);

            // The log after the last completed write, and after the one that may have been
            // under way when the kill came (a failing write changes nothing).
            std::vector<Block> memory = loaded, last = loaded;
            for (uint32_t i = next; i < done; ++i) {
                Apply(memory, i, row.block);
                if (!fails(i)) {
                    last = memory;
                }
            }
            std::vector<Block> in_flight = last;
            if (!fails(done)) {
                in_flight = memory;
                Apply(in_flight, done, row.block);
            }
            mid_stream += done > next ? 1 : 0;
            rewrites += row.full_disk && !fails(done) && done > next ? 1 : 0;
            next = done + 1;

            const Bytes file = testsupport::Exists(log_path) ? testsupport::ReadBytes(log_path)
                                                             : powerlogtest::LogImage({});
            const std::vector<Block>* on_disk = Holds(file, in_flight) ? &in_flight
                                                : Holds(file, last)    ? &last
                                                                       : nullptr;
            const uint64_t mark = tvsim::LogMark();
            powermeter::PowerLogQueue queue;
            queue.Init();
            std::vector<std::string> printed;
            bool reset = false;  // logged as "<why>, so try to reset"
            for (const auto& line : tvsim::LinesSince(mark)) {
                if (line.Message().rfind("[Energy] start time: ", 0) == 0) {
                    printed.push_back(line.Message());
                }
                reset = reset || line.Message().find(", so try to reset") != std::string::npos;
            }
            if (on_disk != nullptr && !reset && printed == PrintLines(*on_disk)) {
                loaded = *on_disk;
            } else {
                ++lost;  // refused, or loaded as something never written: start over
                blocks_lost += last.size() - std::min(last.size(), printed.size());
                queue.Reset();
                loaded.clear();
            }
            // Keep the log within its first 4 KiB page (see kIntervalsPerWriter), which also
            // keeps reloading quick.
            if (loaded.size() > kMaxLoaded) {
                queue.Reset();
                loaded.clear();
            }
        }
        std::printf(
            "%s: %d kills, %d of them mid-stream, %d after a full rewrite began, %d lost "
            "(%zu blocks)\n",
            row.options, runs, mid_stream, rewrites, lost, blocks_lost);
        EXPECT_EQ(lost, 0) << "kills left a log other than the last or the in-flight write";
        EXPECT_GE(runs, 400);
        EXPECT_GE(mid_stream, runs / 2) << "most kills should land while writes are going on";
    }
}

}  // namespace
