// The plug-in as the framework holds it during a run: loaded, created, restarted and stopped,
// with the protocols' last statuses reported to each new service.
#pragma once

#include <wexf.h>

#include <atomic>
#include <map>
#include <memory>
#include <string>

#include "ClockDriver.h"
#include "Recorder.h"
#include "wexfhost/FrameworkHost.h"

namespace energysim {

class PluginHost {
  public:
    PluginHost(ClockDriver& clock, Recorder& recorder) : clock_(clock), recorder_(recorder) {}

    // Loads the library; throws SimError when it cannot be loaded.
    void Load(const std::string& path);
    // CreatePlugin, then the protocols' last statuses, as a framework reports them to a new
    // service.
    void Create();
    // The worker is parked just before `offset`: DestroyPlugin, then CreatePlugin at `offset`
    // (the new worker's first turn), with the data directory as it is. Before the first Create
    // there is nothing to restart.
    void Restart(uint64_t offset);
    // Keeps `status` for protocol `name`; `report` also reports it to the service now.
    void SetProtocol(const std::string& name, wexf_protocol_status_e status, bool report);
    // Parks the worker, then DestroyPlugin and unload. Safe to call more than once.
    void Stop();

    // Feed every log message: the meter's worker says when it starts. Any thread.
    void OnLog(const std::string& message);
    // True once the worker of the last Create started: it waits for the clock.
    bool WorkerStarted() const { return meter_started_; }

  private:
    ClockDriver& clock_;
    Recorder& recorder_;
    std::unique_ptr<wexfhost::Plugin> plugin_;
    bool created_ = false;
    std::atomic<bool> meter_started_{false};
    std::map<std::string, wexf_protocol_status_e> protocols_;
};

}  // namespace energysim
