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
#include <unordered_map>
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

namespace bugfix {

// Makes `node` a null node (json_node_init_null) and then also clears the node's payload
// pointer. json-glib 1.6 releases the payload on re-initialisation but leaves the stale
// pointer in place, and the next json_node_set_* would reuse or release it a second time.
// Every in-place re-initialisation of a node goes through here first.
void clear_node(_JsonNode* node);

// True when the node layout mirrored by clear_node matches the json-glib that is loaded.
// When it does not, clear_node leaves the payload field alone.
bool node_layout_matches();

}  // namespace bugfix

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

    Owner owner;
    _JsonNode* node;
};

class WEXF_COMMON_API JsonValue {
  public:
    class ChildManager;

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

// Cache of the child values handed out by reference. A cached child shares the parent's
// tree, so writes through it change the parent document. References stay valid until the
// entry is erased or the cache is cleared.
class JsonValue::ChildManager {
  public:
    explicit ChildManager(JsonType type);
    ~ChildManager();
    ChildManager(const ChildManager&) = delete;
    ChildManager& operator=(const ChildManager&) = delete;

    // The child for `member`, a member node of `parent` that the caller has looked up.
    JsonValue& get(const SharedJson& parent, _JsonNode* member) const;
    // The same, for a member whose name has the summary `name`: the cache remembers it, so
    // that it can tell a new name from the members it holds.
    JsonValue& get(const SharedJson& parent, _JsonNode* member, size_t name) const;
    // True when the object has `object_size` members, all of them named entries here, and
    // none with this name summary: the name is certainly not a member yet.
    bool knows_absent(unsigned object_size, size_t name) const;
    JsonValue& get(const SharedJson& parent, unsigned index) const;
    void erase(_JsonNode* member);
    void resize(unsigned n);  // drops every indexed child at n or above
    void clear();
    void set_type(JsonType type);  // clears every child when the type changes

  private:
    friend class JsonValue;

    // Members are found by their node, so a lookup neither hashes nor copies the key. The
    // first few live in place, which is all most objects ever need; the rest in a map.
    static constexpr unsigned kInlineMembers = 12;

    JsonValue* find_member(_JsonNode* member) const;
    // A handle on `member` for a new entry: it borrows `tree`'s reference when both share the
    // parent's tree, and takes its own otherwise.
    SharedJson member_handle(const SharedJson& parent, _JsonNode* member) const;
    void release_tree_if_unused();
    // Adds the entry for `member`, which is not cached yet, with its name summary when known.
    JsonValue& insert(const SharedJson& parent, _JsonNode* member, const size_t* name) const;
    void name_slot(unsigned slot, size_t name) const;
    JsonValue& slot_value(unsigned slot) const;

    JsonType type;
    // One reference on the parent's tree, held while member entries exist; they borrow it
    // instead of each taking and dropping their own. Declared first, so it goes last.
    mutable SharedJson::Owner tree{nullptr, nullptr};
    mutable unsigned member_count = 0;
    mutable std::unordered_map<uint32_t, JsonValue> elements;
    mutable unsigned inline_used = 0;  // slots ever used; a free one below has a null node
    mutable _JsonNode* inline_nodes[kInlineMembers];
    mutable size_t inline_names[kInlineMembers];
    mutable uint32_t named_slots = 0;  // bit i: inline_names[i] holds slot i's name summary
    mutable unsigned named_count = 0;
    // Storage for the first entries, built in place when used (slot i is live while
    // inline_nodes[i] is set), so that a new cache initialises nothing it does not use.
    alignas(JsonValue) mutable unsigned char inline_members[kInlineMembers][sizeof(JsonValue)];
    mutable std::unordered_map<_JsonNode*, JsonValue> members;
};

}  // namespace json
}  // namespace common
