// The node-layout workaround behind every in-place re-initialisation of a JSON node. It is
// internal to the support library (not exported), so these tests link the library's objects.
#include <gtest/gtest.h>
#include <json-glib/json-glib.h>

#include "JsonNodeLayout.h"

namespace {

// Counts json-glib's CRITICAL messages while alive instead of printing them.
struct CriticalCounter {
    CriticalCounter() : id(g_log_set_handler("Json", G_LOG_LEVEL_CRITICAL, &Count, &count)) {}
    ~CriticalCounter() { g_log_remove_handler("Json", id); }
    static void Count(const gchar*, GLogLevelFlags, const gchar*, gpointer n) {
        ++*static_cast<int*>(n);
    }
    int count = 0;
    guint id;
};

}  // namespace

TEST(JsonNodeLayout, MatchesTheLoadedJsonGlib) {
    ASSERT_TRUE(common::json::bugfix::node_layout_matches())
        << "json-glib's JsonNode layout changed: bugfix::clear_node must be revisited";
}

TEST(JsonNodeLayout, ClearNodeLeavesANullNodeWithoutPayload) {
    for (const char* text : {"{}", "[]", "\"payload\""}) {
        JsonNode* node = json_from_string(text, nullptr);
        const JsonNodeType type = json_node_get_node_type(node);
        common::json::bugfix::clear_node(node);
        EXPECT_EQ(json_node_get_node_type(node), JSON_NODE_NULL);
        // Re-typing the node without setting a payload shows what json-glib finds there.
        json_node_init(node, type);
        const bool empty = type == JSON_NODE_OBJECT ? json_node_get_object(node) == nullptr
                           : type == JSON_NODE_ARRAY
                               ? json_node_get_array(node) == nullptr
                               : json_node_get_value_type(node) == G_TYPE_INVALID;
        EXPECT_TRUE(empty) << text;
        json_node_unref(node);
    }
}

TEST(JsonNodeLayout, ClearNodeLeavesASharedNodeAlone) {
    JsonNode* node = json_node_ref(json_from_string("{}", nullptr));
    {
        CriticalCounter criticals;
        common::json::bugfix::clear_node(node);
        EXPECT_EQ(criticals.count, 1);  // json-glib refused a node with two holders
    }
    EXPECT_EQ(json_node_get_node_type(node), JSON_NODE_OBJECT);
    EXPECT_NE(json_node_get_object(node), nullptr);
    json_node_unref(node);
    json_node_unref(node);
}
