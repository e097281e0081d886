// SharedJson: the handle on one json-glib node.
#include "SharedJson.h"

#include <json-glib/json-glib.h>

#include "JsonGlibPtr.h"
#include "JsonNesting.h"
#include "JsonNodeLayout.h"
#include "JsonTreeCopy.h"
#include "JsonWriter.h"
#include "Log.h"

namespace common {
namespace json {

namespace {

using detail::ArrayPtr;
using detail::CopyInto;
using detail::GCharPtr;
using detail::kMaxNesting;
using detail::make_owner;
using detail::NestsDeeperThan;
using detail::new_null_node;
using detail::ObjectPtr;
using detail::ParserPtr;
using detail::WriteNode;

void collect_name(JsonObject*, const gchar* name, JsonNode*, gpointer user_data) {
    static_cast<std::vector<std::string>*>(user_data)->emplace_back(name);
}

// One parser per thread, reused for every document: making and finalising a parser object
// costs more than parsing the plug-in's payload. It keeps the last tree until the next parse
// on its thread, and goes when the thread ends.
JsonParser* thread_parser() {
    thread_local const ParserPtr parser(json_parser_new());
    return parser.get();
}

}  // namespace

SharedJson::SharedJson() : owner(new_null_node()), node(owner.get()) {}

SharedJson::SharedJson(const char* text)
    : owner(make_owner(json_node_init_string(json_node_alloc(), text))), node(owner.get()) {}

SharedJson::SharedJson(const std::string& text) : SharedJson(text.c_str()) {}

SharedJson::SharedJson(double value)
    : owner(make_owner(json_node_init_double(json_node_alloc(), value))), node(owner.get()) {}

SharedJson::SharedJson(long long value)
    : owner(make_owner(json_node_init_int(json_node_alloc(), value))), node(owner.get()) {}

SharedJson::SharedJson(bool value)
    : owner(make_owner(json_node_init_boolean(json_node_alloc(), value))), node(owner.get()) {}

SharedJson::SharedJson(const SharedJson& other) : owner(other.share_tree()), node(other.node) {}

SharedJson::SharedJson(SharedJson&& other) noexcept
    : owner(std::move(other.owner)), node(other.node) {
    other.node = nullptr;
}

SharedJson::SharedJson(Owner owner_) : owner(std::move(owner_)), node(owner.get()) {}

SharedJson::SharedJson(Owner owner_, _JsonNode* node_) : owner(std::move(owner_)), node(node_) {}

SharedJson& SharedJson::operator=(const SharedJson& other) {
    Owner taken = other.share_tree();
    owner = std::move(taken);
    node = other.node;
    return *this;
}

void SharedJson::reset() {
    Owner fresh = new_null_node();
    node = fresh.get();
    owner = std::move(fresh);
}

SharedJson SharedJson::Create(const char* text) {
    if (text == nullptr) {
        CLOGE("failed to parse: %s", "(null)");
        return SharedJson();
    }
    if (NestsDeeperThan(text, kMaxNesting)) {
        // Refused before json-glib sees it: its recursive parser would run out of stack.
        CLOGE("failed to parse: %s", text);
        return SharedJson();
    }
    JsonParser* parser = thread_parser();
    if (!json_parser_load_from_data(parser, text, -1, nullptr)) {
        CLOGE("failed to parse: %s", text);
        return SharedJson();
    }
    JsonNode* root = json_parser_get_root(parser);
    if (root == nullptr) {
        return SharedJson();
    }
    // A shallow copy: the tree below is shared with the parser until its next document, but
    // the root node has this handle as its only holder, as in-place changes require.
    return SharedJson(make_owner(json_node_copy(root)));
}

SharedJson SharedJson::Create(const std::string& text) {
    return Create(text.c_str());
}

void SharedJson::init(JsonType type) {
    bugfix::clear_node(node);
    switch (type) {
        case JsonType::Bool:
            json_node_init_boolean(node, FALSE);
            break;
        case JsonType::Int:
            json_node_init_int(node, 0);
            break;
        case JsonType::Double:
            json_node_init_double(node, 0.0);
            break;
        case JsonType::String:
            json_node_init_string(node, "");
            break;
        case JsonType::Object: {
            ObjectPtr object(json_object_new());
            json_node_init_object(node, object.get());
            break;
        }
        case JsonType::Array: {
            ArrayPtr array(json_array_new());
            json_node_init_array(node, array.get());
            break;
        }
        case JsonType::Null:
        default:
            break;  // clear_node left a null node
    }
}

bool SharedJson::has(const char* key) const {
    return json_object_has_member(json_node_get_object(node), key);
}

SharedJson SharedJson::operator[](const std::string& key) const {
    return SharedJson(share_tree(),
                      json_object_get_member(json_node_get_object(node), key.c_str()));
}

SharedJson SharedJson::operator[](unsigned index) const {
    return SharedJson(share_tree(), json_array_get_element(json_node_get_array(node), index));
}

_JsonNode* SharedJson::find_member(const char* key) const {
    return json_object_get_member(json_node_get_object(node), key);
}

_JsonNode* SharedJson::add_null_member(const std::string& key) {
    JsonNode* member = json_node_new(JSON_NODE_NULL);
    json_object_set_member(json_node_get_object(node), key.c_str(), member);
    return member;
}

void SharedJson::alloc_member(const std::string& key) {
    json_object_set_member(json_node_get_object(node), key.c_str(), json_node_new(JSON_NODE_NULL));
}

void SharedJson::remove_member(const std::string& key) {
    json_object_remove_member(json_node_get_object(node), key.c_str());
}

unsigned SharedJson::object_size() const {
    return json_object_get_size(json_node_get_object(node));
}

unsigned SharedJson::array_size() const {
    return json_array_get_length(json_node_get_array(node));
}

void SharedJson::resize(unsigned n) {
    JsonArray* array = json_node_get_array(node);
    unsigned length = json_array_get_length(array);
    while (length > n) {
        json_array_remove_element(array, --length);
    }
    while (length < n) {
        json_array_add_null_element(array);
        ++length;
    }
}

void SharedJson::append(SharedJson&& other) {
    add_element(other);
    other.reset();
}

void SharedJson::add_element(const SharedJson& other) {
    json_array_add_element(json_node_get_array(node), json_node_ref(other.node));
}

SharedJson::Owner SharedJson::share_tree() const {
    return make_owner(owner ? json_node_ref(owner.get()) : nullptr);
}

void SharedJson::set(SharedJson&& other) {
    if (&other == this) {
        return;
    }
    take(other, true);
}

void SharedJson::release(bool refill) {
    if (refill) {
        reset();
    } else {
        owner.reset();
        node = nullptr;
    }
}

void SharedJson::take(SharedJson& other, bool refill) {
    // Everything needed from `other` is taken before this node is cleared, and `other` lets go
    // of its tree first: it may share this very tree, and json-glib re-initialises only a node
    // that nobody else holds.
    switch (other.type()) {
        case JsonType::Bool: {
            const bool value = other.get_bool();
            other.release(refill);
            bugfix::clear_node(node);
            json_node_init_boolean(node, value);
            break;
        }
        case JsonType::Int: {
            const long long value = other.get_int();
            other.release(refill);
            bugfix::clear_node(node);
            json_node_init_int(node, value);
            break;
        }
        case JsonType::Double: {
            const double value = other.get_double();
            other.release(refill);
            bugfix::clear_node(node);
            json_node_init_double(node, value);
            break;
        }
        case JsonType::String: {
            GCharPtr value(json_node_dup_string(other.node));
            other.release(refill);
            bugfix::clear_node(node);
            json_node_init_string(node, value.get());
            break;
        }
        case JsonType::Object: {
            ObjectPtr object(json_node_dup_object(other.node));
            other.release(refill);
            bugfix::clear_node(node);
            json_node_init_object(node, object.get());
            break;
        }
        case JsonType::Array: {
            ArrayPtr array(json_node_dup_array(other.node));
            other.release(refill);
            bugfix::clear_node(node);
            json_node_init_array(node, array.get());
            break;
        }
        case JsonType::Null:
        default:
            other.release(refill);
            bugfix::clear_node(node);
            break;
    }
}

void SharedJson::assign(const char* value) {
    bugfix::clear_node(node);
    json_node_init_string(node, value);
}

void SharedJson::assign(double value) {
    bugfix::clear_node(node);
    json_node_init_double(node, value);
}

void SharedJson::assign(long long value) {
    bugfix::clear_node(node);
    json_node_init_int(node, value);
}

void SharedJson::assign(bool value) {
    bugfix::clear_node(node);
    json_node_init_boolean(node, value);
}

void SharedJson::set(const SharedJson& other) {
    set(other.clone());
}

SharedJson SharedJson::clone() const {
    Owner copy = new_null_node();
    CopyInto(copy.get(), node);
    return SharedJson(std::move(copy));
}

bool SharedJson::equal(const SharedJson& other) const {
    return json_node_equal(node, other.node);
}

long long SharedJson::get_int() const {
    return json_node_get_int(node);
}

double SharedJson::get_double() const {
    return json_node_get_double(node);
}

bool SharedJson::get_bool() const {
    return json_node_get_boolean(node) != FALSE;
}

std::string SharedJson::get_string() const {
    const gchar* text = json_node_get_string(node);
    return text != nullptr ? std::string(text) : std::string();
}

JsonType SharedJson::type() const {
    switch (json_node_get_node_type(node)) {
        case JSON_NODE_OBJECT:
            return JsonType::Object;
        case JSON_NODE_ARRAY:
            return JsonType::Array;
        case JSON_NODE_VALUE:
            break;
        case JSON_NODE_NULL:
        default:
            return JsonType::Null;
    }
    const GType value_type = json_node_get_value_type(node);
    if (value_type == G_TYPE_BOOLEAN) {
        return JsonType::Bool;
    }
    if (value_type == G_TYPE_INT64) {
        return JsonType::Int;
    }
    if (value_type == G_TYPE_DOUBLE) {
        return JsonType::Double;
    }
    if (value_type == G_TYPE_STRING) {
        return JsonType::String;
    }
    return JsonType::Null;
}

std::string SharedJson::to_string(bool pretty) const {
    std::string text;
    WriteNode(text, node, pretty);
    return text;
}

std::vector<std::string> SharedJson::get_member_names() const {
    std::vector<std::string> names;
    JsonObject* object = json_node_get_object(node);
    names.reserve(json_object_get_size(object));
    json_object_foreach_member(object, &collect_name, &names);
    return names;
}

const char* SharedJson::GlibcVersion() {
    return "1.6.6";
}

}  // namespace json
}  // namespace common
