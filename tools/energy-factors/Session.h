// A metering session read back from the plug-in's own log: the set's SW model and panel type
// from the loader's lines, and one turn per calculator snapshot ("[Energy] UTC: ..." followed
// by the "[Energy Factors]" lines with the inputs and the power state).
#pragma once

#include <cstdint>
#include <istream>
#include <string>
#include <vector>

#include "Inputs.h"

namespace energyfactors {

// Seconds per metering turn.
constexpr int64_t kTurnSeconds = 10;

struct Turn {
    int64_t time = 0;  // snapshot time, seconds since the epoch (UTC)
    Inputs in;
};

struct Session {
    std::string sw_model;    // empty when the log does not say
    std::string panel_type;  // empty when the log does not say
    int row_id = -1;         // the row ID in the snapshot lines
    std::vector<Turn> turns;
};

// The largest log read: 2 GiB, about a hundred days at level info.
constexpr uint64_t kMaxLogBytes = 2048ull * 1024 * 1024;

// Throws std::runtime_error when the log cannot be read, is not a regular file, is larger than
// kMaxLogBytes or holds no complete snapshot.
Session ReadSession(const std::string& path);
Session ParseSession(std::istream& in);

}  // namespace energyfactors
