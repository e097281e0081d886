// The guard on json-glib's node layout behind bugfix::clear_node: the mirrored struct, the
// check of it against a live json-glib, and the in-place clearing itself.
#include <json-glib/json-glib.h>

#include <atomic>
#include <cstddef>

#include "JsonNodeLayout.h"

#include "JsonGlibPtr.h"
#include "Log.h"
#include "SharedJson.h"

namespace common {
namespace json {

namespace {

using detail::ArrayPtr;
using detail::make_owner;
using detail::ObjectPtr;

// struct _JsonNode of json-glib 1.6 (json-glib/json-types-private.h). Only `data` is written;
// the other fields are mirrored to place it and to check the layout against a live node.
struct NodeLayout {
    JsonNodeType type;
    volatile gint ref_count;
    gboolean immutable : 1;
    gboolean allocated : 1;
    union {
        JsonObject* object;
        JsonArray* array;
        void* value;  // JsonValue*, private to json-glib
    } data;
    JsonNode* parent;
};

// The three leading 32-bit fields put the payload right after them, rounded up to pointer
// alignment: offset 16 on LP64, 12 on ILP32.
static_assert(offsetof(NodeLayout, type) == 0, "type leads the node");
static_assert(offsetof(NodeLayout, ref_count) == sizeof(int), "ref_count follows type");
static_assert(offsetof(NodeLayout, data) ==
                  ((3 * sizeof(int) + alignof(void*) - 1) / alignof(void*)) * alignof(void*),
              "payload follows the three 32-bit fields");
static_assert(offsetof(NodeLayout, parent) == offsetof(NodeLayout, data) + sizeof(void*),
              "parent follows the payload");

NodeLayout* layout_of(JsonNode* node) {
    return reinterpret_cast<NodeLayout*>(node);
}

// Compares the mirrored fields with what json-glib's public API reports for nodes of each
// container kind and for a nested node (parent pointer).
bool probe_layout() {
    SharedJson::Owner object_node = make_owner(json_node_new(JSON_NODE_OBJECT));
    ObjectPtr object(json_object_new());
    json_node_set_object(object_node.get(), object.get());
    SharedJson::Owner array_node = make_owner(json_node_new(JSON_NODE_ARRAY));
    ArrayPtr array(json_array_new());
    json_node_set_array(array_node.get(), array.get());
    json_array_add_null_element(array.get());
    JsonNode* element = json_array_get_element(array.get(), 0);

    const NodeLayout* o = layout_of(object_node.get());
    const NodeLayout* a = layout_of(array_node.get());
    const NodeLayout* e = layout_of(element);
    return o->type == JSON_NODE_OBJECT && o->ref_count == 1 && o->data.object == object.get() &&
           o->parent == nullptr && a->type == JSON_NODE_ARRAY && a->data.array == array.get() &&
           e->type == JSON_NODE_NULL && e->parent == json_node_get_parent(element);
}

}  // namespace

namespace bugfix {

bool node_layout_matches() {
    static const bool matches = probe_layout();
    return matches;
}

void clear_node(_JsonNode* node) {
    // A null node with no payload (every new member) is already what this makes.
    if (node_layout_matches() && layout_of(node)->type == JSON_NODE_NULL &&
        layout_of(node)->data.value == nullptr) {
        return;
    }
    json_node_init_null(node);
    // json_node_init refuses a node that more than one holder references; the payload is
    // then still live and must stay where it is.
    if (json_node_get_node_type(node) != JSON_NODE_NULL) {
        return;
    }
    if (node_layout_matches()) {
        layout_of(node)->data.value = nullptr;
    } else {
        static std::atomic<bool> reported{false};
        if (!reported.exchange(true)) {
            CLOGE("json-glib node layout is not the expected one; payload left in place");
        }
    }
}

}  // namespace bugfix

namespace detail {

int node_references(_JsonNode* node) {
    return bugfix::node_layout_matches() ? layout_of(node)->ref_count : 0;
}

}  // namespace detail

}  // namespace json
}  // namespace common
