// JSON value layer over json-glib.
//
// SharedJson is a thin handle on one json-glib node: it keeps the node's tree alive through
// json-glib's own reference counting, so every handle on a member or element of a document
// sees the changes made through the others. JsonValue is the value type built on it: typed
// queries, range-checked conversions, and member/element access that hands out references to
// cached child values. Errors are reported by throwing JsonException.
//
// Nothing here locks: a document and every value and handle sharing its tree belong to one
// thread at a time. Only JsonValue::Null() is shared process-wide, and it is never modified.
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "WexfCommonExport.h"

struct _JsonNode;

namespace common {
namespace json {

enum class JsonType : int {
    Null = 0,
    Bool = 1,
    Int = 2,     // always a signed 64-bit integer
    Double = 3,  // IEEE double
    String = 4,
    Object = 5,
    Array = 6,
};

class WEXF_COMMON_API JsonException : public std::runtime_error {
  public:
    explicit JsonException(const std::string& message) : std::runtime_error(message) {}
    explicit JsonException(const char* message) : std::runtime_error(message) {}
};

class WEXF_COMMON_API SharedJson {
  public:
    using Owner = std::unique_ptr<_JsonNode, void (*)(_JsonNode*)>;

    SharedJson();  // a new null node
    explicit SharedJson(const char* text);
    explicit SharedJson(const std::string& text);
    explicit SharedJson(double value);
    explicit SharedJson(long long value);
    explicit SharedJson(bool value);
    SharedJson(const SharedJson& other);  // shares the tree: one more reference on the owner
    // Takes over other's reference. The moved-from handle is empty: it may only be destroyed
    // or assigned to.
    SharedJson(SharedJson&& other) noexcept;
    explicit SharedJson(Owner owner);  // designates the owner itself
    SharedJson(Owner owner, _JsonNode* node);
    ~SharedJson() = default;

    SharedJson& operator=(const SharedJson& other);

    // Parses `text`. A parse failure is logged and gives a null handle; so does a document
    // without a root (empty or blank text). Text that nests arrays and objects more than 200
    // levels deep is refused as malformed before it is parsed, so that parsing stays within
    // 32 KiB of stack.
    static SharedJson Create(const char* text);
    static SharedJson Create(const std::string& text);

    // Re-initialises this node in place: zero, false, "", an empty object or array, or null
    // for Null and for any value outside the enumeration.
    void init(JsonType type);

    bool has(const char* key) const;
    // Handles on a member or element, sharing this tree. No checks: callers check first.
    SharedJson operator[](const std::string& key) const;
    SharedJson operator[](unsigned index) const;
    void alloc_member(const std::string& key);
    void remove_member(const std::string& key);
    unsigned object_size() const;
    unsigned array_size() const;
    void resize(unsigned n);
    // Adds other's node to this array and leaves `other` a fresh null handle.
    void append(SharedJson&& other);

    // Overwrite this node in place. The rvalue form shares other's object or array (the
    // container itself, not a copy) and leaves `other` a fresh null handle; the const form
    // deep-copies first.
    void set(SharedJson&& other);
    void set(const SharedJson& other);

    SharedJson clone() const;  // deep copy in a new, independently owned node
    bool equal(const SharedJson& other) const;

    long long get_int() const;
    double get_double() const;
    bool get_bool() const;
    std::string get_string() const;
    JsonType type() const;
    std::string to_string(bool pretty) const;
    std::vector<std::string> get_member_names() const;

    static const char* GlibcVersion();

  private:
    friend class JsonValue;

    // Drops this handle's reference and designates a fresh null node.
    void reset();
    // Drops this handle's reference; with `refill` false the handle is left empty, which only
    // a handle about to be destroyed may be.
    void release(bool refill);
    // set(SharedJson&&) for a distinct `other`, which is then released.
    void take(SharedJson& other, bool refill);
    // Overwrite this node in place with a scalar, as set() with a new scalar handle would.
    void assign(const char* value);
    void assign(double value);
    void assign(long long value);
    void assign(bool value);
    // The member node named `key`, or null.
    _JsonNode* find_member(const char* key) const;
    // Sets `key` to a new null node and returns it.
    _JsonNode* add_null_member(const std::string& key);
    // append() without resetting `other`: this array gets one more reference on its node.
    WEXF_COMMON_LOCAL void add_element(const SharedJson& other);
    // One more reference on the tree this handle keeps alive (its owner), for a handle on
    // another node of the same tree.
    WEXF_COMMON_LOCAL Owner share_tree() const;
    // Whether this handle designates the root of its tree, whether `tree` is its owner, and
    // whether `other` keeps the same tree alive.
    bool is_root() const { return node == owner.get(); }
    bool owned_by(const Owner& tree) const { return owner.get() == tree.get(); }
    bool shares_tree(const SharedJson& other) const { return owner.get() == other.owner.get(); }

    Owner owner;
    _JsonNode* node;
};

class WEXF_COMMON_API JsonValue {
  public:
    JsonValue();
    JsonValue(JsonType type);
    JsonValue(const std::string& value);
    JsonValue(const char* value);
    JsonValue(double value);
    JsonValue(long long value);
    JsonValue(int value);
    JsonValue(unsigned int value);
    JsonValue(bool value);
    JsonValue(SharedJson shared);
    JsonValue(const JsonValue& other);      // deep copy
    JsonValue(JsonValue&& other) noexcept;  // takes the node and the cache; other becomes null
    ~JsonValue();

    // Both assignments overwrite this value's node in place, so assigning to a child
    // obtained by operator[] changes the parent document.
    JsonValue& operator=(const JsonValue& other);
    JsonValue& operator=(JsonValue&& other);
    // The same as assigning JsonValue(value), without making the temporary.
    JsonValue& operator=(const std::string& value);
    JsonValue& operator=(const char* value);
    JsonValue& operator=(double value);
    JsonValue& operator=(long long value);
    JsonValue& operator=(int value);
    JsonValue& operator=(unsigned int value);
    JsonValue& operator=(bool value);

    // SharedJson::Create: malformed text, and text nested more than 200 levels deep, give a
    // null value and a "failed to parse" line.
    static JsonValue Create(const std::string& text);
    // The shared, never-modified null value returned for absent members and elements.
    static const JsonValue& Null();

    JsonType type() const;
    bool isNull() const;
    bool isBool() const;
    bool isString() const;
    bool isDouble() const;  // Int or Double
    bool isInt() const;     // Int, or a Double within [-2^63, 2^63]
    bool isConvertibleTo(JsonType type) const;
    unsigned size() const;
    bool empty() const;
    bool isMember(const char* key) const;
    bool isMember(const std::string& key) const;
    bool operator==(const JsonValue& other) const;
    std::vector<std::string> getMemberNames() const;
    std::string toString(bool pretty) const;

    int asInt() const;
    unsigned int asUInt() const;
    int64_t asInt64() const;
    double asDouble() const;
    bool asBool() const;
    std::string asString() const;

    // Const access returns Null() for a null value or an absent member/element; non-const
    // access turns a null value into the container and creates what is missing.
    const JsonValue& operator[](const std::string& key) const;
    JsonValue& operator[](const std::string& key);
    const JsonValue& operator[](unsigned index) const;
    JsonValue& operator[](unsigned index);
    JsonValue get(const std::string& key, const JsonValue& default_value) const;
    JsonValue get(unsigned index, const JsonValue& default_value) const;

    void append(JsonValue&& value);
    void append(const JsonValue& value);
    void resize(unsigned n);
    void removeMember(const std::string& key);

  private:
    // The cache of the children handed out by reference, made on first use. Its definition
    // is internal to the library.
    class ChildManager;

    // Throws "invalid type" unless this value is null or of the container type `required`.
    void check_container(JsonType actual, JsonType required) const;
    // Makes a null value an empty container of `container` type.
    void vivify(JsonType container);
    ChildManager& cache() const;
    // Assignment of a scalar: this value's cache goes, as it would for an assigned temporary.
    template <typename T>
    JsonValue& assign_scalar(T value);

    SharedJson shared;
    mutable std::unique_ptr<ChildManager> children;
};

}  // namespace json
}  // namespace common
