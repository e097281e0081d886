// A data-set file read line by line the way the plug-in's loader reads it: the first line is
// the version, every further line is offered to the plug-in's row parser.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Factors.h"
#include "PowerFactors.h"

namespace energyfactors {

struct DataRow {
    int line = 0;  // 1-based line number in the file
    std::string text;
    bool parsed = false;
    std::vector<std::string> parse_log;  // the parser's messages when it refused the row
    powermeter::PowerFactors row;
    std::vector<std::string> texts;  // the six text columns (parsed rows only)

    const std::string& SwModel() const { return texts[2]; }
    const std::string& PanelType() const { return texts[4]; }
};

struct DataSet {
    std::string path;
    std::string text;  // the whole file
    bool has_first_line = false;
    std::string first_line;
    std::vector<DataRow> rows;  // lines 2 and on
};

// The largest data set read: 64 MiB, eight times a generated 100,000-row set.
constexpr uint64_t kMaxDataSetBytes = 64ull * 1024 * 1024;

// Reads and parses a data set. Throws std::runtime_error when the file cannot be read, is not a
// regular file or is larger than kMaxDataSetBytes.
// Needs a PluginSandbox alive (the parser logs to the simulated TV).
DataSet ReadDataSet(const std::string& path);
DataSet ParseDataSet(const std::string& path, const std::string& text);

// The first row of the set that is this record (ID, text columns and factors), or nullptr.
const DataRow* FindRow(const DataSet& set, const powermeter::PowerFactors& record);

// The row in data-set format with its factors replaced.
std::string FormatRow(const DataRow& row, const Factors& factors);

}  // namespace energyfactors
