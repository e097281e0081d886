// Killing the process at any moment while it appends and merges blocks never leaves a log
// that loads as something it never was: a new queue loads the last completed write, the one
// before it, or starts empty after logging why.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <optional>
#include <random>

#include "PowerLogQueue.h"
#include "PowerLogTestSupport.h"
#include "TestSupport.h"

using powerlogtest::Block;
using testsupport::SimTest;
using testsupport::TempDir;

namespace {

constexpr const char kEnergy[] = "ENERGY_SERVICE";
constexpr uint32_t kT0 = 1609459200u;
constexpr uint32_t kReady = 0xFFFFFFFFu;
// Options "10 30 86400": every interval is written; three intervals per block.
constexpr size_t kMaxItems = 86400 / 30 + 1;

uint32_t TimeOf(uint32_t i) {
    return kT0 + 10 * i;
}
// Multiples of 1/8 keep every sum exact, so the expected doubles match bit for bit.
double EnergyOf(uint32_t i) {
    return 0.125 * (1 + i % 7);
}

// The block log's merge rule, applied to the i-th interval.
void Apply(std::vector<Block>& blocks, uint32_t i) {
    const uint32_t t = TimeOf(i);
    if (!blocks.empty() && t - blocks.back().start < 30) {
        blocks.back().end = t + 10;
        blocks.back().power += EnergyOf(i);
    } else {
        blocks.push_back({t, t + 10, EnergyOf(i)});
    }
}

// What a correct reader can take from the file: nullopt when it is unusable.
std::optional<std::vector<Block>> Decode(const std::vector<uint8_t>& bytes) {
    auto u32 = [&](size_t at) {
        return static_cast<uint32_t>(bytes[at]) | static_cast<uint32_t>(bytes[at + 1]) << 8 |
               static_cast<uint32_t>(bytes[at + 2]) << 16 |
               static_cast<uint32_t>(bytes[at + 3]) << 24;
    };
    if (bytes.size() < 4) {
        return std::nullopt;
    }
    const uint32_t count = u32(0);
    if (count > kMaxItems || bytes.size() < 4 + 16 * static_cast<size_t>(count)) {
        return std::nullopt;
    }
    std::vector<Block> blocks;
    for (uint32_t i = 0; i < count; ++i) {
        const size_t at = 4 + 16 * i;
        uint64_t bits = u32(at + 8) | static_cast<uint64_t>(u32(at + 12)) << 32;
        double power;
        std::memcpy(&power, &bits, sizeof power);
        blocks.push_back({u32(at), u32(at + 4), power});
    }
    return blocks;
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

// Child: load the log, then add intervals from `first` on, reporting each completed write.
[[noreturn]] void RunWriter(int fd, uint32_t first) {
    tvsim::SetLogRetention(0);
    powermeter::PowerLogQueue queue;
    queue.Init();
    uint32_t message = kReady;
    if (write(fd, &message, sizeof message) != sizeof message) {
        _exit(2);
    }
    for (uint32_t i = first; i < first + 1000000; ++i) {
        queue.Add(TimeOf(i), EnergyOf(i), 10);
        if (write(fd, &i, sizeof i) != sizeof i) {
            _exit(2);
        }
    }
    _exit(0);
}

class PowerLogCrashTest : public SimTest {
  protected:
    void SetUp() override {
        SimTest::SetUp();
        tvsim::SetAppPath(tvsim::AppPath::kData, dir.path());
        powerlogtest::WriteOptions(dir.path(), "10 30 86400");
    }
    TempDir dir;
};

TEST_F(PowerLogCrashTest, KilledWriterLeavesLastOrPreviousWriteOrAReset) {
    const std::string log_path = dir.File("energy_log.dat");
    std::mt19937 rng(4242);
    std::vector<Block> loaded;  // what the last reload gave, and so what the next child starts from
    uint32_t next = 0;
    int runs = 0, as_last = 0, as_previous = 0, resets = 0, mid_stream = 0;
    const auto begin = std::chrono::steady_clock::now();
    // At least 60 kills however slow the machine, up to 150 while time allows.
    while (runs < 60 ||
           (runs < 150 && std::chrono::steady_clock::now() - begin < std::chrono::seconds(10))) {
        ++runs;
        int fds[2];
        ASSERT_EQ(pipe(fds), 0);
        const pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            close(fds[0]);
            RunWriter(fds[1], next);
        }
        close(fds[1]);
        uint32_t message = 0;
        ASSERT_EQ(read(fds[0], &message, sizeof message), static_cast<ssize_t>(sizeof message));
        ASSERT_EQ(message, kReady);
        std::optional<uint32_t> last_done;
        // Mostly once writes are under way, so that a loaded machine still kills mid-stream.
        if (rng() % 4 != 0) {
            ASSERT_EQ(read(fds[0], &message, sizeof message), static_cast<ssize_t>(sizeof message));
            last_done = message;
        }
        usleep(rng() % 2000);
        kill(pid, SIGKILL);
        int status = 0;
        ASSERT_EQ(waitpid(pid, &status, 0), pid);
        ASSERT_TRUE(WIFSIGNALED(status)) << "writer ended by itself: " << status;
        while (read(fds[0], &message, sizeof message) == static_cast<ssize_t>(sizeof message)) {
            last_done = message;
        }
        close(fds[0]);

        // The log after the last reported write, and after the write that may have been under
        // way when the kill came.
        std::vector<Block> last = loaded;
        uint32_t in_flight = next;
        if (last_done) {
            for (uint32_t i = next; i <= *last_done; ++i) {
                Apply(last, i);
            }
            in_flight = *last_done + 1;
        }
        std::vector<Block> after_in_flight = last;
        Apply(after_in_flight, in_flight);

        std::optional<std::vector<Block>> on_disk;
        if (testsupport::Exists(log_path)) {
            on_disk = Decode(testsupport::ReadBytes(log_path));
        } else {
            on_disk = std::vector<Block>();  // no file yet: an empty log
        }
        const bool known = on_disk && (*on_disk == last || *on_disk == after_in_flight);

        const uint64_t mark = tvsim::LogMark();
        powermeter::PowerLogQueue queue;
        queue.Init();
        std::vector<std::string> printed;
        for (const auto& line : tvsim::LinesSince(mark)) {
            if (line.Message().rfind("[Energy] start time: ", 0) == 0) {
                printed.push_back(line.Message());
            }
        }
        const bool reset =
            tvsim::CountLogged(DLOG_ERROR, kEnergy,
                               "failed to read data from the data file, so try to reset", mark) +
                tvsim::CountLogged(DLOG_ERROR, kEnergy,
                                   "Invalid number of Items in the file, so try to reset", mark) >
            0;
        SCOPED_TRACE("run " + std::to_string(runs));
        if (known) {
            ASSERT_FALSE(reset);
            ASSERT_EQ(printed, PrintLines(*on_disk));
            loaded = *on_disk;
            ++(*on_disk == after_in_flight && !(last == after_in_flight) ? as_last : as_previous);
        } else {
            // Anything else must be refused, never loaded.
            ASSERT_TRUE(reset) << "file loaded as something never written";
            ASSERT_TRUE(printed.empty());
            ASSERT_FALSE(testsupport::Exists(log_path));
            loaded.clear();
            ++resets;
        }
        if (last_done) {
            ++mid_stream;
        }
        next = in_flight + 1;
        // Keep the file small enough that reloading stays quick.
        if (loaded.size() > 150) {
            queue.Reset();
            loaded.clear();
        }
    }
    std::printf("%d kills: %d loaded the in-flight write, %d the one before, %d reset\n", runs,
                as_last, as_previous, resets);
    EXPECT_GE(mid_stream, runs / 2) << "most kills should land while writes are going on";
}

}  // namespace
