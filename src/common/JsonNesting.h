// The nesting check that keeps deep text away from json-glib's recursive parser.
#pragma once

namespace common {
namespace json {
namespace detail {

// Deepest nesting of arrays and objects that Create hands to json-glib. Its parser recurses
// once per level; 200 levels take less than 32 KiB of stack, where 80,000 overflow 8 MiB.
constexpr unsigned kMaxNesting = 200;

// True when `text` (up to its NUL) opens more than `limit` arrays and objects at once. Brackets
// inside strings do not count; everything else the parser's scanner skips is counted, so the
// result is never below the depth the parser would reach.
bool NestsDeeperThan(const char* text, unsigned limit);

}  // namespace detail
}  // namespace json
}  // namespace common
