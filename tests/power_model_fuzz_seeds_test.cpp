// Runs the power model's fuzz entry points over their seed corpora, so every seed stays a
// passing input in the ordinary test run.
#include <filesystem>
#include <string>

#include "FuzzTarget.h"
#include "TestSupport.h"

namespace {

class PowerModelFuzzSeeds : public testsupport::SimTest,
                            public ::testing::WithParamInterface<const char*> {};

TEST_P(PowerModelFuzzSeeds, EverySeedRuns) {
    const std::string name = GetParam();
    ASSERT_EQ(fuzz::Registry().count(name), 1u);
    const std::filesystem::path dir = std::filesystem::path(EC_FUZZ_CORPUS_DIR) / name;
    size_t seeds = 0;
    for (const auto& entry : std::filesystem::directory_iterator(dir)) {
        const auto bytes = testsupport::ReadBytes(entry.path().string());
        SCOPED_TRACE(entry.path().string());
        EXPECT_EQ(fuzz::Registry()[name](bytes.data(), bytes.size()), 0);
        ++seeds;
    }
    EXPECT_GT(seeds, 0u);
}

INSTANTIATE_TEST_SUITE_P(PowerModel, PowerModelFuzzSeeds,
                         ::testing::Values("FactorRow", "Registers"));

}  // namespace
