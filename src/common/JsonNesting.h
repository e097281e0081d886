// The nesting check that keeps deep text away from json-glib's recursive parser.
#pragma once

namespace common {
namespace json {
namespace detail {

// Deepest nesting of arrays and objects that Create hands to json-glib. Its parser recurses
// once per level; 200 levels take less than 32 KiB of stack, where 80,000 overflow 8 MiB.
constexpr unsigned kMaxNesting = 200;

// The deepest nesting of arrays and objects that json-glib's parser can reach on `text` (up
// to its NUL), never less; the count stops once it is above `stop`. Brackets in what the
// scanner reads as a string or a comment do not count, so the text is followed exactly as
// json-glib's scanner reads it: double-quoted strings with its escapes, single-quoted strings,
// and comments both as json-glib 1.6 reads them (from a '/' to the next '/') and as later
// versions do (also "/*" to "*/"); the larger count of the two is taken.
unsigned NestingDepth(const char* text, unsigned stop = ~0u);

// True when `text` (up to its NUL) opens more than `limit` arrays and objects at once.
bool NestsDeeperThan(const char* text, unsigned limit);

}  // namespace detail
}  // namespace json
}  // namespace common
