// The two report queues. The block log (PowerLogQueue): options, merging, upload timing, the
// report, the exact bytes of energy_log.dat before and after each action, bad files and
// failing storage. The running total (SimplePowerLogQueue): timing, report and log lines.
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <functional>
#include <string>
#include <vector>

#include "PowerLogQueue.h"
#include "PowerLogTestSupport.h"
#include "SimplePowerLogQueue.h"
#include "TestSupport.h"

using powerlogtest::Block;
using powerlogtest::LogImage;
using powerlogtest::WriteOptions;
using testsupport::Bytes;
using testsupport::Exists;
using testsupport::ReadBytes;
using testsupport::WriteBytes;

namespace {

constexpr char kEnergy[] = "ENERGY_SERVICE";
constexpr uint32_t kT0 = 1609459200u;  // 2021-01-01 00:00:00 UTC
constexpr char kRule[] =
    "====================================================================================";
constexpr char kHeader[] =
    "=================================== PRINT QUEUE ====================================";
constexpr char kEmpty[] = "{\"dailyPowerConsumption\":null}";
const char* const kUnreadable = "failed to read data from the data file, so try to reset";
const char* const kBadCount = "Invalid number of Items in the file, so try to reset";

std::string OptionLine(long write_left, long block_min, long notify_left_min, long hours) {
    return "I [Energy] option: write after " + std::to_string(write_left) +
           " sec, block size: " + std::to_string(block_min) + " min, notify it after " +
           std::to_string(notify_left_min) + " min (every " + std::to_string(hours) + " hour)";
}

class PowerLogTest : public testsupport::SimTest {
  protected:
    void SetUp() override { tvsim::SetAppPath(tvsim::AppPath::kData, dir_.path()); }
    std::string LogPath() const { return dir_.File("energy_log.dat"); }
    std::string OptionPath() const { return dir_.File("test_option/energy_option.txt"); }
    // With options "10 30 3600" each 10-second interval closes a write interval; blocks of
    // 30 s; at most 121 blocks.
    void ShortOptions() { WriteOptions(dir_.path(), "10 30 3600"); }
    static void Interval(powermeter::IPowerLogQueue& q, uint32_t t, double wh) { q.Add(t, wh, 10); }

    testsupport::TempDir dir_;
};

TEST_F(PowerLogTest, OptionFileIsTakenOnlyWhenAllThreeAreInRange) {
    const std::string defaults = "900, 3600, 86400";
    const std::string default_line = OptionLine(900, 60, 1440, 24);
    const struct {
        std::string text, changed, option_line;
    } rows[] = {
        // Accepted, bounds included; whitespace of any kind separates, the rest is ignored.
        {"900 3600 86400", defaults, default_line},
        {"1 1 1", "1, 1, 1", OptionLine(1, 0, 0, 0)},
        {"  30\n\t120\n7200 trailing text", "30, 120, 7200", OptionLine(30, 2, 120, 2)},
        // Refused: the options stay, the warning still says "changed".
        {"60 900", defaults, default_line},
        {"0 900 3600", defaults, default_line},
        {"60 900 0", defaults, default_line},
        {"-60 900 3600", defaults, default_line},
        {"60 -900 3600", defaults, default_line},
        {"sixty 900 3600", defaults, default_line},
        {"", defaults, default_line},
        {"901 900 3600", defaults, default_line},
        {"60 3601 3600", defaults, default_line},
        {"60 900 86401", defaults, default_line},
        {"99999999999999999999999 1 1", defaults, default_line},
    };
    for (const auto& r : rows) {
        WriteOptions(dir_.path(), r.text);
        const uint64_t mark = tvsim::LogMark();
        powermeter::PowerLogQueue queue;
        queue.Init();
        EXPECT_EQ(Catalogue(kEnergy, mark),
                  (std::vector<std::string>{
                      "E [Energy] !!!WARNING!!! There is " + OptionPath() +
                          " file to be able to change energy options",
                      "E [Energy] !!!WARNING!!! energy options has been changed " + r.changed,
                      "I Read logs from the data file", "I There is no saved file", r.option_line,
                      std::string("I ") + kHeader, std::string("I ") + kRule}))
            << "option file: '" << r.text << "'";
        EXPECT_FALSE(queue.IsUploadRequired());  // an empty log is never due
    }
}

TEST_F(PowerLogTest, BlocksUploadTimingReportAndCatalogue) {
    powermeter::PowerLogQueue queue;
    powermeter::IPowerLogQueue& log = queue;
    log.Init();  // defaults: 900 s write intervals, 1 h blocks, a day between uploads
    EXPECT_EQ(Catalogue(kEnergy),
              (std::vector<std::string>{"I [Energy] There is no " + OptionPath() +
                                            " file to be able to change energy options",
                                        "I Read logs from the data file",
                                        "I There is no saved file", OptionLine(900, 60, 1440, 24),
                                        std::string("I ") + kHeader, std::string("I ") + kRule}));
    ShortOptions();
    log.Init();
    log.Add(kT0, 0.5, 10);
    log.Add(kT0 + 10, 0.25, 10);
    log.Add(kT0 + 20, 0.25, 10);
    log.Add(kT0 + 30, 1.5, 10);  // exactly block_size after the block's start: a new block
    log.Add(kT0 + 59, 2.0, 10);  // 29 s after: merged, the block now runs 39 s
    EXPECT_EQ(log.GetJson(),
              "{\"dailyPowerConsumption\":["
              "{\"start\":1609459200,\"end\":1609459230,\"deltaEnergy\":1.0,\"power\":0,"
              "\"energySaved\":0},"
              "{\"start\":1609459230,\"end\":1609459269,\"deltaEnergy\":3.5,\"power\":0,"
              "\"energySaved\":0}]}");
    const uint64_t mark = tvsim::LogMark();
    log.Print();
    EXPECT_EQ(Catalogue(kEnergy, mark),
              (std::vector<std::string>{
                  OptionLine(10, 0, 58, 1), std::string("I ") + kHeader,
                  "I [Energy] start time: 1609459200, end time: 1609459230, duration: 30 sec, "
                  "power: 1.000000",
                  "I [Energy] start time: 1609459230, end time: 1609459269, duration: 39 sec, "
                  "power: 3.500000",
                  std::string("I ") + kRule}));
    // Due once the blocks span the notify interval: 3600 s.
    for (uint32_t t = kT0 + 69; t < kT0 + 3590; t += 10) {
        log.Add(t, 0.01, 10);
    }
    EXPECT_FALSE(log.IsUploadRequired());
    log.Add(kT0 + 3590, 0.01, 10);
    EXPECT_TRUE(log.IsUploadRequired());
    log.Reset();
    EXPECT_FALSE(log.IsUploadRequired());
    EXPECT_EQ(log.GetJson(), kEmpty);
    EXPECT_FALSE(Exists(LogPath()));
}

TEST_F(PowerLogTest, WriteIntervalStaysOpenUntilFullAndOutlivesReset) {
    WriteOptions(dir_.path(), "30 600 3600");
    powermeter::PowerLogQueue queue;
    queue.Init();
    queue.Add(kT0, 1.0, 10);
    queue.Add(kT0 + 10, 1.0, 10);
    EXPECT_FALSE(Exists(LogPath()));
    EXPECT_EQ(queue.GetJson(), kEmpty);
    const uint64_t mark = tvsim::LogMark();
    queue.Print();
    EXPECT_EQ(Catalogue(kEnergy, mark).at(0), OptionLine(10, 10, 60, 1));
    queue.Add(kT0 + 20, 1.0, 10);
    EXPECT_EQ(ReadBytes(LogPath()), LogImage({{kT0, kT0 + 30, 3.0}}));
    queue.Add(kT0 + 30, 0.5, 10);
    queue.Reset();  // drops the blocks, not the open interval
    queue.Add(kT0 + 40, 0.5, 10);
    queue.Add(kT0 + 50, 0.5, 10);
    EXPECT_EQ(ReadBytes(LogPath()), LogImage({{kT0 + 30, kT0 + 60, 1.5}}));
}

// Each row: the file before, what the queue (holding blocks A and B) does, the file after.
TEST_F(PowerLogTest, WritesTouchOnlyWhatChanged) {
    ShortOptions();
    const Block a{kT0, kT0 + 10, 0.5}, b{kT0 + 30, kT0 + 40, 0.25};
    const Block sentinel{0xDEADBEEF, 0xCAFEF00D, -1234.5};
    const Block merged{kT0 + 30, kT0 + 50, 0.5}, added{kT0 + 60, kT0 + 70, 0.125};
    const Bytes trailing = {0xA5, 0x5A, 0xA5};
    auto with = [](Bytes image, const Bytes& tail) {
        image.insert(image.end(), tail.begin(), tail.end());
        return image;
    };
    const std::vector<Block> stale = {{1, 2, 3.0}, {4, 5, 6.0}, {7, 8, 9.0}};
    struct Row {
        const char* name;
        Bytes before;
        bool merge;
        Bytes after;
    };
    std::vector<Row> rows = {
        {"merge, count 2: last record in place", with(LogImage({sentinel, b}), trailing), true,
         with(LogImage({sentinel, merged}), trailing)},
        {"new block, count 3: last record in place",
         with(LogImage({sentinel, sentinel, sentinel}), trailing), false,
         with(LogImage({sentinel, sentinel, added}), trailing)},
        {"new block, count 2: count and one record appended", LogImage({sentinel, b}), false,
         LogImage({sentinel, b, added})},
        {"merge, count 1: count and one record appended", LogImage({sentinel}), true,
         LogImage({sentinel, merged})},
        {"no file: full write", {}, true, LogImage({a, merged})},
    };
    for (int32_t stored : {3, 4, 0, -1, 1000, INT32_MIN}) {
        for (bool merge : {true, false}) {
            if (stored != 3 || merge) {
                rows.push_back({"any other count: full write",
                                with(LogImage(stored, stale), {0xEE}), merge,
                                merge ? LogImage({a, merged}) : LogImage({a, b, added})});
            }
        }
    }
    for (const Row& r : rows) {
        SCOPED_TRACE(r.name);
        std::remove(LogPath().c_str());
        powermeter::PowerLogQueue queue;
        queue.Init();
        Interval(queue, a.start, a.power);
        Interval(queue, b.start, b.power);
        if (!r.before.empty()) {
            WriteBytes(LogPath(), r.before);
        } else {
            std::remove(LogPath().c_str());
        }
        if (r.merge) {
            Interval(queue, kT0 + 40, 0.25);
        } else {
            Interval(queue, added.start, added.power);
        }
        EXPECT_EQ(ReadBytes(LogPath()), r.after);
    }
}

// Each row: a change made with the byte helpers to a file of two blocks, and what a new queue
// loads from it (nullptr: it logs the reason, removes the file and starts empty).
TEST_F(PowerLogTest, LoadingDamagedFiles) {
    ShortOptions();
    const Block a{kT0, kT0 + 20, 1.0}, b{kT0 + 30, kT0 + 50, 1.0};
    const std::string two =
        "{\"dailyPowerConsumption\":[{\"start\":1609459200,\"end\":1609459220,\"deltaEnergy\":1.0,"
        "\"power\":0,\"energySaved\":0},{\"start\":1609459230,\"end\":1609459250,"
        "\"deltaEnergy\":1.0,\"power\":0,\"energySaved\":0}]}";
    const std::string one =
        "{\"dailyPowerConsumption\":[{\"start\":1609459200,\"end\":1609459220,\"deltaEnergy\":1.0,"
        "\"power\":0,\"energySaved\":0}]}";
    struct Row {
        const char* name;
        std::function<void(const std::string&)> damage;
        std::string loaded;  // the report of what loaded, or "" for a reset
        std::string reason;  // the error line of a reset
        std::string count;   // the count line, if the count was read
    };
    using testsupport::CutTo;
    using testsupport::FlipByte;
    using testsupport::PlantTrailing;
    const Row rows[] = {
        {"intact", [](const std::string&) {}, two, "", "I There are 2 items"},
        {"trailing bytes are ignored",
         [](const std::string& p) {
             PlantTrailing(p, {1, 2, 3});
         },
         two, "", "I There are 2 items"},
        {"count lowered to 1", [](const std::string& p) { FlipByte(p, 0, 0x03); }, one, "",
         "I There are 1 items"},
        {"count 0", [](const std::string& p) { FlipByte(p, 0, 0x02); }, kEmpty, "",
         "I There are 0 items"},
        {"count 3, two records", [](const std::string& p) { FlipByte(p, 0, 0x01); }, "",
         kUnreadable, "I There are 3 items"},
        {"half a record", [](const std::string& p) { CutTo(p, 4 + 16 + 8); }, "", kUnreadable,
         "I There are 2 items"},
        {"count cut short", [](const std::string& p) { CutTo(p, 2); }, "", kUnreadable, ""},
        {"empty file", [](const std::string& p) { CutTo(p, 0); }, "", kUnreadable, ""},
        {"count 122, above max_items", [](const std::string& p) { FlipByte(p, 0, 0x78); }, "",
         kBadCount, "I There are 122 items"},
        {"negative count", [](const std::string& p) { FlipByte(p, 3, 0x80); }, "", kBadCount,
         "I There are -2147483646 items"},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.name);
        WriteBytes(LogPath(), LogImage({a, b}));
        r.damage(LogPath());
        const Bytes damaged = ReadBytes(LogPath());
        const uint64_t mark = tvsim::LogMark();
        powermeter::PowerLogQueue queue;
        queue.Init();
        const std::vector<std::string> lines = Catalogue(kEnergy, mark);
        auto has = [&](const std::string& line) {
            return std::find(lines.begin(), lines.end(), line) != lines.end();
        };
        EXPECT_EQ(r.count.empty() || has(r.count), true) << r.count;
        if (r.loaded.empty()) {
            EXPECT_TRUE(has("E " + r.reason));
            EXPECT_EQ(queue.GetJson(), kEmpty);  // blocks read before the failure go too
            EXPECT_FALSE(Exists(LogPath()));
        } else {
            EXPECT_EQ(queue.GetJson(), r.loaded);
            EXPECT_EQ(ReadBytes(LogPath()), damaged);  // loading writes nothing
        }
    }
    // Exactly max_items records still load.
    std::vector<Block> full;
    for (uint32_t i = 0; i < 121; ++i) {
        full.push_back({kT0 + 30 * i, kT0 + 30 * i + 10, 0.125});
    }
    WriteBytes(LogPath(), LogImage(full));
    powermeter::PowerLogQueue queue;
    queue.Init();
    EXPECT_TRUE(Logged(DLOG_INFO, kEnergy, "There are 121 items"));
    EXPECT_TRUE(queue.IsUploadRequired());
}

TEST_F(PowerLogTest, FailingStorageKeepsBlocksInMemory) {
    // Running as root, permissions do not stop writes: a directory below a regular file, one
    // that does not exist, a link to /dev/full, and a data file that is a directory.
    testsupport::WriteText(dir_.File("plain"), "x");
    for (const std::string& bad : {dir_.File("plain/"), dir_.File("missing/dir/")}) {
        SCOPED_TRACE(bad);
        tvsim::SetAppPath(tvsim::AppPath::kData, bad);
        const uint64_t mark = tvsim::LogMark();
        powermeter::PowerLogQueue queue;
        queue.Init();
        queue.Add(kT0, 0.5, 900);
        queue.Add(kT0 + 900, 0.5, 900);
        EXPECT_EQ(tvsim::CountLogged(DLOG_ERROR, kEnergy, "failed to create the date file", mark),
                  2u);
        EXPECT_EQ(queue.GetJson(),
                  "{\"dailyPowerConsumption\":[{\"start\":1609459200,\"end\":1609461000,"
                  "\"deltaEnergy\":1.0,\"power\":0,\"energySaved\":0}]}");
    }
    tvsim::SetAppPath(tvsim::AppPath::kData, dir_.path());
    ShortOptions();

    // A device is not opened (writes fail on open) and the link to it is kept; once the link
    // is gone, the next write saves every block kept in memory.
    ASSERT_EQ(symlink("/dev/full", LogPath().c_str()), 0);
    {
        powermeter::PowerLogQueue queue;
        queue.Init();
        Interval(queue, kT0, 0.5);
        Interval(queue, kT0 + 30, 0.25);
        EXPECT_EQ(CountLogged(DLOG_ERROR, kEnergy, "the data file is not opened"), 2u);
        struct stat st;
        ASSERT_EQ(lstat(LogPath().c_str(), &st), 0);
        EXPECT_TRUE(S_ISLNK(st.st_mode));
        ASSERT_EQ(unlink(LogPath().c_str()), 0);
        Interval(queue, kT0 + 40, 0.25);
        EXPECT_EQ(ReadBytes(LogPath()),
                  LogImage({{kT0, kT0 + 10, 0.5}, {kT0 + 30, kT0 + 50, 0.5}}));
    }
    // A directory in the file's place stays, empty or not, and every write then fails with
    // the open error.
    std::remove(LogPath().c_str());
    ASSERT_EQ(mkdir(LogPath().c_str(), 0755), 0);
    testsupport::WriteText(LogPath() + "/keep", "k");
    const uint64_t mark = tvsim::LogMark();
    powermeter::PowerLogQueue queue;
    queue.Init();
    Interval(queue, kT0, 0.5);
    Interval(queue, kT0 + 30, 0.5);
    EXPECT_EQ(tvsim::CountLogged(DLOG_ERROR, kEnergy, "the data file is not opened", mark), 2u);
}

// ---- The running total ----

TEST_F(PowerLogTest, RunningTotalIsDueNineHundredSecondsAfterItsFirstInterval) {
    powermeter::SimplePowerLogQueue queue;
    powermeter::IPowerLogQueue& log = queue;
    log.Add(kT0, 4.0, 10);
    log.Init();  // forgets what was collected
    EXPECT_EQ(log.GetJson(),
              "{\"cumulativePower\":\"0.000000\",\"cumulativeUnit\":\"Wh\","
              "\"cumulativeDateUTC\":\"0\"}");
    log.Print();
    log.Add(0, 2.0, 10);  // a zero time stamp counts but does not start the total
    for (int i = 0; i < 90; ++i) {
        log.Add(kT0 + 10ul * i, 0.5, 10);
        ASSERT_FALSE(log.IsUploadRequired()) << "interval " << i;
    }
    log.Add(kT0 + 3723, 1.0, 10);  // 01:02:03
    EXPECT_TRUE(log.IsUploadRequired());
    EXPECT_EQ(log.GetJson(),
              "{\"cumulativePower\":\"48.000000\",\"cumulativeUnit\":\"Wh\","
              "\"cumulativeDateUTC\":\"1609459200\"}");
    log.Print();
    EXPECT_EQ(Catalogue(kEnergy),
              (std::vector<std::string>{
                  "I [Energy] There is no accumulated power", std::string("I ") + kRule,
                  "I [Energy] Current Time:  UTC: 2021-1-1 1:2:3",
                  "I [Energy] Accumulated power : 48.000000",
                  "I [Energy]      From Time:  UTC: 2021-1-1 0:0:0", std::string("I ") + kRule}));
    // Reset keeps the 900 s threshold; the span is taken in 32 bits, across the wrap too, and
    // a clock running backwards makes the total due at once.
    const struct {
        unsigned long first, last;
        bool due;
    } rows[] = {{kT0 + 2000, kT0 + 2899, false},        {kT0 + 2000, kT0 + 2900, true},
                {0xFFFFFF00ul, 0x283ul, false},         {0xFFFFFF00ul, 0x284ul, true},
                {0x1'0000'0010ul, 0x10ul + 899, false}, {kT0, kT0 - 1, true}};
    for (const auto& r : rows) {
        log.Reset();
        EXPECT_FALSE(log.IsUploadRequired());  // nothing collected spans nothing
        log.Add(r.first, 1.0, 10);
        EXPECT_FALSE(log.IsUploadRequired());
        log.Add(r.last, 1.0, 10);
        EXPECT_EQ(log.IsUploadRequired(), r.due) << r.first << " " << r.last;
    }
    log.Reset();
    log.Add(0x1'0000'0010ul, 1.0, 10);
    EXPECT_EQ(log.GetJson(),
              "{\"cumulativePower\":\"1.000000\",\"cumulativeUnit\":\"Wh\","
              "\"cumulativeDateUTC\":\"16\"}");
}

}  // namespace
