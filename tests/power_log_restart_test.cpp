// Every Start of the meter calls the queue's Init again on the same block log: each Init must
// start from energy_log.dat alone, whatever the blocks in memory were.
#include <cstdio>
#include <functional>

#include "PowerLogQueue.h"
#include "PowerLogTestSupport.h"
#include "TestSupport.h"

using powerlogtest::Block;
using powerlogtest::LogImage;
using testsupport::ReadBytes;
using testsupport::SimTest;
using testsupport::TempDir;

namespace {

constexpr uint32_t kT0 = 1609459200u;  // 2021-01-01 00:00:00 UTC

// Options "10 30 3600": every 10-second interval is written; blocks of 30 s.
class PowerLogRestartTest : public SimTest {
  protected:
    void SetUp() override {
        SimTest::SetUp();
        tvsim::SetAppPath(tvsim::AppPath::kData, dir.path());
        powerlogtest::WriteOptions(dir.path(), "10 30 3600");
    }
    TempDir dir;
};

TEST_F(PowerLogRestartTest, ReInitStartsFromTheFileAlone) {
    const std::string path = dir.File("energy_log.dat");
    const Block other{kT0 - 100, kT0 - 90, 2.0};
    struct Row {
        const char* name;
        std::function<void()> between;  // what happens to the file between the two Inits
        std::vector<Block> after;       // the file after re-Init and one interval at kT0 + 10
    };
    const std::vector<Row> rows = {
        {"file kept", [] {}, {{kT0, kT0 + 20, 0.75}}},
        {"file removed", [&] { std::remove(path.c_str()); }, {{kT0 + 10, kT0 + 20, 0.25}}},
        {"file replaced",
         [&] { testsupport::WriteBytes(path, LogImage({other})); },
         {other, {kT0 + 10, kT0 + 20, 0.25}}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        std::remove(path.c_str());
        powermeter::PowerLogQueue queue;
        queue.Init();
        queue.Add(kT0, 0.5, 10);
        row.between();
        queue.Init();
        queue.Add(kT0 + 10, 0.25, 10);
        EXPECT_EQ(ReadBytes(path), LogImage(row.after));
    }
}

}  // namespace
