// JsonValue::ChildManager: the cache of the child values that JsonValue::operator[] hands out
// by reference. Internal to the support library: the installed SharedJson.h only declares the
// class, and JsonValue holds it through a pointer made on first use.
#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>

#include "SharedJson.h"

namespace common {
namespace json {

// A cached child shares the parent's tree, so writes through it change the parent document.
// References stay valid until the entry is erased or the cache is cleared.
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
    static_assert(kInlineMembers <= 32, "named_slots has one bit per inline slot");

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
