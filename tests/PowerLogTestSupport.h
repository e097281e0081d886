// Helpers shared by the block-log tests: a data directory for the simulated app, the option
// file, and energy_log.dat images built byte by byte.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <string>
#include <vector>

#include "TestSupport.h"

namespace powerlogtest {

struct Block {
    uint32_t start;
    uint32_t end;
    double power;
    bool operator==(const Block& o) const {
        return start == o.start && end == o.end && power == o.power;
    }
};

inline std::vector<uint8_t> Record(const Block& b) {
    std::vector<uint8_t> out;
    testsupport::PutU32(out, b.start);
    testsupport::PutU32(out, b.end);
    testsupport::PutF64(out, b.power);
    return out;
}

// count, then the records; the count may disagree with the records on purpose.
inline std::vector<uint8_t> LogImage(int32_t count, const std::vector<Block>& blocks) {
    std::vector<uint8_t> out;
    testsupport::PutU32(out, static_cast<uint32_t>(count));
    for (const Block& b : blocks) {
        auto r = Record(b);
        out.insert(out.end(), r.begin(), r.end());
    }
    return out;
}

inline std::vector<uint8_t> LogImage(const std::vector<Block>& blocks) {
    return LogImage(static_cast<int32_t>(blocks.size()), blocks);
}

// Writes "test_option/energy_option.txt" under the data directory `dir` (ending in '/').
inline void WriteOptions(const std::string& dir, const std::string& text) {
    mkdir((dir + "test_option").c_str(), 0755);
    testsupport::WriteText(dir + "test_option/energy_option.txt", text);
}

}  // namespace powerlogtest
