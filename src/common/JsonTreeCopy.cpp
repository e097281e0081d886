#include "JsonTreeCopy.h"

#include "JsonGlibPtr.h"

namespace common {
namespace json {
namespace detail {

namespace {

void copy_member(JsonObject*, const gchar* name, JsonNode* member, gpointer user_data) {
    JsonNode* copy = json_node_new(JSON_NODE_NULL);
    CopyInto(copy, member);
    json_object_set_member(static_cast<JsonObject*>(user_data), name, copy);
}

void copy_element(JsonArray*, guint index, JsonNode* element, gpointer user_data) {
    CopyInto(json_array_get_element(static_cast<JsonArray*>(user_data), index), element);
}

}  // namespace

void CopyInto(JsonNode* target, JsonNode* source) {
    switch (json_node_get_node_type(source)) {
        case JSON_NODE_OBJECT: {
            ObjectPtr object(json_object_new());
            json_object_foreach_member(json_node_get_object(source), &copy_member, object.get());
            json_node_init_object(target, object.get());
            break;
        }
        case JSON_NODE_ARRAY: {
            JsonArray* from = json_node_get_array(source);
            const guint n = json_array_get_length(from);
            ArrayPtr array(json_array_sized_new(n));
            for (guint i = 0; i < n; ++i) {
                json_array_add_null_element(array.get());
            }
            json_array_foreach_element(from, &copy_element, array.get());
            json_node_init_array(target, array.get());
            break;
        }
        case JSON_NODE_VALUE: {
            ScopedValue value;
            json_node_get_value(source, value.get());
            json_node_init(target, JSON_NODE_VALUE);
            json_node_set_value(target, value.get());
            break;
        }
        case JSON_NODE_NULL:
        default:
            json_node_init_null(target);
            break;
    }
}

}  // namespace detail
}  // namespace json
}  // namespace common
