#include "EnergyService.h"

#include <cstring>
#include <exception>

#include "Log.h"
#include "LogTexts.h"
#include "PowerMeter.h"
#include "ServiceNames.h"

namespace powermeter {

namespace {

wexf_string_t make_string(const char* chars, size_t length) {
    wexf_string_t value{};
    wexf_string_new(&value, chars, length);
    return value;
}

}  // namespace

EnergyService& EnergyService::GetInstance() {
    static EnergyService instance;
    return instance;
}

void EnergyService::Init() {
    ELOGI("Energy Consumption Plugin Init");
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    const wexf_string_t name = make_string(names::kService, std::strlen(names::kService));
    const wexf_string_t description =
        make_string(names::kServiceDescription, std::strlen(names::kServiceDescription));
    // A handle from an earlier Init is overwritten, not looked at.
    m_handle = wexf_service_create(name, description, protocolStatusCallback, getRequestCallback,
                                   setRequestCallback, cancelRequestCallback, this);
    if (m_handle == nullptr) {
        ELOGI("Fail to create service");
        return;
    }
    const PowerMeter::NotifyFunction notify = [this](const std::string& json) {
        this->notify(json);
    };
    // A meter that cannot start leaves the service registered without metering.
    PowerMeter::GetInstance()->Start(notify);
}

void EnergyService::Deinit() {
    ELOGI("Energy Consumption Plugin Deinit");
    // Joins the worker before the handle goes, so no notification races its destruction.
    PowerMeter::GetInstance()->Stop();
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    if (m_handle == nullptr) {
        ELOGE("NOT CREATED HANDLE");
        return;
    }
    // The handle and the ready flag are kept as they are.
    wexf_service_destroy(m_handle);
}

bool EnergyService::IsAvailable() {
    return PowerMeter::GetInstance()->IsAvailable();
}

bool EnergyService::isReadyToNotify() {
    return m_ready;
}

void EnergyService::setReadyFlag(bool ready) {
    m_ready = ready;
}

void EnergyService::protocolStatusCallback(wexf_service_h /*service*/, wexf_string_t protocol,
                                           wexf_protocol_status_e status, void* user_data) {
    const std::string name = protocol.str != nullptr ? std::string(protocol.str) : std::string();
    // ERROR on purpose: every status change stands out in the log.
    ELOGE("protocol name[%s], protocol status[%d]", name.c_str(), static_cast<int>(status));
    if (name != names::kProtocol) {
        return;
    }
    if (status == 0 || status == 2) {
        ELOGI("corvane protocol is ready");
        if (user_data != nullptr) {
            static_cast<EnergyService*>(user_data)->setReadyFlag(true);
        }
    } else {
        static_cast<EnergyService*>(user_data)->setReadyFlag(false);
    }
}

void EnergyService::getRequestCallback(wexf_service_h /*service*/,
                                       wexf_transaction_h /*transaction*/,
                                       wexf_property_list_h /*properties*/, void* /*user_data*/) {
    ELOGI("NOT USED");
}

void EnergyService::setRequestCallback(wexf_service_h /*service*/,
                                       wexf_transaction_h /*transaction*/,
                                       wexf_property_list_h /*properties*/, void* /*user_data*/) {
    ELOGI("NOT USED");
}

void EnergyService::cancelRequestCallback(wexf_service_h /*service*/,
                                          wexf_transaction_h /*transaction*/, void* /*user_data*/) {
    ELOGI("NOT USED");
}

void EnergyService::notify(const std::string& json) {
    if (!isReadyToNotify()) {
        // Dropped, not kept for later: the meter resets its queue all the same.
        ELOGE("%s", logtext::kProtocolNotReady);
        return;
    }
    ELOGI("notify %s", json.c_str());
    try {
        wexf_property_list_h list = wexf_property_list_create();
        const wexf_string_t name = make_string(names::kProperty, std::strlen(names::kProperty));
        const wexf_string_t value = make_string(json.c_str(), json.size());
        wexf_property_h property = wexf_property_create_json_string(name, value);
        wexf_property_list_push_property(list, property, 0);
        // The framework takes the list and its property over.
        wexf_service_notify(m_handle, list);
    } catch (const std::exception& e) {
        ELOGE("%s%s", logtext::kNotifyFailed, e.what());
    }
}

}  // namespace powermeter
