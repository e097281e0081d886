// Fixtures for the metering engine inside the real plug-in: a simulated TV with a small factor
// data set, picture-engine registers and the virtual clock, so that hours of metering run at
// once; the plug-in is loaded with dlopen by the framework host.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "TestSupport.h"

namespace enginetest {

constexpr int64_t kStart = 1700000000;  // 2023-11-14 22:13:20 UTC
constexpr int64_t kTurn = 10;           // seconds between turns
constexpr char kTag[] = "ENERGY_SERVICE";
constexpr char kService[] = "energy-consumption";
constexpr char kModel[] = "VXTEST55";
constexpr char kPanel[] = "PT55TEST01";
// The default backlight level. 139.3 W is a power whose turn energy depends on the order of
// W * 10 / 3600 in the last bit, so exact comparisons catch a reordered conversion.
constexpr int kAna = 693;

// The factors of a type-4 backlight row, the simplest formula: with the speaker off and the
// set on, watts = ANA * compensate + cell * k + main * k, k = 1.1 above 1080 lines, else 1.0.
struct Row {
    double compensate = 0.1;
    double cell = 20.0;
    double main = 50.0;
};

// The same arithmetic as the calculator, written out here.
double Watts(const Row& row, int ana, int resolution);
// Energy of one 10-second turn, in Wh.
double TurnEnergy(double watts);
// Sum of `turns` turns at `watts`, added turn by turn as the meter does.
double Sum(int turns, double watts);
// The running-total report for this sum and first time stamp.
std::string Report(double sum_wh, int64_t first_time);

class PluginTest : public testsupport::SimTest {
  protected:
    void SetUp() override;
    void TearDown() override;

    void WriteFactors(const Row& row);
    void SetRegisters(int ana, int resolution);

    // Lets the worker run the turn due `seconds` after the start and park right after it.
    void RunTo(int64_t seconds);

    // The plug-in's entry points. The ready flag outlives a Destroy, so Create reports the
    // protocol disconnected unless `keep_ready`: each test starts not ready.
    int Create(bool keep_ready = false);
    int Destroy();
    bool Status(const std::string& protocol, int status);
    bool Ready(int status = 0) { return Status("corvane", status); }
    std::vector<std::string> Reports() const;

    // The counter printed in each turn's header line, relative to the first one of the test
    // (the counter runs on over the whole process).
    std::vector<long> TurnNumbers() const;
    // The accumulated energy printed at the end of each successful turn, as text.
    std::vector<std::string> AccumulatedTexts() const;
    // Number of messages of this test (any priority) that begin with `prefix`.
    size_t CountPrefix(const std::string& prefix) const;

    Row row_;
    testsupport::TempDir data_;
    testsupport::TempDir shared_;
    std::unique_ptr<wexfhost::Plugin> plugin_;
    bool created_ = false;  // Create called and not yet followed by Destroy
};

}  // namespace enginetest
