// Follows a run from the plug-in's log lines and the framework's notifications: one record per
// metering turn, the reports sent and dropped, and the totals for the summary.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace energysim {

struct Turn {
    uint64_t time = 0;   // simulated seconds since the epoch, when the turn began
    double watts = 0.0;  // the calculator's result
    double wh = 0.0;     // the energy the meter accumulated for this turn
    std::string state;   // power status name, or "no estimate" when the turn failed
    bool estimated = false;
};

struct Report {
    uint64_t time = 0;
    bool sent = false;  // false: dropped (protocol not ready, or the framework call failed)
    double wh = 0.0;    // energy the report covered
    std::string json;   // the text as sent (empty when dropped)
};

class Recorder {
  public:
    explicit Recorder(std::function<uint64_t()> now) : now_(std::move(now)) {}

    // Feed every log message (the text after the "<file> : <function>(<line>)  " prefix).
    void OnLog(int priority, const std::string& tag, const std::string& message);
    // Feed every notification of the plug-in.
    void OnNotification(const std::string& property, const std::string& json);

    std::vector<Turn> Turns() const;
    std::vector<Report> Reports() const;
    double TotalWh() const;
    double PendingWh() const;  // metered but not yet handed to an upload

    // Called when a report is sent or dropped (on the plug-in's worker thread).
    void SetReportObserver(std::function<void(const Report&)> observer) {
        report_observer_ = std::move(observer);
    }

  private:
    void finish_upload(bool sent, const std::string& json);

    std::function<uint64_t()> now_;
    std::function<void(const Report&)> report_observer_;
    mutable std::mutex mutex_;
    std::vector<Turn> turns_;
    std::vector<Report> reports_;
    double total_wh_ = 0.0;
    double pending_wh_ = 0.0;
    double upload_wh_ = 0.0;
    bool upload_open_ = false;
};

// A summary of the run, as printed at the end.
std::string Summary(const std::vector<Turn>& turns, const std::vector<Report>& reports,
                    double total_wh, double pending_wh, uint64_t simulated_seconds);

}  // namespace energysim
