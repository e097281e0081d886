#include "DataSet.h"

#include <fmt/format.h>

#include <cmath>
#include <sstream>
#include <stdexcept>

#include "InputFile.h"
#include "PluginSandbox.h"

namespace energyfactors {

DataSet ReadDataSet(const std::string& path) {
    hostkit::InputFile file(path, kMaxDataSetBytes);
    std::string text;
    if (!file.ReadAll(&text)) {
        throw std::runtime_error(fmt::format("cannot read {}: {}", path, file.error()));
    }
    return ParseDataSet(path, text);
}

DataSet ParseDataSet(const std::string& path, const std::string& text) {
    DataSet set;
    set.path = path;
    set.text = text;
    std::istringstream in(text);
    std::string line;
    set.has_first_line = static_cast<bool>(std::getline(in, line));
    set.first_line = line;
    int number = 1;
    while (std::getline(in, line)) {
        DataRow row;
        row.line = ++number;
        row.text = line;
        row.parsed = PluginSandbox::ParseRow(line, &row.row, &row.parse_log);
        if (row.parsed) {
            row.texts = PluginSandbox::TextColumns(row.row);
            row.parse_log.clear();
        }
        set.rows.push_back(std::move(row));
    }
    return set;
}

namespace {

// Equal factors, a NaN being equal to a NaN: a row with a "nan" factor is still found, to be
// refused by its line.
bool SameFactors(const Factors& a, const Factors& b) {
    for (int i = 0; i < kFactorCount; ++i) {
        if (a[i] != b[i] && !(std::isnan(a[i]) && std::isnan(b[i]))) {
            return false;
        }
    }
    return true;
}

}  // namespace

const DataRow* FindRow(const DataSet& set, const powermeter::PowerFactors& record) {
    const Factors factors = FactorsOf(record);
    const std::vector<std::string> texts = PluginSandbox::TextColumns(record);
    for (const DataRow& row : set.rows) {
        if (row.parsed && row.row.SequenceNumber() == record.SequenceNumber() &&
            row.texts == texts && SameFactors(FactorsOf(row.row), factors)) {
            return &row;
        }
    }
    return nullptr;
}

std::string FormatRow(const DataRow& row, const Factors& factors) {
    std::string out = fmt::format("{}", row.row.SequenceNumber());
    for (const std::string& t : row.texts) {
        out += "," + t;
    }
    for (double f : factors) {
        out += "," + FactorText(f);
    }
    return out;
}

}  // namespace energyfactors
