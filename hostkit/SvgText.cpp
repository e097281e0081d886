#include "SvgText.h"

#include <cmath>

namespace hostkit {

std::string SvgEscape(const std::string& s) {
    std::string out;
    for (char c : s) {
        switch (c) {
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '&':
                out += "&amp;";
                break;
            case '"':
                out += "&quot;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

void NiceAxis(double v, double* max, double* step) {
    if (!(v > 0)) {
        v = 1;
    }
    const double raw = v / 5;
    const double mag = std::pow(10, std::floor(std::log10(raw)));
    const double n = raw / mag;
    *step = (n <= 1 ? 1 : n <= 2 ? 2 : n <= 5 ? 5 : 10) * mag;
    *max = std::ceil(v / *step) * *step;
}

}  // namespace hostkit
