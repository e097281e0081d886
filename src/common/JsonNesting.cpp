#include "JsonNesting.h"

#include <algorithm>
#include <cstring>

namespace common {
namespace json {
namespace detail {

namespace {

// How the scanner reads a '/': json-glib 1.6 skips everything up to the next '/' as a comment
// ("/"/[1]" is [1]); later versions read "/*" up to "*/" as one comment first.
enum class Comments { kSlashPairs, kBlocksFirst };

bool IsHex(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

unsigned HexValue(char c) {
    return c <= '9' ? static_cast<unsigned>(c - '0') : static_cast<unsigned>((c & 7) + 9);
}

// The code unit of a \u escape whose digits start at `p`, read as json-glib reads it: up to
// four characters, the first one that is no hex digit included (so it may take the closing
// quote), each digit at its place from the left whatever the count.
unsigned ReadUnicodeEscape(const char*& p) {
    unsigned unit = 0;
    for (int i = 0; i < 4 && *p != '\0'; ++i) {
        const char c = *p++;
        if (!IsHex(c)) {
            break;
        }
        unit += HexValue(c) << ((3 - i) * 4);
    }
    return unit;
}

// Skips a double-quoted string whose opening quote is just before `p`; returns the position
// after its closing quote, or of the NUL. A backslash takes the next character; a \u escape
// takes up to four more, and one that gives half of a surrogate pair then takes a character,
// a second one when that is a backslash, and the digits of a \u after it, as json-glib does.
const char* SkipDoubleQuoted(const char* p) {
    while (*p != '\0') {
        const char c = *p++;
        if (c == '"') {
            return p;
        }
        if (c != '\\' || *p == '\0') {
            continue;
        }
        if (*p++ != 'u' || !IsHex(*p)) {
            continue;
        }
        const unsigned unit = ReadUnicodeEscape(p);
        if (unit >= 0xD800 && unit <= 0xDFFF && *p != '\0' && *p++ == '\\' && *p != '\0' &&
            *p++ == 'u') {
            ReadUnicodeEscape(p);
        }
    }
    return p;
}

unsigned Deepest(const char* text, Comments comments, unsigned stop) {
    unsigned depth = 0;
    unsigned deepest = 0;
    const char* p = text;
    while (*p != '\0') {
        switch (*p++) {
            case '[':
            case '{':
                deepest = std::max(deepest, ++depth);
                if (deepest > stop) {
                    return deepest;
                }
                break;
            case ']':
            case '}':
                depth -= depth > 0 ? 1 : 0;
                break;
            case '"':
                p = SkipDoubleQuoted(p);
                break;
            case '\'':  // no escapes: the next single quote ends it
                while (*p != '\0' && *p++ != '\'') {
                }
                break;
            case '/':
                if (comments == Comments::kBlocksFirst && *p == '*') {
                    const char* end = std::strstr(p + 1, "*/");
                    p = end != nullptr ? end + 2 : p + std::strlen(p);
                } else {
                    while (*p != '\0' && *p++ != '/') {
                    }
                }
                break;
            default:
                break;
        }
    }
    return deepest;
}

}  // namespace

unsigned NestingDepth(const char* text, unsigned stop) {
    const unsigned slash_pairs = Deepest(text, Comments::kSlashPairs, stop);
    return slash_pairs > stop ? slash_pairs
                              : std::max(slash_pairs, Deepest(text, Comments::kBlocksFirst, stop));
}

bool NestsDeeperThan(const char* text, unsigned limit) {
    // Each level takes a byte: shorter text (all the plug-in ever parses) needs no scan.
    if (strnlen(text, limit + 1) <= limit) {
        return false;
    }
    return NestingDepth(text, limit) > limit;
}

}  // namespace detail
}  // namespace json
}  // namespace common
