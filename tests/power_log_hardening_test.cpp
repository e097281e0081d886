// The block log under hostile conditions: an append cut short, stray bytes after the records,
// and an energy_log.dat that is not a regular file. None may lose or invent a block.
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <functional>
#include <future>
#include <string>
#include <vector>

#include "PowerLogQueue.h"
#include "PowerLogTestSupport.h"
#include "TestSupport.h"

using powerlogtest::Block;
using powerlogtest::LogImage;
using powerlogtest::Record;
using testsupport::ReadBytes;
using testsupport::SimTest;
using testsupport::TempDir;

namespace {

constexpr const char kEnergy[] = "ENERGY_SERVICE";
constexpr uint32_t kT0 = 1609459200u;  // 2021-01-01 00:00:00 UTC

// Blocks 30 s apart, so that each interval below opens a block of its own.
Block BlockAt(uint32_t i) {
    return {kT0 + 30 * i, kT0 + 30 * i + 10, 0.125 * (i + 1)};
}

// Options "10 30 3600": every 10-second interval is written; blocks of 30 s.
class PowerLogHardeningTest : public SimTest {
  protected:
    void SetUp() override {
        SimTest::SetUp();
        tvsim::SetAppPath(tvsim::AppPath::kData, dir.path());
        powerlogtest::WriteOptions(dir.path(), "10 30 3600");
    }
    std::string LogPath() const { return dir.File("energy_log.dat"); }
    // A queue that has written `n` blocks, so that the file is exactly their image.
    void WriteBlocks(powermeter::PowerLogQueue& queue, uint32_t n) {
        queue.Init();
        for (uint32_t i = 0; i < n; ++i) {
            Add(queue, i);
        }
    }
    static void Add(powermeter::PowerLogQueue& queue, uint32_t i) {
        const Block b = BlockAt(i);
        queue.Add(b.start, b.power, 10);
    }
    // The report a fresh queue loads from the file.
    std::string Reloaded() {
        powermeter::PowerLogQueue queue;
        queue.Init();
        return queue.GetJson();
    }
    TempDir dir;
};

// A kill between the two writes of an append is modelled by a file-size limit that stops the
// record `room` bytes in: the log must reload as it was before that append.
TEST_F(PowerLogHardeningTest, AppendCutShortKeepsEveryBlockAlreadySaved) {
    struct Row {
        const char* name;
        uint32_t saved;
        rlim_t room;
    };
    for (const Row& row : {Row{"second block, nothing of it written", 1, 0},
                           Row{"fourth block, nothing of it written", 3, 0},
                           Row{"fourth block, half of it written", 3, 8}}) {
        SCOPED_TRACE(row.name);
        std::remove(LogPath().c_str());
        powermeter::PowerLogQueue queue;
        WriteBlocks(queue, row.saved);
        const std::string before = queue.GetJson();
        const rlim_t size = ReadBytes(LogPath()).size();
        const pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            signal(SIGXFSZ, SIG_IGN);
            struct rlimit limit;
            getrlimit(RLIMIT_FSIZE, &limit);
            limit.rlim_cur = size + row.room;
            setrlimit(RLIMIT_FSIZE, &limit);
            Add(queue, row.saved);
            _exit(Logged(DLOG_ERROR, kEnergy, "failed to wrtie data to the data file") ? 0 : 3);
        }
        int status = 0;
        ASSERT_EQ(waitpid(pid, &status, 0), pid);
        ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "no write error: " << status;
        EXPECT_EQ(Reloaded(), before);
    }
}

// Bytes past the counted records are ignored when loading, so an append must not land after
// them: record n belongs at 4 + 16(n - 1) whatever the file's length.
TEST_F(PowerLogHardeningTest, StrayTrailingBytesNeverBecomeABlock) {
    struct Row {
        const char* name;
        uint32_t saved;
        std::vector<uint8_t> stray;
    };
    const std::vector<Row> rows = {
        {"5 bytes after 3 blocks", 3, std::vector<uint8_t>(5, 0xAA)},
        {"a whole record after 1 block", 1, Record({1, 2, 3.0})},
        {"20 bytes after an empty log", 0, std::vector<uint8_t>(20, 0x55)},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        std::remove(LogPath().c_str());
        {
            powermeter::PowerLogQueue writer;
            WriteBlocks(writer, row.saved);
        }
        if (row.saved == 0) {
            testsupport::WriteBytes(LogPath(), LogImage(0, {}));
        }
        testsupport::PlantTrailing(LogPath(), row.stray);
        powermeter::PowerLogQueue queue;
        queue.Init();
        Add(queue, row.saved);  // a new block: an append
        std::vector<Block> expected;
        for (uint32_t i = 0; i <= row.saved; ++i) {
            expected.push_back(BlockAt(i));
        }
        const auto image = LogImage(expected);
        const auto bytes = ReadBytes(LogPath());
        ASSERT_GE(bytes.size(), image.size());
        EXPECT_EQ(std::vector<uint8_t>(bytes.begin(), bytes.begin() + image.size()), image);
        EXPECT_EQ(Reloaded(), queue.GetJson());
    }
}

// Runs `body` on a thread. If it is still running after 5 s it is blocked on the FIFO at
// `path`: zero bytes are fed into it until it returns, so a hang fails instead of stalling.
bool FinishesWithoutBlocking(const std::function<void()>& body, const std::string& path) {
    auto done = std::async(std::launch::async, body);
    if (done.wait_for(std::chrono::seconds(5)) == std::future_status::ready) {
        return true;
    }
    while (done.wait_for(std::chrono::milliseconds(50)) != std::future_status::ready) {
        const int fd = open(path.c_str(), O_WRONLY | O_NONBLOCK);
        if (fd >= 0) {
            const char zeros[4] = {};
            (void)!write(fd, zeros, sizeof zeros);
            close(fd);
        }
    }
    return false;
}

// Anything but a regular file takes the bad-file path: nothing is read from it, it is never
// removed, and the blocks stay in memory.
TEST_F(PowerLogHardeningTest, NonRegularDataFileIsNeitherReadNorRemoved) {
    struct Row {
        const char* name;
        std::function<int(const std::string&)> make;
        mode_t type;
    };
    const std::vector<Row> rows = {
        {"FIFO", [](const std::string& p) { return mkfifo(p.c_str(), 0644); }, S_IFIFO},
        {"empty directory", [](const std::string& p) { return mkdir(p.c_str(), 0755); }, S_IFDIR},
        {"link to a device", [](const std::string& p) { return symlink("/dev/null", p.c_str()); },
         S_IFLNK},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        ASSERT_EQ(row.make(LogPath()), 0);
        const uint64_t mark = tvsim::LogMark();
        powermeter::PowerLogQueue queue;
        std::string report;
        EXPECT_TRUE(FinishesWithoutBlocking(
            [&] {
                queue.Init();
                Add(queue, 0);
                report = queue.GetJson();
                queue.Reset();
            },
            LogPath()));
        EXPECT_TRUE(tvsim::Logged(DLOG_ERROR, kEnergy,
                                  "the data file is not opened, so try to reset", mark));
        EXPECT_TRUE(tvsim::Logged(DLOG_ERROR, kEnergy, "the data file is not opened", mark));
        EXPECT_EQ(report,
                  "{\"dailyPowerConsumption\":[{\"start\":1609459200,\"end\":1609459210,"
                  "\"deltaEnergy\":0.125,\"power\":0,\"energySaved\":0}]}");
        struct stat st;
        ASSERT_EQ(lstat(LogPath().c_str(), &st), 0) << "removed";
        EXPECT_EQ(st.st_mode & S_IFMT, row.type);
        ASSERT_EQ(std::remove(LogPath().c_str()), 0);
    }
}

}  // namespace
