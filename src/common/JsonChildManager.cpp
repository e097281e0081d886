// JsonValue::ChildManager: the cache of child values handed out by reference.
#include <json-glib/json-glib.h>

#include <tuple>
#include <utility>

#include "JsonGlibPtr.h"
#include "SharedJson.h"

namespace common {
namespace json {

using detail::make_owner;

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
    // One lookup of the key: the handle is only kept when the entry is new.
    return members
        .try_emplace(key, SharedJson(make_owner(json_node_ref(parent.owner.get())), member))
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

}  // namespace json
}  // namespace common
