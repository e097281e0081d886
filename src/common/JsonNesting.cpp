#include "JsonNesting.h"

#include <cstring>

namespace common {
namespace json {
namespace detail {

namespace {

// Where the scan is in json-glib's lexical structure: its scanner reads double-quoted strings
// with backslash escapes, single-quoted strings without them, and /* */ comments. A quote in a
// comment opens no string, so a comment is followed too; brackets in it still count.
enum class Scan { Code, Double, Single, Comment };

}  // namespace

bool NestsDeeperThan(const char* text, unsigned limit) {
    // Each level takes a byte: shorter text (all the plug-in ever parses) needs no scan.
    if (strnlen(text, limit + 1) <= limit) {
        return false;
    }
    unsigned depth = 0;
    Scan state = Scan::Code;
    for (const char* p = text; *p != '\0'; ++p) {
        const char c = *p;
        switch (state) {
            case Scan::Double:
                if (c == '\\' && p[1] != '\0') {
                    ++p;
                } else if (c == '"') {
                    state = Scan::Code;
                }
                continue;
            case Scan::Single:
                if (c == '\'') {
                    state = Scan::Code;
                }
                continue;
            case Scan::Comment:
                if (c == '*' && p[1] == '/') {
                    ++p;
                    state = Scan::Code;
                    continue;
                }
                break;
            case Scan::Code:
                if (c == '"') {
                    state = Scan::Double;
                    continue;
                }
                if (c == '\'') {
                    state = Scan::Single;
                    continue;
                }
                if (c == '/' && p[1] == '*') {
                    ++p;
                    state = Scan::Comment;
                    continue;
                }
                break;
        }
        if (c == '[' || c == '{') {
            if (++depth > limit) {
                return true;
            }
        } else if ((c == ']' || c == '}') && depth > 0) {
            --depth;
        }
    }
    return false;
}

}  // namespace detail
}  // namespace json
}  // namespace common
