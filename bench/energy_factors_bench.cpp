// energy-factors lint and table over generated data sets of 1,000 and 10,000 distinct rows: the
// time per row must not grow with the size of the set (each row is checked on its own, and the
// simulated TV's kept log is read from a mark, never scanned from its start). Reports rows per
// second; the ratio of the two sizes' times is the figure to watch (10x for a linear cost).
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

#include "DataSet.h"
#include "Lint.h"
#include "PluginSandbox.h"
#include "Table.h"

namespace {

// `rows` rows of one 55-inch QLED, each its own SW model so that every row is selectable.
energyfactors::DataSet Generated(int rows) {
    std::string text = "ECF-BENCH generated\n";
    for (int i = 0; i < rows; ++i) {
        char line[160];
        std::snprintf(line, sizeof line,
                      "%d,2024,VX%05dQ,24_GEN_%05d,55,VP55UA2X01,QLED,500,1800,48,56,1.0,4,2,-,12,"
                      "30,3.0,12\n",
                      1000 + i, i, i);
        text += line;
    }
    return energyfactors::ParseDataSet("generated", text);
}

void BM_Lint(benchmark::State& state) {
    const int rows = static_cast<int>(state.range(0));
    energyfactors::PluginSandbox sandbox;
    const energyfactors::DataSet set = Generated(rows);
    size_t defects = 0;
    for (auto _ : state) {
        defects = energyfactors::Lint(sandbox, set).size();
    }
    state.counters["defects"] = static_cast<double>(defects);
    state.counters["rows_per_s"] =
        benchmark::Counter(static_cast<double>(rows) * static_cast<double>(state.iterations()),
                           benchmark::Counter::kIsRate);
}
BENCHMARK(BM_Lint)->Arg(1000)->Arg(10000)->Iterations(1)->Unit(benchmark::kSecond);

// The table of every row's watts: the loader's choice for each row, then its calculation.
void BM_Table(benchmark::State& state) {
    const int rows = static_cast<int>(state.range(0));
    energyfactors::PluginSandbox sandbox;
    const energyfactors::DataSet set = Generated(rows);
    const energyfactors::Inputs picture{powermeter::NORMAL, 700, 800, 2160, 20};
    for (auto _ : state) {
        benchmark::DoNotOptimize(energyfactors::FactorTable(sandbox, set, picture));
    }
    state.counters["rows_per_s"] =
        benchmark::Counter(static_cast<double>(rows) * static_cast<double>(state.iterations()),
                           benchmark::Counter::kIsRate);
}
BENCHMARK(BM_Table)->Arg(1000)->Arg(10000)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace

BENCHMARK_MAIN();
