#include "Scenario.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <optional>
#include <sstream>

#include "Error.h"
#include "InputFile.h"
#include "ServiceNames.h"

namespace energysim {
namespace {

// Seconds per unit of a duration term, or 0 for an unknown unit.
uint64_t UnitSeconds(char unit) {
    switch (unit) {
        case 'd':
            return 86400;
        case 'h':
            return 3600;
        case 'm':
            return 60;
        case 's':
            return 1;
        default:
            return 0;
    }
}

}  // namespace

bool ParseDuration(const std::string& text, uint64_t* seconds) {
    if (text.empty()) {
        return false;
    }
    if (text.find(':') != std::string::npos) {
        unsigned long long h = 0, m = 0, s = 0;
        char tail = 0;
        int n = std::sscanf(text.c_str(), "%llu:%llu:%llu%c", &h, &m, &s, &tail);
        size_t colons = std::count(text.begin(), text.end(), ':');
        bool digits = text.find_first_not_of("0123456789:") == std::string::npos;
        if (!digits || colons > 2 || n != static_cast<int>(colons) + 1 || m > 59 || s > 59 ||
            text.size() > 20 || h > kMaxDurationSeconds / 3600) {
            return false;
        }
        *seconds = h * 3600 + m * 60 + s;
        return true;
    }
    uint64_t total = 0;
    size_t i = 0;
    bool any = false;
    while (i < text.size()) {
        size_t start = i;
        while (i < text.size() && std::isdigit(static_cast<unsigned char>(text[i]))) {
            ++i;
        }
        if (i == start || i - start > 9) {
            return false;
        }
        uint64_t n = std::stoull(text.substr(start, i - start));
        uint64_t unit = 1;
        if (i < text.size()) {
            unit = UnitSeconds(text[i++]);
            if (unit == 0) {
                return false;
            }
        } else if (any) {
            return false;  // "1h30" is ambiguous
        }
        // Each term is below 10^14 and the total stays at most 10^12: no overflow.
        total += n * unit;
        if (total > kMaxDurationSeconds) {
            return false;
        }
        any = true;
    }
    *seconds = total;
    return any;
}

bool Scenario::SetsCorvaneAtStart() const {
    for (const ScenarioEntry& e : entries) {
        if (e.offset == 0 && e.command.Is("protocol") &&
            e.command.text == powermeter::names::kProtocol) {
            return true;
        }
    }
    return false;
}

namespace {

// One line without its comment: nothing for a blank line, else the entry after `previous`.
// Throws SimError(why) for a bad entry.
std::optional<ScenarioEntry> ParseEntry(const std::string& line, uint64_t previous) {
    std::istringstream words(line);
    std::string when;
    if (!(words >> when)) {
        return std::nullopt;
    }
    bool relative = when[0] == '+';
    uint64_t offset = 0;
    if (!ParseDuration(relative ? when.substr(1) : when, &offset)) {
        throw SimError("bad time " + Quote(when) +
                       " (use e.g. 90s, 15m, 3h, 1h30m, 2d or HH:MM[:SS])");
    }
    ScenarioEntry e;
    e.offset = relative ? previous + offset : offset;
    if (e.offset < previous) {
        throw SimError("time goes back (entries must be in time order)");
    }
    if (e.offset > kMaxDurationSeconds) {
        throw SimError("time is past any run");
    }
    std::string name;
    if (!(words >> name)) {
        throw SimError("missing command after the time");
    }
    CommandArgs args;
    std::getline(words >> std::ws, args.rest);
    args.rest.erase(args.rest.find_last_not_of(" \t") + 1);
    std::istringstream split(args.rest);
    for (std::string word; split >> word;) {
        args.words.push_back(word);
    }
    e.command = ParseCommand(name, args);
    return e;
}

}  // namespace

Scenario ParseScenario(std::istream& in, const std::string& origin) {
    Scenario scenario;
    scenario.origin = origin;
    int line_no = 0;
    uint64_t previous = 0;
    // Lines are read into a bounded buffer, so a huge line costs no more than the bound.
    std::vector<char> buffer(kMaxLineBytes + 2);
    while (true) {
        in.getline(buffer.data(), static_cast<std::streamsize>(buffer.size()));
        const size_t got = static_cast<size_t>(in.gcount());
        const bool too_long = in.fail() && !in.eof() && got + 1 >= buffer.size();
        if (got == 0 && !in) {
            break;
        }
        ++line_no;
        try {
            if (too_long) {
                throw SimError("line longer than " + std::to_string(kMaxLineBytes) + " bytes");
            }
            // gcount() counts the newline when one was read.
            std::string line(buffer.data(), in.eof() ? got : got - 1);
            if (!line.empty() && line.back() == '\r') {
                line.pop_back();
            }
            if (auto e = ParseEntry(line.substr(0, line.find('#')), previous)) {
                e->line = line_no;
                previous = e->offset;
                scenario.entries.push_back(std::move(*e));
            }
        } catch (const SimError& why) {
            throw SimError(origin + ":" + std::to_string(line_no) + ": " + why.what());
        }
        if (in.eof()) {
            break;
        }
    }
    return scenario;
}

void CheckClockJumps(const Scenario& scenario, int64_t start, uint64_t duration) {
    const auto& entries = scenario.entries;
    int64_t shift = 0;
    for (size_t i = 0; i < entries.size() && entries[i].offset < duration; ++i) {
        if (!entries[i].command.Is("clock")) {
            continue;
        }
        shift += entries[i].command.numbers[0];
        // Offsets and jumps are at most kMaxDurationSeconds each: no overflow.
        const int64_t at = start + static_cast<int64_t>(entries[i].offset) + shift;
        uint64_t until = duration;  // the wall clock runs on from the jump to the next one
        for (size_t j = i + 1; j < entries.size() && entries[j].offset < duration; ++j) {
            if (entries[j].command.Is("clock")) {
                until = entries[j].offset;
                break;
            }
        }
        const std::string where = scenario.origin + ":" + std::to_string(entries[i].line) + ": ";
        if (at < 0) {
            throw SimError(where + Describe(entries[i].command) +
                           " would move the wall clock before 1970");
        }
        if (start + shift + static_cast<int64_t>(until) > kLastTimeStamp) {
            throw SimError(where + "after " + Describe(entries[i].command) +
                           " the run would end after 2106-02-07T06:28:15Z, past 32-bit time "
                           "stamps");
        }
    }
}

Scenario ParseScenario(const std::string& text, const std::string& origin) {
    std::istringstream in(text);
    return ParseScenario(in, origin);
}

Scenario LoadScenario(const std::string& path) {
    hostkit::InputFile file(path, kMaxScenarioBytes);
    std::istream in(&file);
    Scenario scenario;
    if (file.ok()) {
        scenario = ParseScenario(in, path);
    }
    if (!file.ok()) {
        throw SimError("cannot read scenario " + path + ": " + file.error());
    }
    return scenario;
}

}  // namespace energysim
