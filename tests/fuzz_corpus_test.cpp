// Runs every registered fuzz target over every file of its seed corpus
// (fuzz/corpus/<target name>/). A target without a corpus, or with an empty one, fails.
#include <dirent.h>
#include <sys/stat.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "FuzzTarget.h"

namespace {

// Regular files of `dir`, or nothing when it cannot be opened.
std::vector<std::string> CorpusFiles(const std::string& dir) {
    std::vector<std::string> files;
    DIR* d = opendir(dir.c_str());
    if (d == nullptr) {
        return files;
    }
    while (dirent* entry = readdir(d)) {
        const std::string path = dir + "/" + entry->d_name;
        struct stat st;
        if (stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode)) {
            files.push_back(path);
        }
    }
    closedir(d);
    return files;
}

std::vector<uint8_t> ReadAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

}  // namespace

TEST(FuzzCorpus, EveryTargetRunsOverItsSeedCorpus) {
    ASSERT_FALSE(fuzz::Registry().empty()) << "no fuzz target is registered";
    for (const auto& [name, entry] : fuzz::Registry()) {
        SCOPED_TRACE(name);
        const std::vector<std::string> files =
            CorpusFiles(std::string(EC_FUZZ_CORPUS_DIR) + "/" + name);
        EXPECT_FALSE(files.empty()) << "fuzz/corpus/" << name << " is missing or empty";
        for (const std::string& file : files) {
            const std::vector<uint8_t> bytes = ReadAll(file);
            try {
                EXPECT_EQ(entry(bytes.data(), bytes.size()), 0) << file;
            } catch (const std::exception& e) {
                ADD_FAILURE() << file << ": " << e.what();
            }
        }
    }
}
