#include "Meter.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <stdexcept>

#include "InputFile.h"

namespace energyfactors {

namespace {

// A number, "nan", "inf" and overflowing ones included: the caller says which it takes.
bool ParseNumber(const std::string& text, double* out) {
    const char* begin = text.c_str();
    char* end = nullptr;
    *out = std::strtod(begin, &end);
    while (end != nullptr && (*end == ' ' || *end == '\r')) {
        ++end;
    }
    return end != begin && *end == '\0';
}

bool ParseTime(const std::string& text, double* out) {
    if (ParseNumber(text, out)) {
        return std::isfinite(*out);
    }
    std::tm tm{};
    double seconds = 0;
    int used = 0;
    if (std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%lf%n", &tm.tm_year, &tm.tm_mon, &tm.tm_mday,
                    &tm.tm_hour, &tm.tm_min, &seconds, &used) != 6 ||
        text.compare(used, std::string::npos, "Z") != 0) {
        return false;
    }
    tm.tm_year -= 1900;
    tm.tm_mon -= 1;
    *out = static_cast<double>(timegm(&tm)) + seconds;
    return true;
}

}  // namespace

std::vector<Sample> ReadMeter(const std::string& path) {
    hostkit::InputFile file(path, kMaxMeterBytes);
    std::istream in(&file);
    std::vector<Sample> samples;
    std::string line;
    int number = 0;
    bool header_allowed = true;
    while (std::getline(in, line)) {
        ++number;
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        if (line.empty() || line[0] == '#') {
            continue;
        }
        const size_t comma = line.find(',');
        Sample s;
        if (comma != std::string::npos && ParseTime(line.substr(0, comma), &s.time) &&
            ParseNumber(line.substr(comma + 1), &s.watts)) {
            // Refused even where a header could stand: a sample it is, and no meter reads it.
            if (!(std::fabs(s.watts) <= kMaxMeterWatts)) {
                throw std::runtime_error(
                    fmt::format("{}:{}: watts out of range (a number from -{:.0f} to {:.0f})", path,
                                number, kMaxMeterWatts, kMaxMeterWatts));
            }
            samples.push_back(s);
        } else if (!header_allowed) {
            throw std::runtime_error(fmt::format(
                "{}:{}: not \"time,watts\" (seconds or UTC time, then watts)", path, number));
        }
        header_allowed = false;
    }
    if (!file.ok()) {
        throw std::runtime_error(fmt::format("cannot read {}: {}", path, file.error()));
    }
    if (samples.empty()) {
        throw std::runtime_error(fmt::format("{}: no samples", path));
    }
    return samples;
}

std::string FormatMeter(const std::vector<Sample>& samples) {
    std::string out = "time,watts\n";
    for (const Sample& s : samples) {
        out += fmt::format("{:.3f},{:.3f}\n", s.time, s.watts);
    }
    return out;
}

std::vector<TurnMeasure> AverageOverTurns(std::vector<Sample> samples,
                                          const std::vector<Turn>& turns) {
    std::sort(samples.begin(), samples.end(),
              [](const Sample& a, const Sample& b) { return a.time < b.time; });
    std::vector<TurnMeasure> out(turns.size());
    for (size_t i = 0; i < turns.size(); ++i) {
        const double begin = static_cast<double>(turns[i].time);
        auto it = std::lower_bound(samples.begin(), samples.end(), begin,
                                   [](const Sample& s, double t) { return s.time < t; });
        double sum = 0;
        int n = 0;
        for (; it != samples.end() && it->time < begin + kTurnSeconds; ++it) {
            sum += it->watts;
            ++n;
        }
        out[i] = {n, n > 0 ? sum / n : 0.0};
    }
    return out;
}

}  // namespace energyfactors
