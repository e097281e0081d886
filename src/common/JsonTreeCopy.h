// Deep copy of a json-glib tree into nodes this layer owns.
#pragma once

#include <json-glib/json-glib.h>

namespace common {
namespace json {
namespace detail {

// Copies `source` and everything under it into `target`, a fresh null node owned by the
// caller (or by the container it sits in).
void CopyInto(JsonNode* target, JsonNode* source);

}  // namespace detail
}  // namespace json
}  // namespace common
