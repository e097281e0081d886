#include "wexfhost/FrameworkHost.h"

#include <dlfcn.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <stdexcept>

// Framework-side objects behind the opaque handles.
struct wexf_property_s {
    std::string name;
    std::string json;
};

struct wexf_property_list_s {
    std::vector<std::unique_ptr<wexf_property_s>> properties;
};

struct wexf_service_s {
    wexfhost::ServiceInfo info;
};

namespace wexfhost {
namespace {

struct HostState {
    std::mutex mutex;
    std::vector<std::unique_ptr<wexf_service_s>> services;
    // Lists and properties the plug-in created but has not handed over yet; the framework owns
    // them (plug-ins never release them), so they are kept here until notified or Reset.
    std::vector<std::unique_ptr<wexf_property_list_s>> lists;
    std::vector<std::unique_ptr<wexf_property_s>> loose_properties;
    std::vector<Notification> notifications;
    std::vector<Event> events;
    Fault fault = Fault::kNone;
    std::string fault_message;
    std::function<void(const Notification&)> notification_observer;
    std::function<void(const Event&)> event_observer;
    bool history_kept = true;
};

HostState& State() {
    static HostState* state = new HostState();  // outlives plug-ins unloaded at exit
    return *state;
}

std::string ToString(const wexf_string_t& s) {
    if (s.str == nullptr) {
        return std::string();
    }
    return std::string(s.str, s.len);
}

void Emit(Event event) {
    std::function<void(const Event&)> observer;
    {
        HostState& s = State();
        std::lock_guard<std::mutex> lock(s.mutex);
        if (s.history_kept) {
            s.events.push_back(event);
        }
        observer = s.event_observer;
    }
    if (observer) {
        observer(event);
    }
}

wexf_service_s* FindLocked(HostState& s, const std::string& name) {
    for (auto& service : s.services) {
        if (service->info.name == name) {
            return service.get();
        }
    }
    return nullptr;
}

bool Lookup(const std::string& name, wexf_service_s** handle, ServiceInfo* info) {
    HostState& s = State();
    std::lock_guard<std::mutex> lock(s.mutex);
    wexf_service_s* service = FindLocked(s, name);
    if (service == nullptr) {
        return false;
    }
    *handle = service;
    *info = service->info;
    return true;
}

}  // namespace

void Reset() {
    HostState& s = State();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.services.clear();
    s.lists.clear();
    s.loose_properties.clear();
    s.notifications.clear();
    s.events.clear();
    s.fault = Fault::kNone;
    s.fault_message.clear();
    s.history_kept = true;
}

void SetHistoryKept(bool kept) {
    HostState& s = State();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.history_kept = kept;
}

void SetFault(Fault fault, const std::string& message) {
    HostState& s = State();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.fault = fault;
    s.fault_message = message;
}

std::vector<ServiceInfo> Services() {
    HostState& s = State();
    std::lock_guard<std::mutex> lock(s.mutex);
    std::vector<ServiceInfo> out;
    for (auto& service : s.services) {
        out.push_back(service->info);
    }
    return out;
}

bool FindService(const std::string& name, ServiceInfo* out) {
    wexf_service_s* handle = nullptr;
    ServiceInfo info;
    if (!Lookup(name, &handle, &info)) {
        return false;
    }
    if (out != nullptr) {
        *out = info;
    }
    return true;
}

std::vector<Notification> Notifications() {
    HostState& s = State();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.notifications;
}

size_t NotificationCount() {
    HostState& s = State();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.notifications.size();
}

std::vector<Event> Events() {
    HostState& s = State();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.events;
}

void SetNotificationObserver(std::function<void(const Notification&)> observer) {
    HostState& s = State();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.notification_observer = std::move(observer);
}

void SetEventObserver(std::function<void(const Event&)> observer) {
    HostState& s = State();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.event_observer = std::move(observer);
}

bool FireProtocolStatus(const std::string& service, const std::string& protocol,
                        wexf_protocol_status_e status) {
    wexf_service_s* handle = nullptr;
    ServiceInfo info;
    if (!Lookup(service, &handle, &info)) {
        return false;
    }
    if (info.on_protocol_status != nullptr) {
        wexf_string_t name{protocol.c_str(), protocol.size()};
        info.on_protocol_status(handle, name, status, info.user_data);
    }
    return true;
}

bool FireGetRequest(const std::string& service) {
    wexf_service_s* handle = nullptr;
    ServiceInfo info;
    if (!Lookup(service, &handle, &info)) {
        return false;
    }
    if (info.on_get != nullptr) {
        wexf_property_list_s properties;
        info.on_get(handle, nullptr, &properties, info.user_data);
    }
    return true;
}

bool FireSetRequest(const std::string& service) {
    wexf_service_s* handle = nullptr;
    ServiceInfo info;
    if (!Lookup(service, &handle, &info)) {
        return false;
    }
    if (info.on_set != nullptr) {
        wexf_property_list_s properties;
        info.on_set(handle, nullptr, &properties, info.user_data);
    }
    return true;
}

bool FireCancelRequest(const std::string& service) {
    wexf_service_s* handle = nullptr;
    ServiceInfo info;
    if (!Lookup(service, &handle, &info)) {
        return false;
    }
    if (info.on_cancel != nullptr) {
        info.on_cancel(handle, nullptr, info.user_data);
    }
    return true;
}

// ---- Plugin ----

Plugin::Plugin(std::string path, void* handle, int (*create)(), int (*destroy)())
    : path_(std::move(path)), handle_(handle), create_(create), destroy_(destroy) {}

Plugin::~Plugin() {
    if (created_) {
        destroy_();
    }
    if (handle_ != nullptr) {
        dlclose(handle_);
    }
}

std::unique_ptr<Plugin> Plugin::Load(const std::string& path, std::string* error) {
    auto fail = [&](const std::string& message) -> std::unique_ptr<Plugin> {
        if (error != nullptr) {
            *error = message;
        }
        return nullptr;
    };
    dlerror();
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        const char* why = dlerror();
        return fail("cannot load plug-in '" + path + "': " + (why ? why : "unknown error"));
    }
    auto lookup = [&](const char* name, std::string* why) -> void* {
        dlerror();
        void* symbol = dlsym(handle, name);
        const char* err = dlerror();
        if (symbol == nullptr) {
            *why = err ? err : std::string(name) + " is null";
        }
        return symbol;
    };
    std::string why;
    void* create = lookup("CreatePlugin", &why);
    if (create == nullptr) {
        dlclose(handle);
        return fail("plug-in '" + path + "' has no CreatePlugin: " + why);
    }
    void* destroy = lookup("DestroyPlugin", &why);
    if (destroy == nullptr) {
        dlclose(handle);
        return fail("plug-in '" + path + "' has no DestroyPlugin: " + why);
    }
    return std::unique_ptr<Plugin>(new Plugin(path, handle, reinterpret_cast<int (*)()>(create),
                                              reinterpret_cast<int (*)()>(destroy)));
}

int Plugin::Create() {
    created_ = true;
    return create_();
}

int Plugin::Destroy() {
    created_ = false;
    return destroy_();
}

}  // namespace wexfhost

using wexfhost::State;

extern "C" {

int wexf_string_new(wexf_string_t* out, const char* chars, size_t len) {
    if (out == nullptr) {
        return -EINVAL;
    }
    out->str = chars;
    out->len = chars != nullptr ? len : 0;
    return 0;
}

wexf_service_h wexf_service_create(wexf_string_t name, wexf_string_t description,
                                   wexf_protocol_status_cb on_protocol_status,
                                   wexf_get_request_cb on_get, wexf_set_request_cb on_set,
                                   wexf_cancel_request_cb on_cancel, void* user_data) {
    wexf_service_s* handle = nullptr;
    std::string service_name = wexfhost::ToString(name);
    {
        auto& s = State();
        std::lock_guard<std::mutex> lock(s.mutex);
        if (s.fault == wexfhost::Fault::kServiceCreateFails) {
            return nullptr;
        }
        auto service = std::make_unique<wexf_service_s>();
        service->info.name = service_name;
        service->info.description = wexfhost::ToString(description);
        service->info.on_protocol_status = on_protocol_status;
        service->info.on_get = on_get;
        service->info.on_set = on_set;
        service->info.on_cancel = on_cancel;
        service->info.user_data = user_data;
        handle = service.get();
        s.services.push_back(std::move(service));
    }
    wexfhost::Emit({wexfhost::Event::Kind::kServiceCreated, service_name});
    return handle;
}

int wexf_service_destroy(wexf_service_h service) {
    std::string name;
    {
        auto& s = State();
        std::lock_guard<std::mutex> lock(s.mutex);
        auto it = std::find_if(s.services.begin(), s.services.end(),
                               [&](const auto& p) { return p.get() == service; });
        if (it == s.services.end()) {
            return -EINVAL;  // unknown or already destroyed handle
        }
        name = (*it)->info.name;
        s.services.erase(it);
    }
    wexfhost::Emit({wexfhost::Event::Kind::kServiceDestroyed, name});
    return 0;
}

wexf_property_list_h wexf_property_list_create(void) {
    auto& s = State();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.lists.push_back(std::make_unique<wexf_property_list_s>());
    return s.lists.back().get();
}

wexf_property_h wexf_property_create_json_string(wexf_string_t name, wexf_string_t json) {
    auto& s = State();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (s.fault == wexfhost::Fault::kPropertyThrows) {
        throw std::runtime_error(s.fault_message);
    }
    auto property = std::make_unique<wexf_property_s>();
    property->name = wexfhost::ToString(name);
    property->json = wexfhost::ToString(json);
    s.loose_properties.push_back(std::move(property));
    return s.loose_properties.back().get();
}

int wexf_property_list_push_property(wexf_property_list_h list, wexf_property_h property,
                                     int /*flags*/) {
    auto& s = State();
    std::lock_guard<std::mutex> lock(s.mutex);
    auto it = std::find_if(s.loose_properties.begin(), s.loose_properties.end(),
                           [&](const auto& p) { return p.get() == property; });
    bool list_known =
        std::any_of(s.lists.begin(), s.lists.end(), [&](const auto& p) { return p.get() == list; });
    if (it == s.loose_properties.end() || !list_known) {
        return -EINVAL;
    }
    list->properties.push_back(std::move(*it));
    s.loose_properties.erase(it);
    return 0;
}

int wexf_service_notify(wexf_service_h service, wexf_property_list_h list) {
    std::vector<wexfhost::Notification> sent;
    std::function<void(const wexfhost::Notification&)> observer;
    std::string name;
    {
        auto& s = State();
        std::lock_guard<std::mutex> lock(s.mutex);
        if (s.fault == wexfhost::Fault::kNotifyThrows) {
            throw std::runtime_error(s.fault_message);
        }
        auto svc = std::find_if(s.services.begin(), s.services.end(),
                                [&](const auto& p) { return p.get() == service; });
        auto it = std::find_if(s.lists.begin(), s.lists.end(),
                               [&](const auto& p) { return p.get() == list; });
        if (svc == s.services.end() || it == s.lists.end()) {
            return -EINVAL;
        }
        name = (*svc)->info.name;
        for (const auto& property : (*it)->properties) {
            sent.push_back({name, property->name, property->json});
        }
        if (s.history_kept) {
            s.notifications.insert(s.notifications.end(), sent.begin(), sent.end());
        }
        s.lists.erase(it);  // the framework consumes the list and its properties
        observer = s.notification_observer;
    }
    wexfhost::Emit({wexfhost::Event::Kind::kNotified, name});
    if (observer) {
        for (const auto& n : sent) {
            observer(n);
        }
    }
    return 0;
}

}  // extern "C"
