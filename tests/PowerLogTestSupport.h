// energy_log.dat images built record by record, and the block log's option file.
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

// The count, then the records; the count may disagree with the records on purpose.
inline testsupport::Bytes LogImage(int32_t count, const std::vector<Block>& blocks) {
    testsupport::Bytes out;
    testsupport::PutU32(out, static_cast<uint32_t>(count));
    for (const Block& b : blocks) {
        testsupport::PutU32(out, b.start);
        testsupport::PutU32(out, b.end);
        testsupport::PutF64(out, b.power);
    }
    return out;
}

inline testsupport::Bytes LogImage(const std::vector<Block>& blocks) {
    return LogImage(static_cast<int32_t>(blocks.size()), blocks);
}

// Writes "test_option/energy_option.txt" under the data directory `dir` (ending in '/').
inline void WriteOptions(const std::string& dir, const std::string& text) {
    mkdir((dir + "test_option").c_str(), 0755);
    testsupport::WriteText(dir + "test_option/energy_option.txt", text);
}

}  // namespace powerlogtest
