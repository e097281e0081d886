// energy_log.dat: exact bytes of every kind of write, reloading, and recovery from bad files
// and failing storage.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <random>

#include "DataFile.h"
#include "PowerLogQueue.h"
#include "PowerLogTestSupport.h"
#include "TestSupport.h"

using powerlogtest::Block;
using powerlogtest::LogImage;
using powerlogtest::Record;
using powerlogtest::WriteOptions;
using testsupport::Exists;
using testsupport::ReadBytes;
using testsupport::SimTest;
using testsupport::TempDir;
using testsupport::WriteBytes;

namespace {

constexpr const char kEnergy[] = "ENERGY_SERVICE";
constexpr uint32_t kT0 = 1609459200u;  // 2021-01-01 00:00:00 UTC

// Options: every 10-second interval closes a write interval; blocks of 30 s; max_items 121.
class PowerLogFileTest : public SimTest {
  protected:
    void SetUp() override {
        SimTest::SetUp();
        UseDataDir(dir.path());
    }
    void UseDataDir(const std::string& path) {
        data_dir = path;
        tvsim::SetAppPath(tvsim::AppPath::kData, path);
        WriteOptions(dir.path(), "10 30 3600");
    }
    std::string LogPath() const { return data_dir + "energy_log.dat"; }
    // One closed write interval [t, t + 10).
    static void Interval(powermeter::IPowerLogQueue& q, uint32_t t, double wh) { q.Add(t, wh, 10); }

    TempDir dir;
    std::string data_dir;
};

std::vector<uint8_t> Concat(std::vector<uint8_t> a, const std::vector<uint8_t>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// ---- bytes on disk ----

TEST_F(PowerLogFileTest, FirstWriteCreatesCountAndOneRecord) {
    powermeter::PowerLogQueue queue;
    queue.Init();
    Interval(queue, kT0, 0.5);
    const auto bytes = ReadBytes(LogPath());
    ASSERT_EQ(bytes.size(), 20u);
    // Little-endian count 1, start, end, then the IEEE double 0.5.
    EXPECT_EQ(bytes,
              (std::vector<uint8_t>{0x01, 0x00, 0x00, 0x00, 0x00, 0x66, 0xEE, 0x5F, 0x0A, 0x66,
                                    0xEE, 0x5F, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xE0, 0x3F}));
}

TEST_F(PowerLogFileTest, MergeRewritesOnlyTheLastRecord) {
    powermeter::PowerLogQueue queue;
    queue.Init();
    Interval(queue, kT0, 0.5);
    Interval(queue, kT0 + 30, 0.25);  // second block
    // Sentinels where nothing may be written: record 0 and bytes past the records.
    const Block sentinel{0xDEADBEEF, 0xCAFEF00D, -1234.5};
    auto image = Concat(LogImage(2, {sentinel, {kT0 + 30, kT0 + 40, 0.25}}), {0xA5, 0x5A, 0xA5});
    WriteBytes(LogPath(), image);

    Interval(queue, kT0 + 40, 0.25);  // merges into the second block
    EXPECT_EQ(ReadBytes(LogPath()),
              Concat(LogImage(2, {sentinel, {kT0 + 30, kT0 + 50, 0.5}}), {0xA5, 0x5A, 0xA5}));
}

TEST_F(PowerLogFileTest, NewBlockRewritesTheCountAndAppendsOneRecord) {
    powermeter::PowerLogQueue queue;
    queue.Init();
    Interval(queue, kT0, 0.5);
    const Block sentinel{0x11111111, 0x22222222, 99.0};
    WriteBytes(LogPath(), LogImage({sentinel}));

    Interval(queue, kT0 + 30, 1.25);
    EXPECT_EQ(ReadBytes(LogPath()), LogImage({sentinel, {kT0 + 30, kT0 + 40, 1.25}}));
    Interval(queue, kT0 + 60, 2.0);
    EXPECT_EQ(ReadBytes(LogPath()),
              LogImage({sentinel, {kT0 + 30, kT0 + 40, 1.25}, {kT0 + 60, kT0 + 70, 2.0}}));
}

TEST_F(PowerLogFileTest, CountThatFitsNeitherUpdateMakesAFullRewrite) {
    // In memory there are two blocks before the write and two (merge) or three after it.
    const std::vector<Block> two = {{kT0, kT0 + 10, 0.5}, {kT0 + 30, kT0 + 40, 0.25}};
    for (int32_t stored : {3, 4, 0, -1, 1000, INT32_MIN}) {
        for (bool merge : {true, false}) {
            if (stored == 3 && !merge) {
                continue;  // three blocks, count 3: the in-place update of the last record
            }
            SCOPED_TRACE("stored count " + std::to_string(stored) + (merge ? ", merge" : ", new"));
            std::remove(LogPath().c_str());
            powermeter::PowerLogQueue queue;
            queue.Init();
            Interval(queue, kT0, 0.5);
            Interval(queue, kT0 + 30, 0.25);
            // Stale records and trailing bytes must all be replaced.
            WriteBytes(LogPath(),
                       Concat(LogImage(stored, {{1, 2, 3.0}, {4, 5, 6.0}, {7, 8, 9.0}}), {0xEE}));
            std::vector<Block> expected = two;
            if (merge) {
                Interval(queue, kT0 + 40, 0.25);
                expected[1] = {kT0 + 30, kT0 + 50, 0.5};
            } else {
                Interval(queue, kT0 + 60, 0.125);
                expected.push_back({kT0 + 60, kT0 + 70, 0.125});
            }
            EXPECT_EQ(ReadBytes(LogPath()), LogImage(expected));
        }
    }
}

TEST_F(PowerLogFileTest, NewQueueReloadsWhatTheLastOneWrote) {
    std::string report;
    {
        powermeter::PowerLogQueue queue;
        queue.Init();
        Interval(queue, kT0, 0.5);
        Interval(queue, kT0 + 10, 0.5);
        Interval(queue, kT0 + 30, 0.75);
        report = queue.GetJson();
    }
    const auto written = ReadBytes(LogPath());
    powermeter::PowerLogQueue queue;
    queue.Init();
    EXPECT_TRUE(Logged(DLOG_INFO, kEnergy, "There are 2 items"));
    EXPECT_TRUE(Logged(DLOG_INFO, kEnergy,
                       "[Energy] start time: 1609459200, end time: 1609459220, duration: 20 "
                       "sec, power: 1.000000"));
    EXPECT_EQ(queue.GetJson(), report);
    EXPECT_EQ(ReadBytes(LogPath()), written);  // loading writes nothing
    // The reloaded last block takes further merges in place.
    Interval(queue, kT0 + 40, 0.25);
    EXPECT_EQ(ReadBytes(LogPath()), LogImage({{kT0, kT0 + 20, 1.0}, {kT0 + 30, kT0 + 50, 1.0}}));
}

TEST_F(PowerLogFileTest, EmptyAndTrailingFilesLoadCleanly) {
    WriteBytes(LogPath(), LogImage(0, {}));
    {
        powermeter::PowerLogQueue queue;
        queue.Init();
        EXPECT_TRUE(Logged(DLOG_INFO, kEnergy, "There are 0 items"));
        EXPECT_EQ(queue.GetJson(), "{\"dailyPowerConsumption\":null}");
        EXPECT_TRUE(Exists(LogPath()));
        // Count 0 with one block in memory: appended in place.
        Interval(queue, kT0, 0.5);
        EXPECT_EQ(ReadBytes(LogPath()), LogImage({{kT0, kT0 + 10, 0.5}}));
    }
    // Bytes past the counted records are ignored.
    WriteBytes(LogPath(), Concat(LogImage(1, {{kT0, kT0 + 10, 0.5}}), Record({1, 2, 3.0})));
    powermeter::PowerLogQueue queue;
    queue.Init();
    EXPECT_TRUE(Logged(DLOG_INFO, kEnergy, "There are 1 items"));
    EXPECT_EQ(queue.GetJson(),
              "{\"dailyPowerConsumption\":[{\"start\":1609459200,\"end\":1609459210,"
              "\"deltaEnergy\":0.5,\"power\":0,\"energySaved\":0}]}");
}

TEST_F(PowerLogFileTest, ResetRemovesTheFile) {
    powermeter::PowerLogQueue queue;
    queue.Init();
    Interval(queue, kT0, 0.5);
    ASSERT_TRUE(Exists(LogPath()));
    queue.Reset();
    EXPECT_FALSE(Exists(LogPath()));
    queue.Reset();  // nothing to remove: still fine
    Interval(queue, kT0 + 100, 0.5);
    EXPECT_EQ(ReadBytes(LogPath()), LogImage({{kT0 + 100, kT0 + 110, 0.5}}));
}

TEST_F(PowerLogFileTest, WriteCounterAdvancesByTwo) {
    powermeter::PowerLogQueue first;
    first.Init();
    powermeter::PowerLogQueue second;  // the counter is shared by every queue of the process
    Interval(first, kT0, 0.5);
    Interval(second, kT0 + 30, 0.5);
    Interval(first, kT0 + 60, 0.5);
    std::vector<int> counts;
    for (const std::string& m : Messages(kEnergy)) {
        const std::string suffix = ". Write logs into the data file";
        if (m.size() > suffix.size() &&
            m.compare(m.size() - suffix.size(), suffix.size(), suffix) == 0) {
            counts.push_back(std::atoi(m.c_str()));
        }
    }
    ASSERT_EQ(counts.size(), 3u);
    EXPECT_EQ(counts[0] % 2, 0);
    EXPECT_GE(counts[0], 2);
    EXPECT_EQ(counts[1], counts[0] + 2);
    EXPECT_EQ(counts[2], counts[0] + 4);
}

// ---- bad files ----

TEST_F(PowerLogFileTest, BadFilesAreRemovedWithTheReason) {
    const Block a{kT0, kT0 + 10, 0.5};
    const Block b{kT0 + 30, kT0 + 40, 0.25};
    struct Case {
        const char* name;
        std::vector<uint8_t> bytes;
        std::string message;
        std::string count_line;  // "" when the count itself cannot be read
    };
    auto half_record = LogImage(2, {a});
    half_record.resize(half_record.size() + 8, 0x41);
    const std::vector<Case> cases = {
        {"three counted, two present", LogImage(3, {a, b}),
         "failed to read data from the data file, so try to reset", "There are 3 items"},
        {"half a record", half_record, "failed to read data from the data file, so try to reset",
         "There are 2 items"},
        {"count cut short",
         {0x01, 0x00},
         "failed to read data from the data file, so try to reset",
         ""},
        {"empty file", {}, "failed to read data from the data file, so try to reset", ""},
        {"count above max_items", LogImage(122, {a}),
         "Invalid number of Items in the file, so try to reset", "There are 122 items"},
        {"negative count", LogImage(-1, {a, b}),
         "Invalid number of Items in the file, so try to reset", "There are -1 items"},
        {"most negative count", LogImage(INT32_MIN, {}),
         "Invalid number of Items in the file, so try to reset", "There are -2147483648 items"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        WriteBytes(LogPath(), c.bytes);
        const uint64_t mark = tvsim::LogMark();
        powermeter::PowerLogQueue queue;
        queue.Init();
        EXPECT_TRUE(tvsim::Logged(DLOG_ERROR, kEnergy, c.message, mark));
        if (!c.count_line.empty()) {
            EXPECT_TRUE(tvsim::Logged(DLOG_INFO, kEnergy, c.count_line, mark));
        }
        // Blocks read before the failure are dropped too.
        EXPECT_EQ(queue.GetJson(), "{\"dailyPowerConsumption\":null}");
        EXPECT_FALSE(Exists(LogPath()));
        // The log starts over in a fresh file.
        Interval(queue, kT0 + 300, 1.0);
        EXPECT_EQ(ReadBytes(LogPath()), LogImage({{kT0 + 300, kT0 + 310, 1.0}}));
    }
    // Exactly max_items (3600 / 30 + 1 = 121) records still load.
    std::vector<Block> full;
    for (uint32_t i = 0; i < 121; ++i) {
        full.push_back({kT0 + 30 * i, kT0 + 30 * i + 10, 0.125});
    }
    WriteBytes(LogPath(), LogImage(full));
    powermeter::PowerLogQueue queue;
    queue.Init();
    EXPECT_TRUE(Logged(DLOG_INFO, kEnergy, "There are 121 items"));
    EXPECT_TRUE(Exists(LogPath()));
    EXPECT_TRUE(queue.IsUploadRequired());
}

TEST_F(PowerLogFileTest, RandomBytesNeverEscapeTheQueue) {
    std::mt19937 rng(20210101);
    for (int round = 0; round < 300; ++round) {
        std::vector<uint8_t> bytes(rng() % 80);
        for (auto& byte : bytes) {
            byte = static_cast<uint8_t>(rng());
        }
        // Small counts half of the time, so that records are read too.
        if (bytes.size() >= 4 && round % 2 == 0) {
            bytes[0] = static_cast<uint8_t>(rng() % 6);
            bytes[1] = bytes[2] = bytes[3] = 0;
        }
        WriteBytes(LogPath(), bytes);
        const uint64_t mark = tvsim::LogMark();
        powermeter::PowerLogQueue queue;
        ASSERT_NO_THROW({
            queue.Init();
            Interval(queue, kT0, 0.5);
            queue.GetJson();
            queue.Print();
        }) << "round "
           << round;
        const size_t count = bytes.size() >= 4 ? bytes[0] | bytes[1] << 8 | bytes[2] << 16 |
                                                     static_cast<uint32_t>(bytes[3]) << 24
                                               : 0;
        const bool loadable = bytes.size() >= 4 && count <= 121 && bytes.size() >= 4 + 16 * count;
        EXPECT_EQ(
            tvsim::CountLogged(DLOG_ERROR, kEnergy,
                               "failed to read data from the data file, so try to reset", mark) +
                tvsim::CountLogged(DLOG_ERROR, kEnergy,
                                   "Invalid number of Items in the file, so try to reset", mark),
            loadable ? 0u : 1u)
            << "round " << round;
    }
}

// ---- failing storage ----

TEST_F(PowerLogFileTest, UnwritableDataDirectoryKeepsBlocksInMemory) {
    // Running as root, permissions do not stop writes: use a directory below a regular file,
    // and one that does not exist.
    testsupport::WriteText(dir.File("plain"), "x");
    for (const std::string& bad : {dir.File("plain/"), dir.File("missing/dir/")}) {
        SCOPED_TRACE(bad);
        tvsim::SetAppPath(tvsim::AppPath::kData, bad);
        const uint64_t mark = tvsim::LogMark();
        powermeter::PowerLogQueue queue;
        powermeter::IPowerLogQueue& log = queue;
        log.Init();
        EXPECT_TRUE(tvsim::Logged(DLOG_INFO, kEnergy, "There is no saved file", mark));
        // Without the option file the defaults hold: 900 s write intervals, 1 h blocks.
        log.Add(kT0, 0.5, 900);
        log.Add(kT0 + 900, 0.5, 900);
        EXPECT_EQ(tvsim::CountLogged(DLOG_ERROR, kEnergy, "failed to create the date file", mark),
                  2u);
        EXPECT_EQ(log.GetJson(),
                  "{\"dailyPowerConsumption\":[{\"start\":1609459200,\"end\":1609461000,"
                  "\"deltaEnergy\":1.0,\"power\":0,\"energySaved\":0}]}");
        log.Print();
        log.Reset();
        EXPECT_EQ(log.GetJson(), "{\"dailyPowerConsumption\":null}");
    }
    EXPECT_EQ(testsupport::ReadText(dir.File("plain")), "x");
}

TEST_F(PowerLogFileTest, DataFileThatIsADirectory) {
    // A directory stays; every write then fails with the open error.
    ASSERT_EQ(mkdir(LogPath().c_str(), 0755), 0);
    testsupport::WriteText(LogPath() + "/keep", "k");
    const uint64_t mark = tvsim::LogMark();
    powermeter::PowerLogQueue queue;
    queue.Init();
    Interval(queue, kT0, 0.5);
    Interval(queue, kT0 + 30, 0.5);
    EXPECT_EQ(tvsim::CountLogged(DLOG_ERROR, kEnergy, "the data file is not opened", mark), 2u);
    EXPECT_NE(queue.GetJson().find("\"start\":1609459230"), std::string::npos);
}

TEST_F(PowerLogFileTest, FullDeviceFailsWritesUntilTheFileIsBack) {
    ASSERT_EQ(symlink("/dev/full", LogPath().c_str()), 0);
    powermeter::PowerLogQueue queue;
    queue.Init();
    // A device is not opened, and the link to it is kept.
    EXPECT_TRUE(Logged(DLOG_ERROR, kEnergy, "the data file is not opened, so try to reset"));
    Interval(queue, kT0, 0.5);
    Interval(queue, kT0 + 30, 0.25);
    EXPECT_EQ(CountLogged(DLOG_ERROR, kEnergy, "the data file is not opened"), 2u);
    struct stat st;
    ASSERT_EQ(lstat(LogPath().c_str(), &st), 0);
    EXPECT_TRUE(S_ISLNK(st.st_mode));
    // Once the link is gone, the next write saves every block kept in memory.
    ASSERT_EQ(unlink(LogPath().c_str()), 0);
    Interval(queue, kT0 + 40, 0.25);
    EXPECT_EQ(ReadBytes(LogPath()), LogImage({{kT0, kT0 + 10, 0.5}, {kT0 + 30, kT0 + 50, 0.5}}));
}

// ---- DataFile on its own ----

TEST_F(PowerLogFileTest, DataFileReportsEachFailureWithItsMessage) {
    auto expect_error = [](const std::function<void()>& f, const std::string& message) {
        try {
            f();
            ADD_FAILURE() << "no exception, expected " << message;
        } catch (const std::runtime_error& e) {
            EXPECT_EQ(std::string(e.what()), message);
        }
    };
    char buffer[16] = {};
    powermeter::DataFile file;
    EXPECT_FALSE(file.IsExist());
    expect_error([&] { file.Open(false); }, "the data file is not opened");
    expect_error([&] { file.Read(buffer, 4); }, "the data file is not opened");
    expect_error([&] { file.Write(buffer, 4); }, "the data file is not opened");
    expect_error([&] { file.SeekToEnd(); }, "the data file is not opened");
    expect_error([&] { file.SeekFromBeg(0); }, "the data file is not opened");

    file.Open(true);
    EXPECT_TRUE(file.IsExist());
    EXPECT_EQ(ReadBytes(LogPath()), (std::vector<uint8_t>{0, 0, 0, 0}));
    file.SeekFromBeg(0);
    file.Read(buffer, 4);
    file.SeekToEnd();
    file.Write(const_cast<char*>("abcd"), 4);
    file.Close();
    file.Close();  // closing twice is harmless
    EXPECT_EQ(ReadBytes(LogPath()), (std::vector<uint8_t>{0, 0, 0, 0, 'a', 'b', 'c', 'd'}));
    // Open(false) keeps the content; reading past the end fails.
    file.Open(false);
    file.SeekFromBeg(6);
    expect_error([&] { file.Read(buffer, 4); }, "failed to read data from the data file");
    file.Remove();
    EXPECT_FALSE(file.IsExist());

    tvsim::SetAppPath(tvsim::AppPath::kData, dir.File("nowhere/"));
    powermeter::DataFile nowhere;
    expect_error([&] { nowhere.Open(true); }, "failed to create the date file");
}

}  // namespace
