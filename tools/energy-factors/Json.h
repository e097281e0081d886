// JSON text of a string, for the tools' machine-readable output.
#pragma once

#include <string>

namespace energyfactors {

std::string JsonString(const std::string& s);

}  // namespace energyfactors
