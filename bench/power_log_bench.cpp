// One simulated day of metering (8,640 intervals of 10 s) through each log queue, driven the
// way the metering loop drives it: Add, IsUploadRequired, on upload GetJson and Reset, Print.
// Reports the time per day and, for the block log, the bytes and write calls per day that
// reach the file (from the process's write accounting in /proc/self/io).
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "IPowerLogQueue.h"
#include "PowerLogQueue.h"
#include "SimplePowerLogQueue.h"
#include "TempDir.h"
#include "tvsim/Simulator.h"

namespace {

constexpr unsigned long kT0 = 1609459200ul;  // 2021-01-01 00:00:00 UTC
constexpr int kIntervalsPerDay = 8640;

struct IoCounters {
    unsigned long long wchar = 0;  // bytes handed to write(2) and friends
    unsigned long long syscw = 0;  // write calls
};

IoCounters ReadIo() {
    IoCounters io;
    std::ifstream in("/proc/self/io");
    std::string key;
    unsigned long long value = 0;
    while (in >> key >> value) {
        if (key == "wchar:") {
            io.wchar = value;
        } else if (key == "syscw:") {
            io.syscw = value;
        }
    }
    return io;
}

// Returns the number of uploads in the day.
int RunDay(powermeter::IPowerLogQueue& queue) {
    int uploads = 0;
    queue.Init();
    for (int i = 0; i < kIntervalsPerDay; ++i) {
        // Around 80 W: 80 * 10 / 3600 Wh per interval, varied a little.
        queue.Add(kT0 + 10ul * i, (80.0 + (i % 13)) * 10.0 / 3600.0, 10);
        if (queue.IsUploadRequired()) {
            std::string report = queue.GetJson();
            benchmark::DoNotOptimize(report);
            queue.Reset();
            ++uploads;
        }
        queue.Print();
    }
    return uploads;
}

class DataDir {
  public:
    explicit DataDir(const std::string& options) : scratch_("ec-bench") {
        const std::string& path_ = scratch_.path();
        if (!options.empty()) {
            mkdir((path_ + "test_option").c_str(), 0755);
            std::ofstream(path_ + "test_option/energy_option.txt") << options;
        }
        tvsim::SetAppPath(tvsim::AppPath::kData, path_);
    }
    const std::string& path() const { return scratch_.path(); }

  private:
    hostkit::TempDir scratch_;
};

void BM_SimpleQueueDay(benchmark::State& state) {
    tvsim::SetLogRetention(0);
    int uploads = 0;
    for (auto _ : state) {
        powermeter::SimplePowerLogQueue queue;
        uploads = RunDay(queue);
    }
    state.counters["uploads_per_day"] = uploads;
}
BENCHMARK(BM_SimpleQueueDay)->Unit(benchmark::kMillisecond);

void BlockLogDay(benchmark::State& state, const std::string& options) {
    tvsim::SetLogRetention(0);
    DataDir dir(options);
    int uploads = 0;
    IoCounters total;
    for (auto _ : state) {
        std::remove((dir.path() + "energy_log.dat").c_str());
        powermeter::PowerLogQueue queue;
        const IoCounters before = ReadIo();
        uploads = RunDay(queue);
        const IoCounters after = ReadIo();
        total.wchar += after.wchar - before.wchar;
        total.syscw += after.syscw - before.syscw;
    }
    const double days = static_cast<double>(state.iterations());
    state.counters["bytes_written_per_day"] = static_cast<double>(total.wchar) / days;
    state.counters["write_calls_per_day"] = static_cast<double>(total.syscw) / days;
    state.counters["uploads_per_day"] = uploads;
}

// Default options: 900 s write interval, 1 h blocks, upload after 24 h.
void BM_BlockLogDayDefaultOptions(benchmark::State& state) {
    BlockLogDay(state, "");
}
BENCHMARK(BM_BlockLogDayDefaultOptions)->Unit(benchmark::kMillisecond);

// 60 s write interval, 15 min blocks, upload after 1 h.
void BM_BlockLogDay_60_900_3600(benchmark::State& state) {
    BlockLogDay(state, "60 900 3600");
}
BENCHMARK(BM_BlockLogDay_60_900_3600)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
