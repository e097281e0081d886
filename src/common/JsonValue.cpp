// JsonValue: the value type over SharedJson.
#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <utility>

#include "JsonChildManager.h"
#include "JsonNodeLayout.h"

namespace common {
namespace json {

namespace {

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

// A summary of a member name for the cache's absence check: equal names give equal values;
// different names rarely do, and then the json-glib lookup is simply made.
size_t name_summary(const std::string& key) {
    const size_t n = key.size();
    uint64_t head = 0;
    uint64_t tail = 0;
    std::memcpy(&head, key.data(), std::min<size_t>(n, 8));
    if (n > 8) {
        std::memcpy(&tail, key.data() + n - 8, 8);
    }
    return static_cast<size_t>((head ^ (tail * 0x9E3779B97F4A7C15ull)) + n);
}

// True when the only references on the root `root` are its value's handle and that value's
// cache: every other value, handle or child cache on the tree would hold one more, and could
// change its members behind the cache's back.
bool HeldAlone(_JsonNode* root) {
    return detail::node_references(root) == 2;
}

}  // namespace

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
    SharedJson source(std::move(other.shared));
    other.shared.reset();
    children = std::move(other.children);
    if (children && shared.is_root() && shared.shares_tree(source)) {
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
    return cache().get(shared, member);
}

JsonValue& JsonValue::operator[](const std::string& key) {
    const JsonType t = type();
    check_container(t, JsonType::Object);
    // When the object is new or empty, or the cache names every member and this name is not
    // among them, the json-glib lookup is skipped: a new member costs one lookup fewer.
    const size_t name = name_summary(key);
    bool absent = t == JsonType::Null;
    if (absent) {
        vivify(JsonType::Object);
    } else {
        const unsigned size = shared.object_size();
        // The cache sees only this value's own changes, so it decides only for a tree that
        // no other value can change: this value is its root, and the cache holds it alone.
        absent =
            size == 0 || (children && shared.is_root() && shared.owned_by(children->tree) &&
                          HeldAlone(children->tree.get()) && children->knows_absent(size, name));
    }
    _JsonNode* member = absent ? nullptr : shared.find_member(key.c_str());
    if (member == nullptr) {
        member = shared.add_null_member(key);
    }
    return cache().get(shared, member, name);
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
    return JsonValue(SharedJson(shared.share_tree(), member).clone());
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
    shared.add_element(value.shared.clone());
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
    if (children) {
        if (_JsonNode* member = shared.find_member(key.c_str())) {
            children->erase(member);
        }
    }
    shared.remove_member(key);
}

}  // namespace json
}  // namespace common
