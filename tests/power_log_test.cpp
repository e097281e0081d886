// The two report queues. The block log (PowerLogQueue): options, merging, upload timing, the
// report, the exact bytes of energy_log.dat before and after each action (appends cut short
// and stray bytes included), damaged files, failing storage and a data file that is not a
// regular file. The running total (SimplePowerLogQueue): timing, report and log lines.
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <filesystem>
#include <functional>
#include <future>
#include <optional>
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

namespace fs = std::filesystem;

constexpr char kEnergy[] = "ENERGY_SERVICE";
constexpr uint32_t kT0 = 1609459200u;  // 2021-01-01 00:00:00 UTC
const std::string kRule = "I " + std::string(84, '=');
const std::string kHeader = "I " + std::string(35, '=') + " PRINT QUEUE " + std::string(36, '=');
constexpr char kEmpty[] = "{\"dailyPowerConsumption\":null}";
constexpr char kUnreadable[] = "failed to read data from the data file, so try to reset";
constexpr char kBadCount[] = "Invalid number of Items in the file, so try to reset";
constexpr char kNotOpened[] = "the data file is not opened";

std::string OptionLine(long write_left, long block_min, long notify_left_min, long hours) {
    return "I [Energy] option: write after " + std::to_string(write_left) +
           " sec, block size: " + std::to_string(block_min) + " min, notify it after " +
           std::to_string(notify_left_min) + " min (every " + std::to_string(hours) + " hour)";
}

Bytes Cat(Bytes head, const Bytes& tail) {
    head.insert(head.end(), tail.begin(), tail.end());
    return head;
}

// Runs `body` on a thread. If it is still running after 5 s it is blocked on the FIFO at
// `path`: zero bytes are fed into it until it returns, so a hang fails instead of stalling.
bool FinishesWithoutBlocking(const std::function<void()>& body, const std::string& path) {
    auto done = std::async(std::launch::async, body);
    const bool quick = done.wait_for(std::chrono::seconds(5)) == std::future_status::ready;
    while (done.wait_for(std::chrono::milliseconds(50)) != std::future_status::ready) {
        const int fd = open(path.c_str(), O_WRONLY | O_NONBLOCK);
        if (fd >= 0) {
            (void)!write(fd, "\0\0\0\0", 4);
            close(fd);
        }
    }
    return quick;
}

// Caps the size of files this process writes to `bytes`, at most the hard limit (SIGXFSZ
// ignored, so a write past the cap fails instead of killing it); the previous limit and handler
// come back on destruction, also when a row fails half-way.
class FileSizeCap {
  public:
    explicit FileSizeCap(rlim_t bytes) : handler_(signal(SIGXFSZ, SIG_IGN)) {
        saved_ = getrlimit(RLIMIT_FSIZE, &old_) == 0;
        const struct rlimit cap = {std::min(bytes, old_.rlim_max), old_.rlim_max};
        ok_ = saved_ && setrlimit(RLIMIT_FSIZE, &cap) == 0;
    }
    ~FileSizeCap() {
        if (saved_) {
            setrlimit(RLIMIT_FSIZE, &old_);
        }
        signal(SIGXFSZ, handler_);
    }
    FileSizeCap(const FileSizeCap&) = delete;
    FileSizeCap& operator=(const FileSizeCap&) = delete;
    bool ok() const { return ok_; }

  private:
    struct rlimit old_ {};
    sighandler_t handler_;
    bool saved_ = false;
    bool ok_ = false;
};

class PowerLogTest : public testsupport::SimTest {
  protected:
    void SetUp() override { tvsim::SetAppPath(tvsim::AppPath::kData, dir_.path()); }
    std::string LogPath() const { return dir_.File("energy_log.dat"); }
    std::string OptionPath() const { return dir_.File("test_option/energy_option.txt"); }
    // With options "10 30 3600" each 10-second interval closes a write interval; blocks of
    // 30 s; at most 121 blocks.
    void ShortOptions() { WriteOptions(dir_.path(), "10 30 3600"); }
    static void Interval(powermeter::PowerLogQueue& q, uint32_t t, double wh) { q.Add(t, wh, 10); }

    testsupport::TempDir dir_;
};

TEST_F(PowerLogTest, OptionFileIsTakenOnlyWhenAllThreeAreInRange) {
    const std::string defaults = "900, 3600, 86400";
    struct Row {
        std::string text, changed, option_line;
        bool fifo = false;  // a FIFO in the file's place: read as nothing, without blocking
    };
    std::vector<Row> rows = {
        // Bounds included; whitespace of any kind separates, the rest is ignored.
        {"900 3600 86400", defaults, OptionLine(900, 60, 1440, 24)},
        {"1 1 1", "1, 1, 1", OptionLine(1, 0, 0, 0)},
        {"  30\n\t120\n7200 trailing text", "30, 120, 7200", OptionLine(30, 2, 120, 2)},
    };
    // Refused: the options stay, the warning still says "changed".
    for (const char* text :
         {"60 900", "0 900 3600", "60 900 0", "-60 900 3600", "60 -900 3600", "sixty 900 3600", "",
          "901 900 3600", "60 3601 3600", "60 900 86401", "99999999999999999999999 1 1"}) {
        rows.push_back({text, defaults, OptionLine(900, 60, 1440, 24)});
    }
    rows.push_back({"", defaults, OptionLine(900, 60, 1440, 24), true});
    for (const Row& r : rows) {
        WriteOptions(dir_.path(), r.text);
        if (r.fifo) {
            ASSERT_EQ(unlink(OptionPath().c_str()), 0);
            ASSERT_EQ(mkfifo(OptionPath().c_str(), 0644), 0);
        }
        const uint64_t mark = tvsim::LogMark();
        powermeter::PowerLogQueue queue;
        EXPECT_TRUE(FinishesWithoutBlocking([&] { queue.Init(); }, OptionPath()));
        EXPECT_EQ(Catalogue(kEnergy, mark),
                  (std::vector<std::string>{
                      "E [Energy] !!!WARNING!!! There is " + OptionPath() +
                          " file to be able to change energy options",
                      "E [Energy] !!!WARNING!!! energy options has been changed " + r.changed,
                      "I Read logs from the data file", "I There is no saved file", r.option_line,
                      kHeader, kRule}))
            << "option file: '" << r.text << "'";
        EXPECT_FALSE(queue.IsUploadRequired());  // an empty log is never due
        fs::remove(OptionPath());
    }
}

TEST_F(PowerLogTest, BlocksUploadTimingReportAndCatalogue) {
    powermeter::PowerLogQueue queue;
    powermeter::IPowerLogQueue& log = queue;
    log.Init();  // defaults: 900 s write intervals, 1 h blocks, a day between uploads
    EXPECT_EQ(Catalogue(kEnergy), (std::vector<std::string>{
                                      "I [Energy] There is no " + OptionPath() +
                                          " file to be able to change energy options",
                                      "I Read logs from the data file", "I There is no saved file",
                                      OptionLine(900, 60, 1440, 24), kHeader, kRule}));
    ShortOptions();
    log.Init();
    log.Add(kT0, 0.5, 10);
    log.Add(kT0 + 10, 0.25, 10);
    log.Add(kT0 + 20, 0.25, 10);
    log.Add(kT0 + 30, 1.5, 10);  // exactly block_size after the block's start: a new block
    log.Add(kT0 + 59, 2.0, 10);  // 29 s after: merged, the block now runs 39 s
    const uint64_t mark = tvsim::LogMark();
    log.Print();
    EXPECT_EQ(Catalogue(kEnergy, mark),
              (std::vector<std::string>{
                  OptionLine(10, 0, 58, 1), kHeader,
                  "I [Energy] start time: 1609459200, end time: 1609459230, duration: 30 sec, "
                  "power: 1.000000",
                  "I [Energy] start time: 1609459230, end time: 1609459269, duration: 39 sec, "
                  "power: 3.500000",
                  kRule}));
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

// Each row: the file put in place while the queue holds blocks A and B, what the queue does
// next, and the file after. A room of n caps the file at n bytes more than it had, as a full
// disk or a kill between the two writes of an append would leave it.
TEST_F(PowerLogTest, WritesTouchOnlyWhatChanged) {
    ShortOptions();
    enum Act { kMerge, kNew, kReInit };  // kReInit: Init again, then the merging interval
    const Block a{kT0, kT0 + 10, 0.5}, b{kT0 + 30, kT0 + 40, 0.25};
    const Block s{0xDEADBEEF, 0xCAFEF00D, -1234.5};  // a sentinel only the file holds
    const Block m{kT0 + 30, kT0 + 50, 0.5}, n{kT0 + 60, kT0 + 70, 0.25},
        r{kT0 + 40, kT0 + 50, 0.25};
    const Bytes t = {0xA5, 0x5A, 0xA5};
    const std::optional<Bytes> none;
    Bytes cut_short = LogImage(2, {s, b, n});  // the old count, and 8 bytes of the new record
    cut_short.resize(4 + 16 * 2 + 8);
    struct Row {
        std::optional<Bytes> before;  // nullopt: no file
        Act act;
        Bytes after;
        int room = -1;
    };
    std::vector<Row> rows = {
        {Cat(LogImage({s, b}), t), kMerge, Cat(LogImage({s, m}), t)},      // last record in place
        {Cat(LogImage({s, s, s}), t), kNew, Cat(LogImage({s, s, n}), t)},  // count 3: in place
        {LogImage({s, b}), kNew, LogImage({s, b, n})},  // count 2: one record, then the count
        {LogImage({s}), kMerge, LogImage({s, m})},      // count 1: the same
        {none, kMerge, LogImage({a, m})},               // no file: full write
        // A count that cannot be read, as a write cut short by a full disk leaves it: full write.
        {Bytes{}, kMerge, LogImage({a, m})},
        {Bytes{2, 0}, kNew, LogImage({a, b, n})},
        // Record n goes at 4 + 16(n - 1), over stray bytes, never after them.
        {Cat(LogImage({s, b}), Bytes(20, 0x55)), kNew, Cat(LogImage({s, b, n}), Bytes(4, 0x55))},
        // Cut short, the record lands before the count, so the old count still stands.
        {LogImage({s, b}), kNew, LogImage({s, b}), 0},
        {LogImage({s, b}), kNew, cut_short, 8},
        // Init again: the file alone is the log, whatever the blocks in memory.
        {LogImage({a, b}), kReInit, LogImage({a, m})},
        {LogImage({s}), kReInit, LogImage({s, r})},
        {none, kReInit, LogImage({r})},
    };
    // Any other count: a full write.
    for (int32_t stored : {3, 4, 0, -1, 1000, INT32_MIN}) {
        for (Act act : {kMerge, kNew}) {
            if (stored != 3 || act == kMerge) {
                rows.push_back(
                    {Cat(LogImage(stored, {{1, 2, 3.0}, {4, 5, 6.0}, {7, 8, 9.0}}), {0xEE}), act,
                     act == kMerge ? LogImage({a, m}) : LogImage({a, b, n})});
            }
        }
    }
    for (const Row& row : rows) {
        SCOPED_TRACE(&row - rows.data());
        std::remove(LogPath().c_str());
        powermeter::PowerLogQueue queue;
        queue.Init();
        Interval(queue, a.start, a.power);
        Interval(queue, b.start, b.power);
        std::remove(LogPath().c_str());
        if (row.before) {
            WriteBytes(LogPath(), *row.before);
        }
        if (row.act == kReInit) {
            queue.Init();
        }
        {
            FileSizeCap cap(row.room < 0 ? RLIM_INFINITY : row.before->size() + row.room);
            ASSERT_TRUE(cap.ok());
            Interval(queue, row.act == kNew ? n.start : kT0 + 40, 0.25);
        }
        EXPECT_EQ(ReadBytes(LogPath()), row.after);
    }
    // A link in the file's place stays; a full write replaces the file it names.
    const std::string target = dir_.File("elsewhere.dat");
    std::remove(LogPath().c_str());
    powermeter::PowerLogQueue queue;
    queue.Init();
    Interval(queue, a.start, a.power);
    std::remove(LogPath().c_str());
    WriteBytes(target, LogImage(5, {}));
    ASSERT_EQ(symlink(target.c_str(), LogPath().c_str()), 0);
    Interval(queue, b.start, b.power);
    EXPECT_EQ(fs::symlink_status(LogPath()).type(), fs::file_type::symlink);
    EXPECT_EQ(ReadBytes(target), LogImage({a, b}));
}

// Each row: a change made with the byte helpers to a file of two blocks, the report a new
// queue loads from it ("": it logs the reason, removes the file and starts empty) and the
// count it logs having read.
TEST_F(PowerLogTest, LoadingDamagedFiles) {
    ShortOptions();
    using Damage = std::function<void(const std::string&)>;
    auto flip = [](size_t at, uint8_t mask) -> Damage {
        return [=](const std::string& p) { testsupport::FlipByte(p, at, mask); };
    };
    auto cut = [](size_t size) -> Damage {
        return [=](const std::string& p) { testsupport::CutTo(p, size); };
    };
    auto trail = [](Bytes bytes) -> Damage {
        return [=](const std::string& p) { testsupport::PlantTrailing(p, bytes); };
    };
    const std::string two =
        "{\"dailyPowerConsumption\":[{\"start\":1609459200,\"end\":1609459220,\"deltaEnergy\":1.0,"
        "\"power\":0,\"energySaved\":0},{\"start\":1609459230,\"end\":1609459250,"
        "\"deltaEnergy\":1.0,\"power\":0,\"energySaved\":0}]}";
    const std::string one = two.substr(0, two.find(",{\"start\":1609459230")) + "]}";
    const struct {
        Damage damage;
        std::string loaded;
        const char* reason;
        const char* count;  // "": the count itself could not be read
    } rows[] = {
        {trail({}), two, "", "2"},         // intact
        {trail({1, 2, 3}), two, "", "2"},  // trailing bytes are ignored
        {flip(0, 0x03), one, "", "1"},     // count lowered
        {flip(0, 0x02), kEmpty, "", "0"},
        {flip(0, 0x01), "", kUnreadable, "3"},    // count 3, two records
        {cut(4 + 16 + 8), "", kUnreadable, "2"},  // half a record
        {cut(2), "", kUnreadable, ""},            // count cut short
        {cut(0), "", kUnreadable, ""},
        {flip(0, 0x78), "", kBadCount, "122"},         // above max_items
        {flip(3, 0x80), "", kBadCount, "-2147483646"}  // negative
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(&r - rows);
        WriteBytes(LogPath(), LogImage({{kT0, kT0 + 20, 1.0}, {kT0 + 30, kT0 + 50, 1.0}}));
        r.damage(LogPath());
        const Bytes damaged = ReadBytes(LogPath());
        const uint64_t mark = tvsim::LogMark();
        powermeter::PowerLogQueue queue;
        queue.Init();
        const std::string count = std::string("There are ") + r.count + " items";
        EXPECT_EQ(tvsim::Logged(DLOG_INFO, kEnergy, count, mark), *r.count != '\0');
        if (r.loaded.empty()) {
            EXPECT_TRUE(tvsim::Logged(DLOG_ERROR, kEnergy, r.reason, mark));
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

// Each row: storage that fails, by a data directory that cannot hold the file, a full disk,
// or something other than a regular file in the file's place (running as root, permissions
// stop nothing). Loading takes no time and removes nothing, each write fails with the row's
// error and leaves no file behind, and the blocks stay in memory: once the storage is back,
// the next write saves them all.
TEST_F(PowerLogTest, FailingStorageKeepsBlocksInMemory) {
    testsupport::WriteText(dir_.File("plain"), "x");
    const std::string log = LogPath();
    using T = fs::file_type;
    const char* const no_file = "failed to create the date file";
    const struct {
        std::string data;  // the data directory
        std::function<bool()> make;
        const char* error;
        T left;                       // what is in the file's place once the queue is done
        rlim_t room = RLIM_INFINITY;  // bytes a file may hold while the writes fail
    } rows[] = {
        {dir_.File("plain/"), [] { return true; }, no_file, T::not_found},
        {dir_.File("missing/dir/"), [] { return true; }, no_file, T::not_found},
        {dir_.path(), [] { return true; }, "failed to wrtie data to the data file", T::not_found,
         0},
        {dir_.path(), [&] { return mkfifo(log.c_str(), 0644) == 0; }, kNotOpened, T::fifo},
        {dir_.path(), [&] { return mkdir(log.c_str(), 0755) == 0; }, kNotOpened, T::directory},
        {dir_.path(), [&] { return symlink("/dev/full", log.c_str()) == 0; }, kNotOpened,
         T::symlink},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(&r - rows);
        fs::remove(log);
        tvsim::SetAppPath(tvsim::AppPath::kData, r.data);
        ASSERT_TRUE(r.make());
        const uint64_t mark = tvsim::LogMark();
        powermeter::PowerLogQueue queue;  // default options: 900 s intervals, 1 h blocks
        EXPECT_TRUE(FinishesWithoutBlocking(
            [&] {
                FileSizeCap cap(r.room);
                ASSERT_TRUE(cap.ok());
                queue.Init();
                queue.Add(kT0, 0.5, 900);
                queue.Add(kT0 + 3600, 0.25, 900);
            },
            log));
        EXPECT_EQ(tvsim::CountLogged(DLOG_ERROR, kEnergy, r.error, mark), 2u);
        EXPECT_EQ(
            tvsim::Logged(DLOG_ERROR, kEnergy, std::string(kNotOpened) + ", so try to reset", mark),
            r.left != T::not_found);
        EXPECT_EQ(fs::symlink_status(log).type(), r.left);
        EXPECT_FALSE(Exists(log + ".tmp"));
        tvsim::SetAppPath(tvsim::AppPath::kData, dir_.path());
        if (r.left != T::not_found) {
            fs::remove(log);  // what the row put in the file's place; a file left is kept
        }
        queue.Add(kT0 + 4500, 0.25, 900);
        EXPECT_EQ(ReadBytes(log), LogImage({{kT0, kT0 + 900, 0.5}, {kT0 + 3600, kT0 + 5400, 0.5}}));
    }
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
              (std::vector<std::string>{"I [Energy] There is no accumulated power", kRule,
                                        "I [Energy] Current Time:  UTC: 2021-1-1 1:2:3",
                                        "I [Energy] Accumulated power : 48.000000",
                                        "I [Energy]      From Time:  UTC: 2021-1-1 0:0:0", kRule}));
    // Reset keeps the 900 s threshold; the span is taken in 32 bits, across the wrap too, and
    // a clock running backwards makes the total due at once. A stamp above 32 bits counts as
    // its low 32 bits (where unsigned long has 32 bits, it is those bits already).
    const unsigned long above32 = static_cast<unsigned long>(0x1'0000'0010ull);
    const struct {
        unsigned long first, last;
        bool due;
    } rows[] = {{kT0 + 2000, kT0 + 2899, false}, {kT0 + 2000, kT0 + 2900, true},
                {0xFFFFFF00ul, 0x283ul, false},  {0xFFFFFF00ul, 0x284ul, true},
                {above32, 0x10ul + 899, false},  {kT0, kT0 - 1, true}};
    for (const auto& r : rows) {
        log.Reset();
        EXPECT_FALSE(log.IsUploadRequired());  // nothing collected spans nothing
        log.Add(r.first, 1.0, 10);
        EXPECT_FALSE(log.IsUploadRequired());
        log.Add(r.last, 1.0, 10);
        EXPECT_EQ(log.IsUploadRequired(), r.due) << r.first << " " << r.last;
    }
    log.Reset();
    log.Add(above32, 1.0, 10);
    EXPECT_EQ(log.GetJson(),
              "{\"cumulativePower\":\"1.000000\",\"cumulativeUnit\":\"Wh\","
              "\"cumulativeDateUTC\":\"16\"}");
}

}  // namespace
