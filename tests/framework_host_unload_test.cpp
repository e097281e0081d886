// The framework host unloads a plug-in only after DestroyPlugin, and can run without keeping
// its history.
#include <algorithm>

#include "TestSupport.h"

namespace {

using testsupport::SimTest;

class FrameworkHostUnloadTest : public SimTest {
  protected:
    static std::unique_ptr<wexfhost::Plugin> Load() {
        std::string error;
        auto plugin =
            wexfhost::Plugin::Load(std::string(EC_TEST_PLUGIN_DIR) + "/libtest_plugin.so", &error);
        EXPECT_NE(plugin, nullptr) << error;
        return plugin;
    }
    static size_t Destroyed() {
        const auto events = wexfhost::Events();
        return static_cast<size_t>(std::count_if(events.begin(), events.end(), [](const auto& e) {
            return e.kind == wexfhost::Event::Kind::kServiceDestroyed;
        }));
    }
};

TEST_F(FrameworkHostUnloadTest, UnloadingCallsDestroyPluginOnceWhenItIsDue) {
    struct Row {
        bool create, destroy;
        size_t destroyed;  // DestroyPlugin calls seen, once the plug-in is unloaded
    } rows[] = {{false, false, 0}, {true, false, 1}, {true, true, 1}};
    for (const Row& row : rows) {
        wexfhost::Reset();
        auto plugin = Load();
        ASSERT_NE(plugin, nullptr);
        if (row.create) {
            plugin->Create();
        }
        if (row.destroy) {
            plugin->Destroy();
        }
        plugin.reset();
        EXPECT_EQ(Destroyed(), row.destroyed) << row.create << row.destroy;
        EXPECT_FALSE(wexfhost::FindService("test-service", nullptr));
    }
}

TEST_F(FrameworkHostUnloadTest, WithoutHistoryObserversStillSeeEveryNotification) {
    wexfhost::SetHistoryKept(false);
    size_t seen = 0;
    wexfhost::SetNotificationObserver([&](const wexfhost::Notification&) { ++seen; });
    auto plugin = Load();
    ASSERT_NE(plugin, nullptr);
    plugin->Create();
    wexfhost::FireProtocolStatus("test-service", "corvane", WEXF_PROTOCOL_STATUS_READY);
    plugin->Destroy();
    wexfhost::SetNotificationObserver(nullptr);
    EXPECT_EQ(seen, 1u);
    EXPECT_EQ(wexfhost::NotificationCount(), 0u);
    EXPECT_TRUE(wexfhost::Events().empty());
}

}  // namespace
