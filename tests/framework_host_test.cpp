// The framework host: plug-in loading with dlopen, services, callbacks and notifications.
#include "TestSupport.h"

using testsupport::SimTest;
using testsupport::TempDir;

namespace {

std::string PluginPath(const char* name) {
    return std::string(EC_TEST_PLUGIN_DIR) + "/lib" + name + ".so";
}

class FrameworkHostTest : public SimTest {};

TEST_F(FrameworkHostTest, LoadsPluginAndCallsEntryPoints) {
    std::string error;
    auto plugin = wexfhost::Plugin::Load(PluginPath("test_plugin"), &error);
    ASSERT_NE(plugin, nullptr) << error;
    EXPECT_TRUE(wexfhost::Services().empty());

    EXPECT_EQ(plugin->Create(), 1);
    wexfhost::ServiceInfo info;
    ASSERT_TRUE(wexfhost::FindService("test-service", &info));
    EXPECT_EQ(info.description, "service for tests");
    EXPECT_NE(info.on_protocol_status, nullptr);
    EXPECT_NE(info.user_data, nullptr);

    EXPECT_TRUE(
        wexfhost::FireProtocolStatus("test-service", "corvane", WEXF_PROTOCOL_STATUS_READY));
    EXPECT_TRUE(wexfhost::FireGetRequest("test-service"));
    EXPECT_TRUE(wexfhost::FireSetRequest("test-service"));
    EXPECT_TRUE(wexfhost::FireCancelRequest("test-service"));
    auto notes = wexfhost::Notifications();
    ASSERT_EQ(notes.size(), 1u);
    EXPECT_EQ(notes[0].service, "test-service");
    EXPECT_EQ(notes[0].property, "status");
    EXPECT_EQ(notes[0].json, "{\"protocol\":\"corvane\",\"status\":2}");

    EXPECT_EQ(plugin->Destroy(), 1);
    EXPECT_FALSE(wexfhost::FindService("test-service", nullptr));
    EXPECT_FALSE(
        wexfhost::FireProtocolStatus("test-service", "corvane", WEXF_PROTOCOL_STATUS_READY));

    auto events = wexfhost::Events();
    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(events[0].kind, wexfhost::Event::Kind::kServiceCreated);
    EXPECT_EQ(events[1].kind, wexfhost::Event::Kind::kNotified);
    EXPECT_EQ(events[2].kind, wexfhost::Event::Kind::kServiceDestroyed);
}

TEST_F(FrameworkHostTest, ObserverSeesNotificationsAndFaultsApply) {
    std::string error;
    auto plugin = wexfhost::Plugin::Load(PluginPath("test_plugin"), &error);
    ASSERT_NE(plugin, nullptr) << error;

    wexfhost::SetFault(wexfhost::Fault::kServiceCreateFails);
    EXPECT_EQ(plugin->Create(), 0);
    EXPECT_TRUE(wexfhost::Services().empty());
    wexfhost::SetFault(wexfhost::Fault::kNone);

    std::vector<std::string> seen;
    wexfhost::SetNotificationObserver(
        [&](const wexfhost::Notification& n) { seen.push_back(n.json); });
    ASSERT_EQ(plugin->Create(), 1);
    wexfhost::FireProtocolStatus("test-service", "other", WEXF_PROTOCOL_STATUS_ERROR);
    wexfhost::SetNotificationObserver(nullptr);
    EXPECT_EQ(seen, std::vector<std::string>{"{\"protocol\":\"other\",\"status\":3}"});

    wexfhost::SetFault(wexfhost::Fault::kNotifyThrows, "boom");
    EXPECT_THROW(
        wexfhost::FireProtocolStatus("test-service", "corvane", WEXF_PROTOCOL_STATUS_CONNECTED),
        std::runtime_error);
    wexfhost::SetFault(wexfhost::Fault::kNone);
    EXPECT_EQ(wexfhost::NotificationCount(), 1u);
    plugin->Destroy();
}

TEST_F(FrameworkHostTest, MissingFileGivesDlerrorText) {
    std::string error;
    auto plugin = wexfhost::Plugin::Load("/nonexistent/libnothing.so", &error);
    EXPECT_EQ(plugin, nullptr);
    EXPECT_NE(error.find("cannot load plug-in '/nonexistent/libnothing.so'"), std::string::npos);
    EXPECT_NE(error.find("No such file or directory"), std::string::npos) << error;
}

TEST_F(FrameworkHostTest, NotALibraryGivesDlerrorText) {
    TempDir dir;
    testsupport::WriteText(dir.File("libjunk.so"), std::string(4096, 'x'));
    std::string error;
    EXPECT_EQ(wexfhost::Plugin::Load(dir.File("libjunk.so"), &error), nullptr);
    EXPECT_NE(error.find("cannot load plug-in"), std::string::npos);
    EXPECT_NE(error.find("invalid ELF header"), std::string::npos) << error;
}

TEST_F(FrameworkHostTest, LibraryWithoutEntryPoints) {
    std::string error;
    EXPECT_EQ(wexfhost::Plugin::Load(PluginPath("no_entry_plugin"), &error), nullptr);
    EXPECT_NE(error.find("has no CreatePlugin"), std::string::npos) << error;
    EXPECT_NE(error.find("undefined symbol: CreatePlugin"), std::string::npos) << error;

    EXPECT_EQ(wexfhost::Plugin::Load(PluginPath("half_plugin"), &error), nullptr);
    EXPECT_NE(error.find("has no DestroyPlugin"), std::string::npos) << error;
}

TEST_F(FrameworkHostTest, UnknownHandlesAreRefused) {
    EXPECT_NE(wexf_service_destroy(nullptr), 0);
    wexf_string_t s;
    EXPECT_NE(wexf_string_new(nullptr, "x", 1), 0);
    EXPECT_EQ(wexf_string_new(&s, nullptr, 5), 0);
    EXPECT_EQ(s.len, 0u);
    wexf_property_list_h list = wexf_property_list_create();
    EXPECT_NE(wexf_service_notify(nullptr, list), 0);
    EXPECT_EQ(wexfhost::NotificationCount(), 0u);
}

}  // namespace
