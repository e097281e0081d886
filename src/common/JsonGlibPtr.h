// Owning wrappers for what json-glib and GLib hand out, shared by the JSON layer's sources.
#pragma once

#include <json-glib/json-glib.h>

#include <memory>

#include "SharedJson.h"

namespace common {
namespace json {
namespace detail {

struct GObjectUnref {
    void operator()(gpointer object) const noexcept { g_object_unref(object); }
};
using ParserPtr = std::unique_ptr<JsonParser, GObjectUnref>;

struct GFree {
    void operator()(gpointer p) const noexcept { g_free(p); }
};
using GCharPtr = std::unique_ptr<gchar, GFree>;

struct ObjectUnref {
    void operator()(JsonObject* object) const noexcept { json_object_unref(object); }
};
using ObjectPtr = std::unique_ptr<JsonObject, ObjectUnref>;

struct ArrayUnref {
    void operator()(JsonArray* array) const noexcept { json_array_unref(array); }
};
using ArrayPtr = std::unique_ptr<JsonArray, ArrayUnref>;

// A GValue that is unset on every path.
class ScopedValue {
  public:
    ScopedValue() = default;
    ScopedValue(const ScopedValue&) = delete;
    ScopedValue& operator=(const ScopedValue&) = delete;
    ~ScopedValue() {
        if (G_IS_VALUE(&value)) {
            g_value_unset(&value);
        }
    }
    GValue* get() { return &value; }

  private:
    GValue value = G_VALUE_INIT;
};

inline SharedJson::Owner make_owner(JsonNode* node) {
    return SharedJson::Owner(node, &json_node_unref);
}

inline SharedJson::Owner new_null_node() {
    return make_owner(json_node_new(JSON_NODE_NULL));
}

}  // namespace detail
}  // namespace json
}  // namespace common
