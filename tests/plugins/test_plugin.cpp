// A minimal service plug-in for the framework host's tests: registers "test-service" and
// answers each protocol status report with a notification carrying it.
#include <wexf.h>

#include <cstring>
#include <string>

namespace {

wexf_service_h g_service = nullptr;
int g_user_data = 0;

void OnStatus(wexf_service_h service, wexf_string_t protocol, wexf_protocol_status_e status,
              void* user_data) {
    if (user_data != &g_user_data) {
        return;
    }
    std::string json = "{\"protocol\":\"" + std::string(protocol.str, protocol.len) +
                       "\",\"status\":" + std::to_string(static_cast<int>(status)) + "}";
    wexf_property_list_h list = wexf_property_list_create();
    wexf_string_t name, value;
    wexf_string_new(&name, "status", 6);
    wexf_string_new(&value, json.c_str(), json.size());
    wexf_property_list_push_property(list, wexf_property_create_json_string(name, value), 0);
    wexf_service_notify(service, list);
}

void OnGet(wexf_service_h, wexf_transaction_h, wexf_property_list_h, void*) {}
void OnSet(wexf_service_h, wexf_transaction_h, wexf_property_list_h, void*) {}
void OnCancel(wexf_service_h, wexf_transaction_h, void*) {}

}  // namespace

extern "C" __attribute__((visibility("default"))) int CreatePlugin() {
    wexf_string_t name, description;
    wexf_string_new(&name, "test-service", std::strlen("test-service"));
    wexf_string_new(&description, "service for tests", std::strlen("service for tests"));
    g_service =
        wexf_service_create(name, description, OnStatus, OnGet, OnSet, OnCancel, &g_user_data);
    return g_service != nullptr ? 1 : 0;
}

extern "C" __attribute__((visibility("default"))) int DestroyPlugin() {
    if (g_service == nullptr) {
        return 0;
    }
    wexf_service_destroy(g_service);
    g_service = nullptr;
    return 1;
}
