// Small pieces the host kit's SVG charts share.
#pragma once

#include <string>

namespace hostkit {

// `s` with the characters that XML gives a meaning to (< > & ") written as entities.
std::string SvgEscape(const std::string& s);

// A "nice" axis for values up to `v`: a maximum that is a whole number of steps, and a step of
// 1, 2 or 5 times a power of ten, giving about five divisions.
void NiceAxis(double v, double* max, double* step);

}  // namespace hostkit
