// Power model costs: selecting this set's row from a 100,000-row data set (against the bare
// cost of reading the same file line by line), and one Calculate on the simulated TV.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include "Calculator.h"
#include "PowerFactorLoader.h"
#include "PowerFactors.h"
#include "TempDir.h"
#include "tvsim/Simulator.h"

namespace {

constexpr int kRows = 100000;
constexpr const char kSw[] = "SW_BENCH_TARGET";
constexpr const char kPanel[] = "BN65QA1K01";

// A generated data set in a fresh directory, removed at exit. The target SW model has three
// rows spread over the file (similar, similar, equal), the rest are other models.
class DataSet {
  public:
    DataSet() : scratch_("ec-bench") {
        std::ofstream out(file());
        out << "ECF-BENCH generated\n";
        for (int i = 0; i < kRows; ++i) {
            std::string sw = "SW_" + std::to_string(i % 5000);
            std::string panel = "BN" + std::to_string(40 + i % 50) + "QA" + std::to_string(i % 10) +
                                "K0" + std::to_string(i % 7);
            if (i == kRows / 10 || i == kRows / 2) {
                sw = kSw;
                panel = "BN55QA9K01";
            } else if (i == kRows - 10) {
                sw = kSw;
                panel = kPanel;
            }
            out << i << ",2024,VXBENCH," << sw << ",65," << panel
                << ",QLED,400,1500,52,62,0.8,8,3,-,16,34,3.2,15\n";
        }
    }
    const std::string& dir() const { return scratch_.path(); }
    std::string file() const { return scratch_.File("energy_factors.dat"); }

  private:
    hostkit::TempDir scratch_;
};

const DataSet& Data() {
    static const DataSet data;
    return data;
}

void UseGenerated() {
    tvsim::SetLogRetention(0);
    tvsim::SetAppPath(tvsim::AppPath::kSharedResource, Data().dir());
    tvsim::SetModelName(std::string(kSw));
    tvsim::SetPanelType(std::string(kPanel));
}

void BM_LoadAndSelect(benchmark::State& state) {
    UseGenerated();
    for (auto _ : state) {
        powermeter::PowerFactorLoader loader;
        powermeter::PowerFactors out;
        if (!loader.Load(out) || out.SequenceNumber() != kRows - 10) {
            state.SkipWithError("wrong row selected");
            break;
        }
        benchmark::DoNotOptimize(out);
    }
    state.SetItemsProcessed(state.iterations() * kRows);
}
BENCHMARK(BM_LoadAndSelect)->Unit(benchmark::kMillisecond);

void BM_GetlineOnly(benchmark::State& state) {
    UseGenerated();
    for (auto _ : state) {
        std::ifstream in(Data().file());
        std::string line;
        size_t lines = 0;
        while (std::getline(in, line)) {
            ++lines;
        }
        benchmark::DoNotOptimize(lines);
    }
    state.SetItemsProcessed(state.iterations() * kRows);
}
BENCHMARK(BM_GetlineOnly)->Unit(benchmark::kMillisecond);

void BM_GetlineAndParse(benchmark::State& state) {
    UseGenerated();
    for (auto _ : state) {
        std::ifstream in(Data().file());
        std::string line;
        std::getline(in, line);
        size_t parsed = 0;
        while (std::getline(in, line)) {
            powermeter::PowerFactors row;
            parsed += row.Parse(line) ? 1 : 0;
        }
        benchmark::DoNotOptimize(parsed);
    }
    state.SetItemsProcessed(state.iterations() * kRows);
}
BENCHMARK(BM_GetlineAndParse)->Unit(benchmark::kMillisecond);

void BM_Calculate(benchmark::State& state) {
    tvsim::SetLogRetention(0);
    tvsim::SetAppPath(tvsim::AppPath::kSharedResource, std::string(EC_SOURCE_DIR) + "/data/");
    tvsim::SetModelName(std::string("24_QUASAR_65"));
    tvsim::SetPanelType(std::string("CS65QA1K01"));
    tvsim::SetVconf("memory/ave/powerconsumption",
                    std::string(R"({"ANA":"700","DutySum":"800","RESOLUTION":"2160"})"));
    tvsim::SetMasterVolume(20);
    tvsim::SetSpeakerSelection(0);
    tvsim::SetPowerState(0);
    powermeter::Calculator calculator;
    if (!calculator.Init()) {
        state.SkipWithError("no factors for the sample model");
        return;
    }
    for (auto _ : state) {
        calculator.Calculate();
        benchmark::DoNotOptimize(calculator.PowerConsumption());
    }
}
BENCHMARK(BM_Calculate);

}  // namespace

BENCHMARK_MAIN();
