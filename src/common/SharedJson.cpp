#include "SharedJson.h"

#include <json-glib/json-glib.h>

#include <atomic>
#include <charconv>
#include <cmath>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <tuple>
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

SharedJson::Owner make_owner(JsonNode* node) {
    return SharedJson::Owner(node, &json_node_unref);
}

SharedJson::Owner new_null_node() {
    return make_owner(json_node_new(JSON_NODE_NULL));
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

// ---- Deep copy ----

void copy_into(JsonNode* target, JsonNode* source);

void copy_member(JsonObject*, const gchar* name, JsonNode* member, gpointer user_data) {
    JsonNode* copy = json_node_new(JSON_NODE_NULL);
    copy_into(copy, member);
    json_object_set_member(static_cast<JsonObject*>(user_data), name, copy);
}

void copy_element(JsonArray*, guint index, JsonNode* element, gpointer user_data) {
    copy_into(json_array_get_element(static_cast<JsonArray*>(user_data), index), element);
}

// `target` is a fresh null node owned by the caller (or by the container it sits in).
void copy_into(JsonNode* target, JsonNode* source) {
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

void collect_name(JsonObject*, const gchar* name, JsonNode*, gpointer user_data) {
    static_cast<std::vector<std::string>*>(user_data)->emplace_back(name);
}

// ---- Serialisation ----
//
// The text is json-glib 1.6's own (json_to_string) byte for byte, compact and pretty, except
// where that generator writes something that is not JSON: it leaves U+001F unescaped, appends
// ".0" after an exponent ("1e-300.0"), prints infinities and NaN as "inf.0" / "nan.0" and
// copies bytes that are not UTF-8. Here U+001F becomes \u001f, the ".0" goes before the
// exponent ("1.0e-300"), a non-finite double is written as null and each stray byte as U+FFFD.

constexpr unsigned kIndent = 2;

// Appends `length` bytes of valid UTF-8 with JSON's escapes (json-glib's choice of them).
void append_escaped(std::string& out, const char* text, size_t length) {
    static const char kHex[] = "0123456789abcdef";
    const char* run = text;
    const char* const stop = text + length;
    for (const char* p = text; p != stop; ++p) {
        const unsigned char c = static_cast<unsigned char>(*p);
        const char* escape = nullptr;
        switch (c) {
            case '"':
                escape = "\\\"";
                break;
            case '\\':
                escape = "\\\\";
                break;
            case '\b':
                escape = "\\b";
                break;
            case '\f':
                escape = "\\f";
                break;
            case '\n':
                escape = "\\n";
                break;
            case '\r':
                escape = "\\r";
                break;
            case '\t':
                escape = "\\t";
                break;
            default:
                if (c >= 0x20 && c != 0x7f) {
                    continue;
                }
                break;
        }
        out.append(run, p - run);
        run = p + 1;
        if (escape != nullptr) {
            out += escape;
        } else {
            const char unicode[] = {'\\', 'u', '0', '0', kHex[c >> 4], kHex[c & 0xf]};
            out.append(unicode, sizeof(unicode));
        }
    }
    out.append(run, stop - run);
}

// Writes `text` as a JSON string. Bytes that are not UTF-8 (a string built from arbitrary
// bytes, or a lone surrogate escape that json-glib decodes into one) each become U+FFFD, so
// the text stays UTF-8 and readable by json-glib and any other JSON reader.
void append_quoted(std::string& out, const char* text) {
    out += '"';
    const char* p = text;
    for (;;) {
        const gchar* valid_end = nullptr;
        const bool valid = g_utf8_validate(p, -1, &valid_end);
        append_escaped(out, p, valid_end - p);
        if (valid) {
            break;
        }
        out += "\xEF\xBF\xBD";
        p = valid_end + 1;
    }
    out += '"';
}

void append_double(std::string& out, double d) {
    if (!std::isfinite(d)) {
        out += "null";
        return;
    }
    char text[G_ASCII_DTOSTR_BUF_SIZE];
    g_ascii_dtostr(text, sizeof(text), d);
    // Keep a double recognisable as one: "100" becomes "100.0", "1e-300" becomes "1.0e-300".
    if (std::strchr(text, '.') != nullptr) {
        out += text;
        return;
    }
    const char* exponent = std::strpbrk(text, "eE");
    if (exponent == nullptr) {
        out += text;
        out += ".0";
    } else {
        out.append(text, exponent - text);
        out += ".0";
        out += exponent;
    }
}

void append_value(std::string& out, JsonNode* node) {
    const GType type = json_node_get_value_type(node);
    if (type == G_TYPE_INT64) {
        char text[24];
        const std::to_chars_result r =
            std::to_chars(text, text + sizeof(text), json_node_get_int(node));
        out.append(text, r.ptr - text);
    } else if (type == G_TYPE_DOUBLE) {
        append_double(out, json_node_get_double(node));
    } else if (type == G_TYPE_BOOLEAN) {
        out += json_node_get_boolean(node) ? "true" : "false";
    } else if (type == G_TYPE_STRING) {
        const gchar* text = json_node_get_string(node);
        append_quoted(out, text != nullptr ? text : "");
    } else {
        out += "null";
    }
}

void append_node(std::string& out, JsonNode* node, bool pretty, unsigned level);

struct MemberWriter {
    std::string& out;
    bool pretty;
    unsigned level;  // level of the members
    bool first;
};

void append_member(JsonObject*, const gchar* name, JsonNode* member, gpointer user_data) {
    MemberWriter& w = *static_cast<MemberWriter*>(user_data);
    if (!w.first) {
        w.out += w.pretty ? ",\n" : ",";
    }
    w.first = false;
    if (w.pretty) {
        w.out.append(w.level * kIndent, ' ');
    }
    append_quoted(w.out, name);
    w.out += w.pretty ? " : " : ":";
    append_node(w.out, member, w.pretty, w.level);
}

void append_node(std::string& out, JsonNode* node, bool pretty, unsigned level) {
    switch (json_node_get_node_type(node)) {
        case JSON_NODE_OBJECT: {
            JsonObject* object = json_node_get_object(node);
            out += '{';
            if (pretty && json_object_get_size(object) > 0) {
                out += '\n';
            }
            MemberWriter writer{out, pretty, level + 1, true};
            json_object_foreach_member(object, &append_member, &writer);
            if (pretty) {
                if (!writer.first) {
                    out += '\n';
                }
                out.append(level * kIndent, ' ');  // json-glib pads even an empty object
            }
            out += '}';
            break;
        }
        case JSON_NODE_ARRAY: {
            JsonArray* array = json_node_get_array(node);
            const guint n = json_array_get_length(array);
            out += '[';
            for (guint i = 0; i < n; ++i) {
                if (pretty) {
                    out += i == 0 ? "\n" : ",\n";
                    out.append((level + 1) * kIndent, ' ');
                } else if (i > 0) {
                    out += ',';
                }
                append_node(out, json_array_get_element(array, i), pretty, level + 1);
            }
            if (pretty && n > 0) {
                out += '\n';
                out.append(level * kIndent, ' ');
            }
            out += ']';
            break;
        }
        case JSON_NODE_VALUE:
            append_value(out, node);
            break;
        case JSON_NODE_NULL:
        default:
            out += "null";
            break;
    }
}

// ---- Text of numbers ----

std::string format_number(size_t capacity, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

std::string format_number(size_t capacity, const char* format, ...) {
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

bool within_int64(double d) {
    return d >= kInt64Low && d <= kInt64High;
}

}  // namespace

// ---------------------------------------------------------------------------------------
// bugfix

namespace bugfix {

bool node_layout_matches() {
    static const bool matches = probe_layout();
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
        layout_of(node)->data.value = nullptr;
    } else {
        static std::atomic<bool> reported{false};
        if (!reported.exchange(true)) {
            CLOGE("json-glib node layout is not the expected one; payload left in place");
        }
    }
}

}  // namespace bugfix

// ---------------------------------------------------------------------------------------
// SharedJson

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

SharedJson::SharedJson(const SharedJson& other)
    : owner(make_owner(other.owner ? json_node_ref(other.owner.get()) : nullptr)),
      node(other.node) {}

SharedJson::SharedJson(SharedJson&& other) noexcept
    : owner(std::move(other.owner)), node(other.node) {
    other.node = nullptr;
}

SharedJson::SharedJson(Owner owner_) : owner(std::move(owner_)), node(owner.get()) {}

SharedJson::SharedJson(Owner owner_, _JsonNode* node_) : owner(std::move(owner_)), node(node_) {}

SharedJson& SharedJson::operator=(const SharedJson& other) {
    Owner taken = make_owner(other.owner ? json_node_ref(other.owner.get()) : nullptr);
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
    ParserPtr parser(json_parser_new());
    if (!json_parser_load_from_data(parser.get(), text, -1, nullptr)) {
        CLOGE("failed to parse: %s", text);
        return SharedJson();
    }
    JsonNode* root = json_parser_get_root(parser.get());
    if (root == nullptr) {
        return SharedJson();
    }
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
    return SharedJson(make_owner(owner ? json_node_ref(owner.get()) : nullptr),
                      json_object_get_member(json_node_get_object(node), key.c_str()));
}

SharedJson SharedJson::operator[](unsigned index) const {
    return SharedJson(make_owner(owner ? json_node_ref(owner.get()) : nullptr),
                      json_array_get_element(json_node_get_array(node), index));
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
    json_array_add_element(json_node_get_array(node), json_node_ref(other.node));
    other.reset();
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
    copy_into(copy.get(), node);
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
    append_node(text, node, pretty, 0);
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

// ---------------------------------------------------------------------------------------
// JsonValue::ChildManager

JsonValue::ChildManager::ChildManager(JsonType type_) : type(type_) {}

JsonValue& JsonValue::ChildManager::get(const SharedJson& parent, const std::string& key) const {
    auto found = members.find(key);
    if (found != members.end()) {
        return found->second;
    }
    return members
        .emplace(std::piecewise_construct, std::forward_as_tuple(key),
                 std::forward_as_tuple(parent[key]))
        .first->second;
}

JsonValue& JsonValue::ChildManager::get(const SharedJson& parent, const std::string& key,
                                        _JsonNode* member) const {
    auto found = members.find(key);
    if (found != members.end()) {
        return found->second;
    }
    SharedJson child(make_owner(json_node_ref(parent.owner.get())), member);
    return members
        .emplace(std::piecewise_construct, std::forward_as_tuple(key),
                 std::forward_as_tuple(std::move(child)))
        .first->second;
}

JsonValue& JsonValue::ChildManager::get(const SharedJson& parent, unsigned index) const {
    auto found = elements.find(index);
    if (found != elements.end()) {
        return found->second;
    }
    return elements
        .emplace(std::piecewise_construct, std::forward_as_tuple(index),
                 std::forward_as_tuple(parent[index]))
        .first->second;
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

JsonValue::JsonValue() {}

JsonValue::JsonValue(JsonType type) {
    shared.init(type);
}

JsonValue::JsonValue(const std::string& value) : shared(value) {}

JsonValue::JsonValue(const char* value) : shared(value) {}

JsonValue::JsonValue(double value) : shared(value) {}

JsonValue::JsonValue(long long value) : shared(value) {}

JsonValue::JsonValue(int value) : shared(static_cast<long long>(value)) {}

JsonValue::JsonValue(unsigned int value) : shared(static_cast<long long>(value)) {}

JsonValue::JsonValue(bool value) : shared(value) {}

JsonValue::JsonValue(SharedJson shared_) : shared(std::move(shared_)) {}

JsonValue::JsonValue(const JsonValue& other) : shared(other.shared.clone()) {}

JsonValue::JsonValue(JsonValue&& other) noexcept
    : shared(other.shared), children(std::move(other.children)) {
    other.shared.reset();
}

JsonValue::~JsonValue() = default;

JsonValue& JsonValue::operator=(const JsonValue& other) {
    // Copy first: `other` may be one of this value's own cached children.
    SharedJson copy = other.shared.clone();
    if (children) {
        children->clear();
    }
    shared.set(std::move(copy));
    if (children) {
        children->set_type(shared.type());
    }
    return *this;
}

JsonValue& JsonValue::operator=(JsonValue&& other) {
    if (&other == this) {
        return *this;
    }
    // Take everything from `other` before replacing this value's cache, which may own it.
    SharedJson source(SharedJson::Owner(nullptr, &json_node_unref), nullptr);
    std::swap(source.owner, other.shared.owner);
    std::swap(source.node, other.shared.node);
    other.shared.reset();
    children = std::move(other.children);
    if (children && shared.node == shared.owner.get() && source.owner.get() == shared.owner.get()) {
        // `other` lived inside the tree this value is the root of: its cached children hold
        // this root, and json-glib re-initialises only a node that nobody else holds. The
        // children are rebuilt on demand instead.
        children->clear();
    }
    shared.take(source, false);
    return *this;
}

template <typename T>
JsonValue& JsonValue::assign_scalar(T value) {
    // A scalar temporary has no cached children: adopting its cache empties this one, and
    // releases what the children hold before the node is re-initialised.
    children.reset();
    shared.assign(value);
    return *this;
}

JsonValue& JsonValue::operator=(const std::string& value) {
    return assign_scalar(value.c_str());
}

JsonValue& JsonValue::operator=(const char* value) {
    return assign_scalar(value);
}

JsonValue& JsonValue::operator=(double value) {
    return assign_scalar(value);
}

JsonValue& JsonValue::operator=(long long value) {
    return assign_scalar(value);
}

JsonValue& JsonValue::operator=(int value) {
    return assign_scalar(static_cast<long long>(value));
}

JsonValue& JsonValue::operator=(unsigned int value) {
    return assign_scalar(static_cast<long long>(value));
}

JsonValue& JsonValue::operator=(bool value) {
    return assign_scalar(value);
}

JsonValue JsonValue::Create(const std::string& text) {
    return JsonValue(SharedJson::Create(text));
}

const JsonValue& JsonValue::Null() {
    static const JsonValue instance;
    return instance;
}

JsonValue::ChildManager& JsonValue::cache() const {
    // The cache is made on first use: scalars and temporaries never need one.
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
            return within_int64(shared.get_double());
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
                return within_int64(shared.get_double());
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
            if (!within_int64(d)) {
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
            return format_number(32, "%lld", shared.get_int());
        case JsonType::Double:
            return format_number(328, "%f", shared.get_double());
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
    if (children) {
        children->set_type(container);
    }
}

const JsonValue& JsonValue::operator[](const std::string& key) const {
    const JsonType t = type();
    check_container(t, JsonType::Object);
    _JsonNode* member = t == JsonType::Null ? nullptr : shared.find_member(key.c_str());
    if (member == nullptr) {
        return Null();
    }
    return cache().get(shared, key, member);
}

JsonValue& JsonValue::operator[](const std::string& key) {
    const JsonType t = type();
    check_container(t, JsonType::Object);
    if (t == JsonType::Null) {
        vivify(JsonType::Object);
    }
    _JsonNode* member = shared.find_member(key.c_str());
    if (member == nullptr) {
        member = shared.add_null_member(key);
    }
    return cache().get(shared, key, member);
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
    _JsonNode* member = t == JsonType::Null ? nullptr : shared.find_member(key.c_str());
    if (member == nullptr) {
        return JsonValue(default_value);
    }
    return JsonValue(SharedJson(make_owner(json_node_ref(shared.owner.get())), member).clone());
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
    // SharedJson::append() on the copy, without refilling the copy that is dropped anyway.
    SharedJson copy = value.shared.clone();
    json_array_add_element(json_node_get_array(shared.node), json_node_ref(copy.node));
}

void JsonValue::resize(unsigned n) {
    const JsonType t = type();
    check_container(t, JsonType::Array);
    if (t == JsonType::Null) {
        vivify(JsonType::Array);
    }
    if (children) {
        children->resize(n);
    }
    shared.resize(n);
}

void JsonValue::removeMember(const std::string& key) {
    const JsonType t = type();
    check_container(t, JsonType::Object);
    if (t == JsonType::Null) {
        return;
    }
    shared.remove_member(key);
    if (children) {
        children->erase(key);
    }
}

}  // namespace json
}  // namespace common
