#include "SharedJson.h"

#include <json-glib/json-glib.h>

#include <cmath>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <utility>

#include "Log.h"

namespace common {
namespace json {

namespace {

// ---- Owning wrappers for what json-glib and GLib hand out ----

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

SharedJson::Owner MakeOwner(JsonNode* node) {
    return SharedJson::Owner(node, &json_node_unref);
}

SharedJson::Owner NewNullNode() {
    return MakeOwner(json_node_new(JSON_NODE_NULL));
}

// ---- The node layout that bugfix::clear_node writes into ----

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

NodeLayout* Layout(JsonNode* node) {
    return reinterpret_cast<NodeLayout*>(node);
}

// Compares the mirrored fields with what json-glib's public API reports for nodes of each
// container kind and for a nested node (parent pointer).
bool ProbeLayout() {
    SharedJson::Owner object_node = MakeOwner(json_node_new(JSON_NODE_OBJECT));
    ObjectPtr object(json_object_new());
    json_node_set_object(object_node.get(), object.get());
    SharedJson::Owner array_node = MakeOwner(json_node_new(JSON_NODE_ARRAY));
    ArrayPtr array(json_array_new());
    json_node_set_array(array_node.get(), array.get());
    json_array_add_null_element(array.get());
    JsonNode* element = json_array_get_element(array.get(), 0);

    const NodeLayout* o = Layout(object_node.get());
    const NodeLayout* a = Layout(array_node.get());
    const NodeLayout* e = Layout(element);
    return o->type == JSON_NODE_OBJECT && o->ref_count == 1 && o->data.object == object.get() &&
           o->parent == nullptr && a->type == JSON_NODE_ARRAY && a->data.array == array.get() &&
           e->type == JSON_NODE_NULL && e->parent == json_node_get_parent(element);
}

// ---- Deep copy ----

void CopyInto(JsonNode* target, JsonNode* source);

void CopyMember(JsonObject*, const gchar* name, JsonNode* member, gpointer user_data) {
    JsonNode* copy = json_node_new(JSON_NODE_NULL);
    CopyInto(copy, member);
    json_object_set_member(static_cast<JsonObject*>(user_data), name, copy);
}

void CopyElement(JsonArray*, guint index, JsonNode* element, gpointer user_data) {
    CopyInto(json_array_get_element(static_cast<JsonArray*>(user_data), index), element);
}

// `target` is a fresh null node owned by the caller (or by the container it sits in).
void CopyInto(JsonNode* target, JsonNode* source) {
    switch (json_node_get_node_type(source)) {
        case JSON_NODE_OBJECT: {
            ObjectPtr object(json_object_new());
            json_object_foreach_member(json_node_get_object(source), &CopyMember, object.get());
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
            json_array_foreach_element(from, &CopyElement, array.get());
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

void CollectName(JsonObject*, const gchar* name, JsonNode*, gpointer user_data) {
    static_cast<std::vector<std::string>*>(user_data)->emplace_back(name);
}

// ---- Text of numbers ----

std::string Format(size_t capacity, const char* format, ...) __attribute__((format(printf, 2, 3)));

std::string Format(size_t capacity, const char* format, ...) {
    std::string text(capacity, '\0');
    va_list args;
    va_start(args, format);
    const int n = std::vsnprintf(&text[0], capacity, format, args);
    va_end(args);
    text.resize(n < 0 ? 0 : std::min(static_cast<size_t>(n), capacity - 1));
    return text;
}

// Bounds of the range tests. 2^63 itself passes the int64 test on purpose.
constexpr double kInt64Low = -9223372036854775808.0;
constexpr double kInt64High = 9223372036854775808.0;
constexpr long long kInt32Min = -2147483648LL;
constexpr long long kInt32Max = 2147483647LL;
constexpr long long kUInt32Max = 4294967295LL;

bool WithinInt64(double d) {
    return d >= kInt64Low && d <= kInt64High;
}

}  // namespace

// ---------------------------------------------------------------------------------------
// bugfix

namespace bugfix {

bool node_layout_matches() {
    static const bool matches = ProbeLayout();
    return matches;
}

void clear_node(_JsonNode* node) {
    json_node_init_null(node);
    // json_node_init refuses a node that more than one holder references; the payload is
    // then still live and must stay where it is.
    if (json_node_get_node_type(node) != JSON_NODE_NULL) {
        return;
    }
    if (node_layout_matches()) {
        Layout(node)->data.value = nullptr;
    } else {
        static bool reported = false;
        if (!reported) {
            reported = true;
            CLOGE("json-glib node layout is not the expected one; payload left in place");
        }
    }
}

}  // namespace bugfix

// ---------------------------------------------------------------------------------------
// SharedJson

SharedJson::SharedJson() : owner(NewNullNode()), node(owner.get()) {}

SharedJson::SharedJson(const char* text)
    : owner(MakeOwner(json_node_init_string(json_node_alloc(), text))), node(owner.get()) {}

SharedJson::SharedJson(const std::string& text) : SharedJson(text.c_str()) {}

SharedJson::SharedJson(double value)
    : owner(MakeOwner(json_node_init_double(json_node_alloc(), value))), node(owner.get()) {}

SharedJson::SharedJson(long long value)
    : owner(MakeOwner(json_node_init_int(json_node_alloc(), value))), node(owner.get()) {}

SharedJson::SharedJson(bool value)
    : owner(MakeOwner(json_node_init_boolean(json_node_alloc(), value))), node(owner.get()) {}

SharedJson::SharedJson(const SharedJson& other)
    : owner(MakeOwner(other.owner ? json_node_ref(other.owner.get()) : nullptr)),
      node(other.node) {}

SharedJson::SharedJson(Owner owner_) : owner(std::move(owner_)), node(owner.get()) {}

SharedJson::SharedJson(Owner owner_, _JsonNode* node_) : owner(std::move(owner_)), node(node_) {}

SharedJson& SharedJson::operator=(const SharedJson& other) {
    Owner taken = MakeOwner(other.owner ? json_node_ref(other.owner.get()) : nullptr);
    owner = std::move(taken);
    node = other.node;
    return *this;
}

void SharedJson::reset() {
    Owner fresh = NewNullNode();
    node = fresh.get();
    owner = std::move(fresh);
}

SharedJson SharedJson::Create(const char* text) {
    if (text == nullptr) {
        CLOGE("failed to parse: %s", "(null)");
        return SharedJson();
    }
    ParserPtr parser(json_parser_new());
    if (!json_parser_load_from_data(parser.get(), text, -1, nullptr)) {
        CLOGE("failed to parse: %s", text);
        return SharedJson();
    }
    JsonNode* root = json_parser_get_root(parser.get());
    if (root == nullptr) {
        return SharedJson();
    }
    return SharedJson(MakeOwner(json_node_copy(root)));
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
    return SharedJson(MakeOwner(owner ? json_node_ref(owner.get()) : nullptr),
                      json_object_get_member(json_node_get_object(node), key.c_str()));
}

SharedJson SharedJson::operator[](unsigned index) const {
    return SharedJson(MakeOwner(owner ? json_node_ref(owner.get()) : nullptr),
                      json_array_get_element(json_node_get_array(node), index));
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
    json_array_add_element(json_node_get_array(node), json_node_ref(other.node));
    other.reset();
}

void SharedJson::set(SharedJson&& other) {
    if (&other == this) {
        return;
    }
    // Everything needed from `other` is taken before this node is cleared, and `other` lets go
    // of its tree first: it may share this very tree, and json-glib re-initialises only a node
    // that nobody else holds.
    switch (other.type()) {
        case JsonType::Bool: {
            const bool value = other.get_bool();
            other.reset();
            bugfix::clear_node(node);
            json_node_init_boolean(node, value);
            break;
        }
        case JsonType::Int: {
            const long long value = other.get_int();
            other.reset();
            bugfix::clear_node(node);
            json_node_init_int(node, value);
            break;
        }
        case JsonType::Double: {
            const double value = other.get_double();
            other.reset();
            bugfix::clear_node(node);
            json_node_init_double(node, value);
            break;
        }
        case JsonType::String: {
            GCharPtr value(json_node_dup_string(other.node));
            other.reset();
            bugfix::clear_node(node);
            json_node_init_string(node, value.get());
            break;
        }
        case JsonType::Object: {
            ObjectPtr object(json_node_dup_object(other.node));
            other.reset();
            bugfix::clear_node(node);
            json_node_init_object(node, object.get());
            break;
        }
        case JsonType::Array: {
            ArrayPtr array(json_node_dup_array(other.node));
            other.reset();
            bugfix::clear_node(node);
            json_node_init_array(node, array.get());
            break;
        }
        case JsonType::Null:
        default:
            other.reset();
            bugfix::clear_node(node);
            break;
    }
}

void SharedJson::set(const SharedJson& other) {
    set(other.clone());
}

SharedJson SharedJson::clone() const {
    Owner copy = NewNullNode();
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
    GCharPtr text(json_to_string(node, pretty ? TRUE : FALSE));
    return text ? std::string(text.get()) : std::string();
}

std::vector<std::string> SharedJson::get_member_names() const {
    std::vector<std::string> names;
    JsonObject* object = json_node_get_object(node);
    names.reserve(json_object_get_size(object));
    json_object_foreach_member(object, &CollectName, &names);
    return names;
}

const char* SharedJson::GlibcVersion() {
    return "1.6.6";
}

// ---------------------------------------------------------------------------------------
// JsonValue::ChildManager

JsonValue::ChildManager::ChildManager(JsonType type_) : type(type_) {}

JsonValue& JsonValue::ChildManager::get(const SharedJson& parent, const std::string& key) const {
    auto found = members.find(key);
    if (found != members.end()) {
        return found->second;
    }
    return members.emplace(key, JsonValue(parent[key])).first->second;
}

JsonValue& JsonValue::ChildManager::get(const SharedJson& parent, unsigned index) const {
    auto found = elements.find(index);
    if (found != elements.end()) {
        return found->second;
    }
    return elements.emplace(index, JsonValue(parent[index])).first->second;
}

void JsonValue::ChildManager::erase(const std::string& key) {
    members.erase(key);
}

void JsonValue::ChildManager::resize(unsigned n) {
    for (auto it = elements.begin(); it != elements.end();) {
        if (it->first >= n) {
            it = elements.erase(it);
        } else {
            ++it;
        }
    }
}

void JsonValue::ChildManager::clear() {
    elements.clear();
    members.clear();
}

void JsonValue::ChildManager::set_type(JsonType type_) {
    if (type_ != type) {
        clear();
    }
    type = type_;
}

// ---------------------------------------------------------------------------------------
// JsonValue: construction and assignment

JsonValue::JsonValue() : children(new ChildManager(JsonType::Null)) {}

JsonValue::JsonValue(JsonType type) : children(new ChildManager(type)) {
    shared.init(type);
}

JsonValue::JsonValue(const std::string& value)
    : shared(value), children(new ChildManager(JsonType::String)) {}

JsonValue::JsonValue(const char* value)
    : shared(value), children(new ChildManager(JsonType::String)) {}

JsonValue::JsonValue(double value) : shared(value), children(new ChildManager(JsonType::Double)) {}

JsonValue::JsonValue(long long value) : shared(value), children(new ChildManager(JsonType::Int)) {}

JsonValue::JsonValue(int value)
    : shared(static_cast<long long>(value)), children(new ChildManager(JsonType::Int)) {}

JsonValue::JsonValue(unsigned int value)
    : shared(static_cast<long long>(value)), children(new ChildManager(JsonType::Int)) {}

JsonValue::JsonValue(bool value) : shared(value), children(new ChildManager(JsonType::Bool)) {}

JsonValue::JsonValue(SharedJson shared_)
    : shared(std::move(shared_)), children(new ChildManager(shared.type())) {}

JsonValue::JsonValue(const JsonValue& other)
    : shared(other.shared.clone()), children(new ChildManager(shared.type())) {}

JsonValue::JsonValue(JsonValue&& other) noexcept
    : shared(other.shared), children(std::move(other.children)) {
    other.shared.reset();
}

JsonValue::~JsonValue() = default;

JsonValue& JsonValue::operator=(const JsonValue& other) {
    // Copy first: `other` may be one of this value's own cached children.
    SharedJson copy = other.shared.clone();
    cache().clear();
    shared.set(std::move(copy));
    cache().set_type(shared.type());
    return *this;
}

JsonValue& JsonValue::operator=(JsonValue&& other) {
    if (&other == this) {
        return *this;
    }
    // Take what is needed from `other` before replacing this value's cache, which may own it.
    SharedJson source(other.shared);
    other.shared.reset();
    children = std::move(other.children);
    if (shared.node == shared.owner.get() && source.owner.get() == shared.owner.get() && children) {
        // `other` lived inside the tree this value is the root of: its cached children hold
        // this root, and json-glib re-initialises only a node that nobody else holds. The
        // children are rebuilt on demand instead.
        children->clear();
    }
    shared.set(std::move(source));
    return *this;
}

JsonValue JsonValue::Create(const std::string& text) {
    return JsonValue(SharedJson::Create(text));
}

const JsonValue& JsonValue::Null() {
    static const JsonValue instance;
    return instance;
}

JsonValue::ChildManager& JsonValue::cache() const {
    // Only a moved-from value lacks a cache; it is a null value and starts a new one.
    if (!children) {
        children.reset(new ChildManager(shared.type()));
    }
    return *children;
}

// ---------------------------------------------------------------------------------------
// JsonValue: queries

JsonType JsonValue::type() const {
    return shared.type();
}

bool JsonValue::isNull() const {
    return type() == JsonType::Null;
}

bool JsonValue::isBool() const {
    return type() == JsonType::Bool;
}

bool JsonValue::isString() const {
    return type() == JsonType::String;
}

bool JsonValue::isDouble() const {
    const JsonType t = type();
    return t == JsonType::Int || t == JsonType::Double;
}

bool JsonValue::isInt() const {
    switch (type()) {
        case JsonType::Int:
            return true;
        case JsonType::Double:
            return WithinInt64(shared.get_double());
        default:
            return false;
    }
}

bool JsonValue::isConvertibleTo(JsonType target) const {
    const JsonType t = type();
    switch (target) {
        case JsonType::Null:
            switch (t) {
                case JsonType::Null:
                    return true;
                case JsonType::Bool:
                    return !asBool();
                case JsonType::Int:
                    return asInt() == 0;  // throws outside the int32 range, deliberately
                case JsonType::Double:
                    return asDouble() == 0.0;
                case JsonType::Object:
                case JsonType::Array:
                    return empty();
                default:
                    return false;
            }
        case JsonType::Bool:
        case JsonType::Double:
            return t == JsonType::Null || t == JsonType::Bool || t == JsonType::Int ||
                   t == JsonType::Double;
        case JsonType::Int:
            if (t == JsonType::Double) {
                return WithinInt64(shared.get_double());
            }
            return t == JsonType::Null || t == JsonType::Bool || t == JsonType::Int;
        case JsonType::String:
            return t == JsonType::Null || t == JsonType::Bool || t == JsonType::Int ||
                   t == JsonType::Double || t == JsonType::String;
        case JsonType::Object:
            return t == JsonType::Null || t == JsonType::Object;
        case JsonType::Array:
            return t == JsonType::Null || t == JsonType::Array;
        default:
            return false;
    }
}

unsigned JsonValue::size() const {
    switch (type()) {
        case JsonType::Object:
            return shared.object_size();
        case JsonType::Array:
            return shared.array_size();
        default:
            return 0;
    }
}

bool JsonValue::empty() const {
    switch (type()) {
        case JsonType::Null:
        case JsonType::Object:
        case JsonType::Array:
            return size() == 0;
        default:
            return false;
    }
}

bool JsonValue::isMember(const char* key) const {
    const JsonType t = type();
    check_container(t, JsonType::Object);
    return t != JsonType::Null && shared.has(key);
}

bool JsonValue::isMember(const std::string& key) const {
    return isMember(key.c_str());
}

bool JsonValue::operator==(const JsonValue& other) const {
    return shared.equal(other.shared);
}

std::vector<std::string> JsonValue::getMemberNames() const {
    const JsonType t = type();
    check_container(t, JsonType::Object);
    if (t == JsonType::Null) {
        return {};
    }
    return shared.get_member_names();
}

std::string JsonValue::toString(bool pretty) const {
    return shared.to_string(pretty);
}

// ---------------------------------------------------------------------------------------
// JsonValue: conversions

int JsonValue::asInt() const {
    switch (type()) {
        case JsonType::Null:
            return 0;
        case JsonType::Bool:
            return shared.get_bool() ? 1 : 0;
        case JsonType::Int: {
            const long long v = shared.get_int();
            if (v < kInt32Min || v > kInt32Max) {
                throw JsonException("int64_t value exceed int32_t range");
            }
            return static_cast<int>(v);
        }
        case JsonType::Double: {
            // The bounds apply to the value truncated toward zero: 2147483647.9 gives
            // 2147483647. NaN fails every comparison and is out of range.
            const double t = std::trunc(shared.get_double());
            if (!(t >= static_cast<double>(kInt32Min) && t <= static_cast<double>(kInt32Max))) {
                throw JsonException("double value exceed int32_t range");
            }
            return static_cast<int>(t);
        }
        default:
            throw JsonException("cannot convert to int32_t type");
    }
}

unsigned int JsonValue::asUInt() const {
    switch (type()) {
        case JsonType::Null:
            return 0;
        case JsonType::Bool:
            return shared.get_bool() ? 1 : 0;
        case JsonType::Int: {
            const long long v = shared.get_int();
            if (v < 0 || v > kUInt32Max) {
                throw JsonException("int64_t value exceed uint32_t range");
            }
            return static_cast<unsigned int>(v);
        }
        case JsonType::Double: {
            // Any negative double fails, even one that truncates to zero (-0.5); the upper
            // bound applies to the truncated value, as in asInt(). The int32 wording is the
            // established text of this failure.
            const double d = shared.get_double();
            const double t = std::trunc(d);
            if (!(d >= 0.0 && t <= static_cast<double>(kUInt32Max))) {
                throw JsonException("double value exceed int32_t range");
            }
            return static_cast<unsigned int>(t);
        }
        default:
            throw JsonException("cannot convert to uint32_t type");
    }
}

int64_t JsonValue::asInt64() const {
    switch (type()) {
        case JsonType::Null:
            return 0;
        case JsonType::Bool:
            return shared.get_bool() ? 1 : 0;
        case JsonType::Int:
            return shared.get_int();
        case JsonType::Double: {
            const double d = shared.get_double();
            if (!WithinInt64(d)) {
                throw JsonException("double value exceed int64_t range");
            }
            // 2^63 itself is accepted but has no int64 value; it saturates, as the target's
            // float-to-integer conversion does.
            if (d >= kInt64High) {
                return INT64_MAX;
            }
            return static_cast<int64_t>(d);
        }
        default:
            throw JsonException("cannot convert to int64_t type");
    }
}

double JsonValue::asDouble() const {
    switch (type()) {
        case JsonType::Null:
            return 0.0;
        case JsonType::Bool:
            return shared.get_bool() ? 1.0 : 0.0;
        case JsonType::Int:
            return static_cast<double>(shared.get_int());
        case JsonType::Double:
            return shared.get_double();
        default:
            throw JsonException("cannot convert to double type");
    }
}

bool JsonValue::asBool() const {
    switch (type()) {
        case JsonType::Null:
            return false;
        case JsonType::Bool:
            return shared.get_bool();
        case JsonType::Int:
            return shared.get_int() != 0;
        case JsonType::Double: {
            const double d = shared.get_double();
            return d != 0.0 && !std::isnan(d);
        }
        default:
            throw JsonException("cannot convert to bool type");
    }
}

std::string JsonValue::asString() const {
    switch (type()) {
        case JsonType::Null:
            return std::string();
        case JsonType::Bool:
            return shared.get_bool() ? "true" : "false";
        case JsonType::Int:
            return Format(32, "%lld", shared.get_int());
        case JsonType::Double:
            return Format(328, "%f", shared.get_double());
        case JsonType::String:
            return shared.get_string();
        default:
            throw JsonException("cannot convert to string type");
    }
}

// ---------------------------------------------------------------------------------------
// JsonValue: access and changes

void JsonValue::check_container(JsonType actual, JsonType required) const {
    if (actual != JsonType::Null && actual != required) {
        throw JsonException("invalid type");
    }
}

void JsonValue::vivify(JsonType container) {
    shared.init(container);
    cache().set_type(container);
}

const JsonValue& JsonValue::operator[](const std::string& key) const {
    const JsonType t = type();
    check_container(t, JsonType::Object);
    if (t == JsonType::Null || !shared.has(key.c_str())) {
        return Null();
    }
    return cache().get(shared, key);
}

JsonValue& JsonValue::operator[](const std::string& key) {
    const JsonType t = type();
    check_container(t, JsonType::Object);
    if (t == JsonType::Null) {
        vivify(JsonType::Object);
    }
    if (!shared.has(key.c_str())) {
        shared.alloc_member(key);
    }
    return cache().get(shared, key);
}

const JsonValue& JsonValue::operator[](unsigned index) const {
    const JsonType t = type();
    check_container(t, JsonType::Array);
    if (t == JsonType::Null || index >= shared.array_size()) {
        return Null();
    }
    return cache().get(shared, index);
}

JsonValue& JsonValue::operator[](unsigned index) {
    const JsonType t = type();
    check_container(t, JsonType::Array);
    if (t == JsonType::Null) {
        vivify(JsonType::Array);
    }
    if (index >= shared.array_size()) {
        shared.resize(index + 1);
    }
    return cache().get(shared, index);
}

JsonValue JsonValue::get(const std::string& key, const JsonValue& default_value) const {
    const JsonType t = type();
    check_container(t, JsonType::Object);
    if (t == JsonType::Null || !shared.has(key.c_str())) {
        return JsonValue(default_value);
    }
    return JsonValue(shared[key].clone());
}

JsonValue JsonValue::get(unsigned index, const JsonValue& default_value) const {
    const JsonType t = type();
    check_container(t, JsonType::Array);
    if (t == JsonType::Null || index >= shared.array_size()) {
        return JsonValue(default_value);
    }
    return JsonValue(shared[index].clone());
}

void JsonValue::append(JsonValue&& value) {
    const JsonType t = type();
    check_container(t, JsonType::Array);
    if (t == JsonType::Null) {
        vivify(JsonType::Array);
    }
    shared.append(std::move(value.shared));
}

void JsonValue::append(const JsonValue& value) {
    const JsonType t = type();
    check_container(t, JsonType::Array);
    if (t == JsonType::Null) {
        vivify(JsonType::Array);
    }
    shared.append(value.shared.clone());
}

void JsonValue::resize(unsigned n) {
    const JsonType t = type();
    check_container(t, JsonType::Array);
    if (t == JsonType::Null) {
        vivify(JsonType::Array);
    }
    cache().resize(n);
    shared.resize(n);
}

void JsonValue::removeMember(const std::string& key) {
    const JsonType t = type();
    check_container(t, JsonType::Object);
    if (t == JsonType::Null) {
        return;
    }
    shared.remove_member(key);
    cache().erase(key);
}

}  // namespace json
}  // namespace common
