#include "PowerLogQueue.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <exception>
#include <sstream>
#include <stdexcept>

#include "AppInfoUtil.h"
#include "DataFile.h"
#include "Log.h"
#include "ReadableFile.h"
#include "ServiceNames.h"
#include "SharedJson.h"

namespace powermeter {

namespace {

// Defaults when no option file overrides them: the report is a daily consumption array, so
// the log is due after one day (24 h, a whole number of hours as the log line prints it) of
// one-hour blocks (25 items at most). The open interval is written every 15 minutes: 96 small
// writes a day keep flash wear low, and a restart loses at most the quarter hour that the
// engine's own upload cadence already spans.
constexpr uint32_t kDefaultWriteIntervalSec = 900;
constexpr uint32_t kDefaultBlockSizeSec = 3600;
constexpr uint32_t kDefaultNotifyIntervalSec = 86400;

constexpr uint32_t kMaxWriteIntervalSec = 900;
constexpr uint32_t kMaxBlockSizeSec = 3600;
constexpr uint32_t kMaxNotifyIntervalSec = 86400;

constexpr const char kOptionFile[] = "test_option/energy_option.txt";

constexpr const char kPrintHeader[] =
    "=================================== PRINT QUEUE ====================================";
constexpr const char kRule[] =
    "====================================================================================";
static_assert(sizeof(kPrintHeader) - 1 == 35 + 13 + 36, "35 '=', the title, 36 '='");
static_assert(sizeof(kRule) - 1 == 84, "the rule is 84 characters wide");

constexpr unsigned int kCountSize = 4;
constexpr unsigned int kRecordSize = 16;

// Process-wide count of block-log writes; it advances by two per write.
std::atomic<int> write_counter{0};

// The file is little-endian whatever the host, so records are encoded byte by byte.
void EncodeU32(char* out, uint32_t v) {
    for (int i = 0; i < 4; ++i) {
        out[i] = static_cast<char>((v >> (8 * i)) & 0xFF);
    }
}

uint32_t DecodeU32(const char* in) {
    uint32_t v = 0;
    for (int i = 0; i < 4; ++i) {
        v |= static_cast<uint32_t>(static_cast<unsigned char>(in[i])) << (8 * i);
    }
    return v;
}

void EncodeRecord(char* out, const TimeAndPower& item) {
    EncodeU32(out, item.start);
    EncodeU32(out + 4, item.end);
    uint64_t bits = 0;
    std::memcpy(&bits, &item.power, sizeof(bits));
    for (int i = 0; i < 8; ++i) {
        out[8 + i] = static_cast<char>((bits >> (8 * i)) & 0xFF);
    }
}

TimeAndPower DecodeRecord(const char* in) {
    TimeAndPower item{};
    item.start = DecodeU32(in);
    item.end = DecodeU32(in + 4);
    uint64_t bits = 0;
    for (int i = 0; i < 8; ++i) {
        bits |= static_cast<uint64_t>(static_cast<unsigned char>(in[8 + i])) << (8 * i);
    }
    std::memcpy(&item.power, &bits, sizeof(bits));
    return item;
}

void WriteCount(DataFile& file, size_t count) {
    char buffer[kCountSize];
    EncodeU32(buffer, static_cast<uint32_t>(count));
    file.Write(buffer, kCountSize);
}

int32_t ReadCount(DataFile& file) {
    char buffer[kCountSize] = {0, 0, 0, 0};
    file.Read(buffer, kCountSize);
    return static_cast<int32_t>(DecodeU32(buffer));
}

void WriteRecord(DataFile& file, const TimeAndPower& item) {
    char buffer[kRecordSize];
    EncodeRecord(buffer, item);
    file.Write(buffer, kRecordSize);
}

// The whole text of `path` when it is a regular file, else nothing. The open does not block
// and the type is taken from the file opened: a FIFO in the option file's place would
// otherwise hold Init, and with it CreatePlugin, until something writes to it.
std::string ReadRegularFile(const std::string& path) {
    mode_t type = 0;
    const int fd = common::OpenWithoutBlocking(path, &type);
    if (fd < 0) {
        return {};
    }
    std::string text;
    if (type == S_IFREG) {
        // Three numbers never need more; a larger file is not read into memory whole.
        constexpr size_t kMaxText = 64 * 1024;
        char buffer[512];
        ssize_t n = 0;
        while (text.size() < kMaxText &&
               ((n = ::read(fd, buffer, sizeof buffer)) > 0 || (n < 0 && errno == EINTR))) {
            if (n > 0) {
                text.append(buffer, static_cast<size_t>(n));
            }
        }
    }
    ::close(fd);
    return text;
}

}  // namespace

PowerLogQueue::PowerLogQueue()
    : write_interval_sec(kDefaultWriteIntervalSec),
      block_size_sec(kDefaultBlockSizeSec),
      notify_interval_sec(kDefaultNotifyIntervalSec),
      max_items(0) {}

void PowerLogQueue::Init() {
    fill_options();
    max_items = (block_size_sec == 0 ? 0 : notify_interval_sec / block_size_sec) + 1;
    sub_queue.Init(write_interval_sec);
    read_from_file();
    IPowerLogQueue* self = this;
    self->Print();
}

void PowerLogQueue::fill_options() {
    const std::string path = AppInfoUtil::GetDataPath() + kOptionFile;
    if (access(path.c_str(), F_OK) != 0) {
        ELOGI("[Energy] There is no %s file to be able to change energy options", path.c_str());
        return;
    }
    ELOGE("[Energy] !!!WARNING!!! There is %s file to be able to change energy options",
          path.c_str());
    std::istringstream in(ReadRegularFile(path));
    unsigned long write_interval = 0;
    unsigned long block_size = 0;
    unsigned long notify_interval = 0;
    in >> write_interval >> block_size >> notify_interval;
    if (is_options_valid(write_interval, block_size, notify_interval)) {
        write_interval_sec = static_cast<uint32_t>(write_interval);
        block_size_sec = static_cast<uint32_t>(block_size);
        notify_interval_sec = static_cast<uint32_t>(notify_interval);
    }
    ELOGE("[Energy] !!!WARNING!!! energy options has been changed %ld, %ld, %ld",
          static_cast<long>(write_interval_sec), static_cast<long>(block_size_sec),
          static_cast<long>(notify_interval_sec));
}

bool PowerLogQueue::is_options_valid(unsigned long write_interval, unsigned long block_size,
                                     unsigned long notify_interval) {
    // value - 1 wraps for 0 (and for negative text read as unsigned), so one test per bound.
    return write_interval - 1 < kMaxWriteIntervalSec && block_size - 1 < kMaxBlockSizeSec &&
           notify_interval - 1 < kMaxNotifyIntervalSec;
}

void PowerLogQueue::Add(unsigned long time, double energy, unsigned long duration) {
    std::function<void(unsigned long, unsigned long, double)> on_full =
        [this](unsigned long start, unsigned long end, double power) {
            add(start, end, power);
            write_to_file();
        };
    sub_queue.Add(time, energy, duration, on_full);
}

void PowerLogQueue::add(unsigned long start, unsigned long end, double power) {
    if (is_merge_possible(start)) {
        TimeAndPower& last = items.back();
        last.end = static_cast<uint32_t>(end);
        last.power += power;
        return;
    }
    items.push_back(TimeAndPower{static_cast<uint32_t>(start), static_cast<uint32_t>(end), power});
}

bool PowerLogQueue::is_merge_possible(unsigned long start) {
    if (items.empty()) {
        return false;
    }
    return static_cast<uint32_t>(static_cast<uint32_t>(start) - items.back().start) <
           block_size_sec;
}

unsigned long PowerLogQueue::accumulated_sec() {
    if (items.empty()) {
        return 0;
    }
    return accumulated_sec(items.front(), items.back());
}

unsigned long PowerLogQueue::accumulated_sec(const TimeAndPower& first, const TimeAndPower& last) {
    return static_cast<uint32_t>(last.end - first.start);
}

bool PowerLogQueue::IsUploadRequired() {
    return notify_interval_sec <= accumulated_sec();
}

void PowerLogQueue::Reset() {
    reset();
}

void PowerLogQueue::reset() {
    items.clear();
    DataFile().Remove();
}

void PowerLogQueue::Print() {
    // All four figures are 32-bit unsigned; the subtractions wrap once the log is past due.
    const uint32_t write_left =
        write_interval_sec - static_cast<uint32_t>(sub_queue.GetAccumulatedTime());
    const uint32_t notify_left = notify_interval_sec - static_cast<uint32_t>(accumulated_sec());
    ELOGI(
        "[Energy] option: write after %ld sec, block size: %ld min, notify it after %ld min "
        "(every %ld hour)",
        static_cast<long>(write_left), static_cast<long>(block_size_sec / 60),
        static_cast<long>(notify_left / 60), static_cast<long>(notify_interval_sec / 3600));
    ELOGI("%s", kPrintHeader);
    for (const TimeAndPower& item : items) {
        ELOGI("[Energy] start time: %ld, end time: %ld, duration: %ld sec, power: %lf",
              static_cast<long>(item.start), static_cast<long>(item.end),
              static_cast<long>(static_cast<uint32_t>(item.end - item.start)), item.power);
    }
    ELOGI("%s", kRule);
}

std::string PowerLogQueue::GetJson() {
    using common::json::JsonValue;
    // Without blocks the array is never created, so the member stays JSON null.
    JsonValue blocks;
    for (const TimeAndPower& item : items) {
        JsonValue block;
        block["start"] = JsonValue(static_cast<unsigned int>(item.start));
        block["end"] = JsonValue(static_cast<unsigned int>(item.end));
        block[names::kDeltaEnergy] = JsonValue(item.power);
        // Placeholders that receivers expect.
        block["power"] = JsonValue(static_cast<int>(0));
        block["energySaved"] = JsonValue(static_cast<int>(0));
        blocks.append(std::move(block));
    }
    JsonValue report;
    report[names::kProperty] = std::move(blocks);
    return report.toString(false);
}

void PowerLogQueue::read_from_file() {
    // Every Start calls Init again: the file alone is the log, or each block would be held twice.
    items.clear();
    ELOGI("Read logs from the data file");
    if (!DataFile().IsExist()) {
        ELOGI("There is no saved file");
        return;
    }
    try {
        DataFile file;
        file.Open(false);
        const int32_t count = ReadCount(file);
        ELOGI("There are %ld items", static_cast<long>(count));
        // Unsigned on purpose: a negative count is far above any valid maximum.
        if (max_items < static_cast<uint32_t>(count)) {
            throw std::runtime_error("Invalid number of Items in the file");
        }
        for (int32_t i = 0; i < count; ++i) {
            char buffer[kRecordSize] = {};
            file.Read(buffer, kRecordSize);
            items.push_back(DecodeRecord(buffer));
        }
    } catch (const std::exception& e) {
        ELOGE("%s, so try to reset", e.what());
        reset();
    }
}

void PowerLogQueue::write_to_file() {
    const int counter = write_counter.fetch_add(2) + 2;
    ELOGI("%d. Write logs into the data file", counter);
    try {
        if (!modify_file()) {
            write_all();
        }
    } catch (const std::exception& e) {
        // The blocks stay in memory; a later full rewrite repairs the file.
        ELOGE("%s", e.what());
    }
}

bool PowerLogQueue::modify_file() {
    DataFile file;
    if (!file.IsExist()) {
        return false;
    }
    file.Open(false);
    int64_t stored = 0;
    try {
        stored = ReadCount(file);
    } catch (const std::runtime_error&) {
        return false;  // a count that cannot be read (a file cut short) is mended by a full write
    }
    const int64_t n = static_cast<int64_t>(items.size());
    if (stored == n) {
        modify_last_item(file);  // the last block was merged
    } else if (stored + 1 == n) {
        append_item(file);  // a block was added
    } else {
        return false;
    }
    return true;
}

void PowerLogQueue::modify_last_item(DataFile& file) {
    file.SeekFromBeg(static_cast<unsigned int>(kRecordSize * items.size() - 12));
    WriteRecord(file, items.back());
}

void PowerLogQueue::append_item(DataFile& file) {
    // Record n at its own offset, not the file's end, so that stray bytes never precede it.
    file.SeekFromBeg(static_cast<unsigned int>(kCountSize + kRecordSize * (items.size() - 1)));
    WriteRecord(file, items.back());
    // The count after the record: a kill between the two leaves the old count over intact records.
    file.SeekFromBeg(0);
    WriteCount(file, items.size());
}

void PowerLogQueue::write_all() {
    // The count and every record, built whole and put in place in one step: a rewrite cut
    // short (a kill, a full disk) leaves the previous file, never a shorter or empty log.
    std::vector<char> image(kCountSize + kRecordSize * items.size());
    EncodeU32(image.data(), static_cast<uint32_t>(items.size()));
    char* record = image.data() + kCountSize;
    for (const TimeAndPower& item : items) {
        EncodeRecord(record, item);
        record += kRecordSize;
    }
    DataFile().Replace(image.data(), static_cast<unsigned int>(image.size()));
}

}  // namespace powermeter
