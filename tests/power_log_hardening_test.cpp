// The block log under hostile conditions: an append cut short, stray bytes after the records,
// an energy_log.dat that is not a regular file, and a re-Init (every Start of the meter) after
// the file changed. None may lose or invent a block.
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
#include <memory>
#include <string>
#include <vector>

#include "PowerLogQueue.h"
#include "PowerLogTestSupport.h"
#include "TestSupport.h"

using powerlogtest::Block;
using powerlogtest::LogImage;
using testsupport::ReadBytes;

namespace {

constexpr const char kEnergy[] = "ENERGY_SERVICE";
constexpr uint32_t kT0 = 1609459200u;  // 2021-01-01 00:00:00 UTC

// Blocks 30 s apart, so that each interval below opens a block of its own.
Block BlockAt(uint32_t i) {
    return {kT0 + 30 * i, kT0 + 30 * i + 10, 0.125 * (i + 1)};
}

std::vector<Block> BlocksTo(uint32_t n) {
    std::vector<Block> blocks;
    for (uint32_t i = 0; i < n; ++i) {
        blocks.push_back(BlockAt(i));
    }
    return blocks;
}

void Add(powermeter::PowerLogQueue& queue, uint32_t i) {
    queue.Add(BlockAt(i).start, BlockAt(i).power, 10);
}

// Options "10 30 3600": every 10-second interval is written; blocks of 30 s. Each case starts
// with a fresh queue that has written `saved` blocks, so that the file is exactly their image.
class PowerLogHardeningTest : public testsupport::SimTest {
  protected:
    void SetUp() override {
        SimTest::SetUp();
        tvsim::SetAppPath(tvsim::AppPath::kData, dir.path());
        powerlogtest::WriteOptions(dir.path(), "10 30 3600");
    }
    void TearDown() override {
        queue.reset();
        SimTest::TearDown();
    }
    void Start(uint32_t saved) {
        std::remove(path.c_str());
        queue = std::make_unique<powermeter::PowerLogQueue>();
        queue->Init();
        for (uint32_t i = 0; i < saved; ++i) {
            Add(*queue, i);
        }
    }
    // The report a fresh queue loads from the file.
    static std::string Reloaded() {
        powermeter::PowerLogQueue fresh;
        fresh.Init();
        return fresh.GetJson();
    }
    testsupport::TempDir dir;
    const std::string path = dir.File("energy_log.dat");
    std::unique_ptr<powermeter::PowerLogQueue> queue;
};

// A kill between the two writes of an append is modelled by a file-size limit that stops the
// record `room` bytes in: the log must reload as it was before that append.
TEST_F(PowerLogHardeningTest, AppendCutShortKeepsEveryBlockAlreadySaved) {
    struct Row {
        uint32_t saved;
        rlim_t room;
    } rows[] = {{1, 0}, {3, 0}, {3, 8}};
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message() << row.saved << " saved, " << row.room << " written");
        Start(row.saved);
        const std::string before = queue->GetJson();
        const pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            signal(SIGXFSZ, SIG_IGN);
            const struct rlimit limit = {ReadBytes(path).size() + row.room, RLIM_INFINITY};
            setrlimit(RLIMIT_FSIZE, &limit);
            Add(*queue, row.saved);
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
        uint32_t saved;
        std::vector<uint8_t> stray;
    } rows[] = {{3, std::vector<uint8_t>(5, 0xAA)},
                {1, powerlogtest::Record({1, 2, 3.0})},
                {0, std::vector<uint8_t>(20, 0x55)}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.saved);
        testsupport::WriteBytes(path, LogImage(BlocksTo(row.saved)));
        testsupport::PlantTrailing(path, row.stray);
        powermeter::PowerLogQueue appender;
        appender.Init();
        Add(appender, row.saved);  // a new block: an append
        const auto image = LogImage(BlocksTo(row.saved + 1));
        const auto bytes = ReadBytes(path);
        ASSERT_GE(bytes.size(), image.size());
        EXPECT_EQ(std::vector<uint8_t>(bytes.begin(), bytes.begin() + image.size()), image);
        EXPECT_EQ(Reloaded(), appender.GetJson());
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
            (void)!write(fd, "\0\0\0\0", 4);
            close(fd);
        }
    }
    return false;
}

// Anything but a regular file takes the bad-file path: nothing is read from it, it is never
// removed, and the blocks stay in memory.
TEST_F(PowerLogHardeningTest, NonRegularDataFileIsNeitherReadNorRemoved) {
    struct Row {
        mode_t type;
        std::function<int(const char*)> make;
    } rows[] = {{S_IFIFO, [](const char* p) { return mkfifo(p, 0644); }},
                {S_IFDIR, [](const char* p) { return mkdir(p, 0755); }},
                {S_IFLNK, [](const char* p) { return symlink("/dev/null", p); }}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.type);
        ASSERT_EQ(row.make(path.c_str()), 0);
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
            path));
        EXPECT_TRUE(tvsim::Logged(DLOG_ERROR, kEnergy,
                                  "the data file is not opened, so try to reset", mark));
        EXPECT_TRUE(tvsim::Logged(DLOG_ERROR, kEnergy, "the data file is not opened", mark));
        EXPECT_EQ(report,
                  "{\"dailyPowerConsumption\":[{\"start\":1609459200,\"end\":1609459210,"
                  "\"deltaEnergy\":0.125,\"power\":0,\"energySaved\":0}]}");
        struct stat st;
        ASSERT_EQ(lstat(path.c_str(), &st), 0) << "removed";
        EXPECT_EQ(st.st_mode & S_IFMT, row.type);
        ASSERT_EQ(std::remove(path.c_str()), 0);
    }
}

// Each Init starts from energy_log.dat alone, whatever the blocks in memory were.
TEST_F(PowerLogHardeningTest, ReInitStartsFromTheFileAlone) {
    const Block other{kT0 - 100, kT0 - 90, 2.0};
    struct Row {
        std::function<void()> between;  // what happens to the file between the two Inits
        std::vector<Block> after;       // the file after re-Init and one interval at kT0 + 10
    } rows[] = {
        {[] {}, {{kT0, kT0 + 20, 0.75}}},  // kept
        {[&] { std::remove(path.c_str()); }, {{kT0 + 10, kT0 + 20, 0.25}}},
        {[&] { testsupport::WriteBytes(path, LogImage({other})); },
         {other, {kT0 + 10, kT0 + 20, 0.25}}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(&row - rows);
        Start(0);
        queue->Add(kT0, 0.5, 10);
        row.between();
        queue->Init();
        queue->Add(kT0 + 10, 0.25, 10);
        EXPECT_EQ(ReadBytes(path), LogImage(row.after));
    }
}

}  // namespace
