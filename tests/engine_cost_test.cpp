// Long runs of the real plug-in in virtual time: the heap stays flat.
#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdio>

#include "EngineFixture.h"

namespace enginetest {
namespace {

TEST_F(PluginTest, HeapDoesNotGrowOverFiftyThousandTurns) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers' allocators do not keep mallinfo2";
#endif
    // Uploads are dropped (not ready): the framework host would otherwise keep every report.
    tvsim::SetLogRetention(64);
    ASSERT_EQ(Create(), 1);
    RunTo(9999 * kTurn);
    const size_t after_10k = mallinfo2().uordblks;
    for (int64_t turns = 20000; turns <= 50000; turns += 10000) {
        RunTo((turns - 1) * kTurn);  // in steps, so that a loaded machine stays within the wait
    }
    const size_t after_50k = mallinfo2().uordblks;
    std::printf("heap in use after 10,000 turns: %zu bytes, after 50,000: %zu bytes\n", after_10k,
                after_50k);
    EXPECT_LE(after_50k, after_10k + 4096);
    EXPECT_EQ(vclock::NowSeconds(), kStart + 49999 * kTurn);
    EXPECT_EQ(Destroy(), 1);
}

}  // namespace
}  // namespace enginetest
