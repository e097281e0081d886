// Runs the energy_log.dat fuzz entry point over its seed corpus, so every seed (good logs and
// each kind of damage) is exercised in the ordinary test run too.
#include <filesystem>

#include "FuzzTarget.h"
#include "TestSupport.h"

namespace {

class EnergyLogCorpusTest : public testsupport::SimTest {};

TEST_F(EnergyLogCorpusTest, EverySeedRunsCleanly) {
    const auto entry = fuzz::Registry().find("EnergyLog");
    ASSERT_NE(entry, fuzz::Registry().end());
    size_t seeds = 0;
    for (const auto& file :
         std::filesystem::directory_iterator(std::string(EC_FUZZ_CORPUS_DIR) + "/EnergyLog")) {
        SCOPED_TRACE(file.path().string());
        const auto bytes = testsupport::ReadBytes(file.path().string());
        EXPECT_EQ(entry->second(bytes.data(), bytes.size()), 0);
        ++seeds;
    }
    EXPECT_GE(seeds, 10u);
    EXPECT_FALSE(tvsim::Logged(DLOG_ERROR, "ENERGY_SERVICE", "failed to create the date file"));
}

}  // namespace
