// Text for the host programs' messages and outputs.
#pragma once

#include <cstdint>
#include <string>

namespace hostkit {

// `text` quoted for a one-line message: 'text', with bytes that are not printable ASCII
// written as \xNN and anything past 40 bytes cut to "...".
std::string Quote(const std::string& text);

// "YYYY-MM-DDTHH:MM:SSZ" for epoch seconds.
std::string Iso(int64_t epoch);

}  // namespace hostkit
