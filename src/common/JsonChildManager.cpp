// JsonValue::ChildManager: the cache of child values handed out by reference.
#include "JsonChildManager.h"

#include <algorithm>
#include <new>
#include <tuple>
#include <utility>

namespace common {
namespace json {

namespace {

// The deleter of a borrowed handle: the cache's own reference keeps the tree.
void keep_node(_JsonNode*) {}

}  // namespace

JsonValue::ChildManager::ChildManager(JsonType type_) : type(type_) {}

JsonValue::ChildManager::~ChildManager() {
    clear();
}

JsonValue& JsonValue::ChildManager::slot_value(unsigned slot) const {
    return *std::launder(reinterpret_cast<JsonValue*>(inline_members[slot]));
}

JsonValue* JsonValue::ChildManager::find_member(_JsonNode* member) const {
    for (unsigned i = 0; i < inline_used; ++i) {
        if (inline_nodes[i] == member) {
            return &slot_value(i);
        }
    }
    if (members.empty()) {
        return nullptr;
    }
    const auto found = members.find(member);
    return found != members.end() ? &found->second : nullptr;
}

JsonValue& JsonValue::ChildManager::get(const SharedJson& parent, _JsonNode* member,
                                        size_t name) const {
    for (unsigned i = 0; i < inline_used; ++i) {
        if (inline_nodes[i] == member) {
            name_slot(i, name);
            return slot_value(i);
        }
    }
    const auto found = members.find(member);
    if (found != members.end()) {
        return found->second;
    }
    return insert(parent, member, &name);
}

bool JsonValue::ChildManager::knows_absent(unsigned object_size, size_t name) const {
    if (named_count != object_size) {
        return false;
    }
    for (unsigned i = 0; i < inline_used; ++i) {
        if ((named_slots >> i & 1u) != 0 && inline_names[i] == name) {
            return false;
        }
    }
    return true;
}

JsonValue& JsonValue::ChildManager::get(const SharedJson& parent, _JsonNode* member) const {
    if (JsonValue* cached = find_member(member)) {
        return *cached;
    }
    return insert(parent, member, nullptr);
}

JsonValue& JsonValue::ChildManager::insert(const SharedJson& parent, _JsonNode* member,
                                           const size_t* name) const {
    SharedJson handle = member_handle(parent, member);
    ++member_count;
    unsigned slot = inline_used;
    if (slot == kInlineMembers) {
        for (slot = 0; slot < kInlineMembers && inline_nodes[slot] != nullptr; ++slot) {
        }
    }
    if (slot == kInlineMembers) {
        return members.emplace(member, std::move(handle)).first->second;
    }
    inline_used = std::max(inline_used, slot + 1);
    inline_nodes[slot] = member;
    if (name != nullptr) {
        name_slot(slot, *name);
    }
    return *new (inline_members[slot]) JsonValue(std::move(handle));
}

void JsonValue::ChildManager::name_slot(unsigned slot, size_t name) const {
    if ((named_slots >> slot & 1u) == 0) {
        named_slots |= 1u << slot;
        ++named_count;
    }
    inline_names[slot] = name;
}

SharedJson JsonValue::ChildManager::member_handle(const SharedJson& parent,
                                                  _JsonNode* member) const {
    if (!tree) {
        tree = parent.share_tree();
    }
    if (!parent.owned_by(tree)) {
        return SharedJson(parent.share_tree(), member);
    }
    return SharedJson(SharedJson::Owner(tree.get(), &keep_node), member);
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

void JsonValue::ChildManager::erase(_JsonNode* member) {
    for (unsigned i = 0; i < inline_used; ++i) {
        if (inline_nodes[i] == member) {
            inline_nodes[i] = nullptr;
            if ((named_slots >> i & 1u) != 0) {
                named_slots &= ~(1u << i);
                --named_count;
            }
            slot_value(i).~JsonValue();
            release_tree_if_unused();
            return;
        }
    }
    if (members.erase(member) > 0) {
        release_tree_if_unused();
    }
}

void JsonValue::ChildManager::release_tree_if_unused() {
    // With no member entry left the tree is held only by its own handles again, as json-glib
    // requires before it re-initialises a node in place.
    if (--member_count == 0) {
        tree.reset();
    }
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
    for (unsigned i = 0; i < inline_used; ++i) {
        if (inline_nodes[i] != nullptr) {
            slot_value(i).~JsonValue();
        }
    }
    inline_used = 0;
    named_slots = 0;
    named_count = 0;
    members.clear();
    member_count = 0;
    tree.reset();
}

void JsonValue::ChildManager::set_type(JsonType type_) {
    if (type_ != type) {
        clear();
    }
    type = type_;
}

}  // namespace json
}  // namespace common
