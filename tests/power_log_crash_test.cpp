// Killing the process at any moment while it appends and merges blocks never leaves a log
// that loads as something it never was: a new queue loads the last completed write, the one
// under way, or starts empty after logging why. Nor does it lose a block: that reset happens
// only while the log holds no saved block yet.
#include <signal.h>
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

uint32_t TimeOf(uint32_t i) {
    return kT0 + 10 * i;
}
// Multiples of 1/8 keep every sum exact, so the expected doubles match bit for bit.
double EnergyOf(uint32_t i) {
    return 0.125 * (1 + i % 7);
}

// The block log's merge rule (blocks of 30 s), applied to the i-th interval.
void Apply(std::vector<Block>& blocks, uint32_t i) {
    const uint32_t t = TimeOf(i);
    if (!blocks.empty() && t - blocks.back().start < 30) {
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

class PowerLogCrashTest : public testsupport::SimTest {
  protected:
    void SetUp() override {
        tvsim::SetAppPath(tvsim::AppPath::kData, dir.path());
        powerlogtest::WriteOptions(dir.path(), "10 30 86400");  // every interval is written
    }
    testsupport::TempDir dir;
};

TEST_F(PowerLogCrashTest, KilledWriterLeavesLastOrInFlightWriteOrAReset) {
    const std::string log_path = dir.File("energy_log.dat");
    std::mt19937 rng(4242);
    std::vector<Block> loaded;  // what the last reload gave, and so what the next child starts from
    uint32_t next = 0;          // the next child's first interval
    int runs = 0, resets = 0, mid_stream = 0;
    const auto begin = std::chrono::steady_clock::now();
    while (runs < 500 && std::chrono::steady_clock::now() - begin < std::chrono::seconds(200)) {
        ++runs;
        tvsim::ClearLog();  // the log checks below scan every line kept
        int fds[2];
        ASSERT_EQ(pipe(fds), 0);
        const pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            // Loads the log, then adds intervals from `next` on. Each message i says that Init
            // and every interval before i are done.
            tvsim::SetLogRetention(0);
            powermeter::PowerLogQueue queue;
            queue.Init();
            for (uint32_t i = next;; ++i) {
                if (write(fds[1], &i, sizeof i) != sizeof i) {
                    _exit(2);
                }
                queue.Add(TimeOf(i), EnergyOf(i), 10);
            }
        }
        close(fds[1]);
        // Up to 8 completed writes first, so that kills land mid-stream however slow the build.
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

        // The log after the last completed write, and after the one that may have been under
        // way when the kill came.
        std::vector<Block> last = loaded;
        for (uint32_t i = next; i < done; ++i) {
            Apply(last, i);
        }
        std::vector<Block> in_flight = last;
        Apply(in_flight, done);
        mid_stream += done > next ? 1 : 0;
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
        SCOPED_TRACE("run " + std::to_string(runs));
        if (on_disk != nullptr) {
            ASSERT_FALSE(reset);
            ASSERT_EQ(printed, PrintLines(*on_disk));
            loaded = *on_disk;
        } else {
            // Anything else must be refused, never loaded.
            ASSERT_TRUE(reset) << "file loaded as something never written";
            ASSERT_TRUE(printed.empty());
            ASSERT_FALSE(testsupport::Exists(log_path));
            ASSERT_TRUE(last.empty()) << "a reset dropped saved blocks";
            loaded.clear();
            ++resets;
        }
        // Keep the file small enough that reloading stays quick.
        if (loaded.size() > 150) {
            queue.Reset();
            loaded.clear();
        }
    }
    std::printf("%d kills, %d of them mid-stream, %d resets\n", runs, mid_stream, resets);
    EXPECT_GE(runs, 500);
    EXPECT_GE(mid_stream, runs / 2) << "most kills should land while writes are going on";
}

}  // namespace
