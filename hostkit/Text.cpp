#include "Text.h"

#include <cstdio>
#include <ctime>

namespace hostkit {

std::string Quote(const std::string& text) {
    constexpr size_t kShown = 40;
    std::string out = "'";
    for (size_t i = 0; i < text.size() && i < kShown; ++i) {
        unsigned char c = static_cast<unsigned char>(text[i]);
        if (c >= 0x20 && c < 0x7f) {
            out += static_cast<char>(c);
        } else {
            char hex[8];
            std::snprintf(hex, sizeof hex, "\\x%02x", c);
            out += hex;
        }
    }
    return out + (text.size() > kShown ? "...'" : "'");
}

std::string Iso(int64_t epoch) {
    std::time_t t = static_cast<std::time_t>(epoch);
    std::tm tm{};
    gmtime_r(&t, &tm);
    char buf[32];
    std::strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%SZ", &tm);
    return buf;
}

}  // namespace hostkit
