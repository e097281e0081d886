// The framework side of the wexf interface, for running service plug-ins on a host:
// it keeps the registered services, records every notification, lets callers fire protocol
// status reports and requests into a service's callbacks, and loads plug-ins with dlopen.
#pragma once

#include <wexf.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace wexfhost {

struct Notification {
    std::string service;
    std::string property;
    std::string json;
};

// What happened, in order: "create <name>", "destroy <name>", "notify <name>".
struct Event {
    enum class Kind { kServiceCreated, kServiceDestroyed, kNotified };
    Kind kind;
    std::string service;
};

struct ServiceInfo {
    std::string name;
    std::string description;
    wexf_protocol_status_cb on_protocol_status = nullptr;
    wexf_get_request_cb on_get = nullptr;
    wexf_set_request_cb on_set = nullptr;
    wexf_cancel_request_cb on_cancel = nullptr;
    void* user_data = nullptr;
};

// Framework calls whose behaviour tests can change.
enum class Fault {
    kNone,
    kServiceCreateFails,  // wexf_service_create returns NULL
    kNotifyThrows,        // wexf_service_notify throws std::runtime_error(message)
    kPropertyThrows,      // wexf_property_create_json_string throws std::runtime_error(message)
};

// Forgets every service, notification, event and fault (services are not destroyed), and
// keeps history again.
void Reset();

// Whether notifications and events are kept for Notifications() and Events() (the default);
// observers are called either way. A long-running host turns it off to stay in constant memory.
void SetHistoryKept(bool kept);

void SetFault(Fault fault, const std::string& message = "framework failure");

// Services currently registered (created and not destroyed).
std::vector<ServiceInfo> Services();
bool FindService(const std::string& name, ServiceInfo* out);

std::vector<Notification> Notifications();
size_t NotificationCount();
std::vector<Event> Events();

// Called on the notifying thread for each notification, outside the host's lock.
void SetNotificationObserver(std::function<void(const Notification&)> observer);
// Called for each event, on the thread that caused it, outside the host's lock.
void SetEventObserver(std::function<void(const Event&)> observer);

// Fire a callback of the named service; false when no such service is registered.
bool FireProtocolStatus(const std::string& service, const std::string& protocol,
                        wexf_protocol_status_e status);
bool FireGetRequest(const std::string& service);
bool FireSetRequest(const std::string& service);
bool FireCancelRequest(const std::string& service);

// A plug-in library loaded with dlopen; unloaded (dlclose) on destruction, after DestroyPlugin
// when CreatePlugin was called and DestroyPlugin was not, so that no plug-in object outlives
// its code (an error path cannot leave a running thread in an unloaded library).
class Plugin {
  public:
    // Loads the library at `path` and looks up CreatePlugin and DestroyPlugin by name.
    // On failure returns null and sets *error to a one-line message with dlerror()'s text.
    static std::unique_ptr<Plugin> Load(const std::string& path, std::string* error);
    ~Plugin();
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;

    int Create();   // calls CreatePlugin()
    int Destroy();  // calls DestroyPlugin()
    const std::string& path() const { return path_; }
    void* handle() const { return handle_; }

  private:
    Plugin(std::string path, void* handle, int (*create)(), int (*destroy)());
    std::string path_;
    void* handle_;
    int (*create_)();
    int (*destroy_)();
    bool created_ = false;
};

}  // namespace wexfhost
