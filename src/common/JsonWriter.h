// The JSON text of a json-glib tree.
#pragma once

#include <json-glib/json-glib.h>

#include <string>

namespace common {
namespace json {
namespace detail {

// The text is json-glib 1.6's own (json_to_string) byte for byte, compact and pretty, except
// where that generator writes something that is not JSON: it leaves U+001F unescaped, appends
// ".0" after an exponent ("1e-300.0"), prints infinities and NaN as "inf.0" / "nan.0" and
// copies bytes that are not UTF-8. Here U+001F becomes \u001f, the ".0" goes before the
// exponent ("1.0e-300"), a non-finite double is written as null and each stray byte as U+FFFD.
void WriteNode(std::string& out, JsonNode* node, bool pretty);

}  // namespace detail
}  // namespace json
}  // namespace common
