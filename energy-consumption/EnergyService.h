// The framework front of the plug-in: registers the "energy-consumption" service, keeps track
// of whether the cloud protocol is ready, and turns the meter's reports into notifications.
#pragma once

#include <wexf.h>

#include <mutex>
#include <string>

namespace powermeter {

class EnergyService {
  public:
    static EnergyService& GetInstance();

    EnergyService(const EnergyService&) = delete;
    EnergyService& operator=(const EnergyService&) = delete;

    // Registers the service and, when that worked, starts the power meter.
    void Init();
    // Stops the power meter, then destroys the service.
    void Deinit();
    // Whether the meter's calculator can be initialised.
    bool IsAvailable();

    static void protocolStatusCallback(wexf_service_h service, wexf_string_t protocol,
                                       wexf_protocol_status_e status, void* user_data);
    static void getRequestCallback(wexf_service_h service, wexf_transaction_h transaction,
                                   wexf_property_list_h properties, void* user_data);
    static void setRequestCallback(wexf_service_h service, wexf_transaction_h transaction,
                                   wexf_property_list_h properties, void* user_data);
    static void cancelRequestCallback(wexf_service_h service, wexf_transaction_h transaction,
                                      void* user_data);

  private:
    EnergyService() = default;

    bool isReadyToNotify();
    void setReadyFlag(bool ready);
    // Sends one report as the "dailyPowerConsumption" property; runs on the meter's worker.
    void notify(const std::string& json);

    wexf_service_h m_handle = nullptr;
    // Plain flag on purpose: written by the framework's status callback, read by the worker.
    bool m_ready = false;
    std::recursive_mutex m_mutex;
};

}  // namespace powermeter
