// Follows a run from the plug-in's log lines and the framework's notifications, in constant
// memory: the turn in progress, running totals per power state and per report outcome. Each
// finished turn and each report goes to the sinks (the plot), not into a list.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>

namespace energysim {

struct Turn {
    uint64_t time = 0;   // simulated seconds since the epoch, when the turn began
    double watts = 0.0;  // the calculator's result
    double wh = 0.0;     // the energy the meter accumulated for this turn
    std::string state;   // power status name, or "no estimate" when the turn failed
    bool estimated = false;
};

struct StateTotal {
    uint64_t turns = 0;
    double wh = 0.0;
};

// Where each figure comes from: "sent" from the reports' text; the rest from the plug-in's
// per-turn log lines ("Instantaneous Power: %lf", six decimals each).
struct Totals {
    uint64_t turns = 0;
    std::map<std::string, StateTotal> by_state;
    uint64_t sent = 0;
    uint64_t dropped = 0;
    double sent_wh = 0.0;     // sum of the cumulativePower values as sent
    double dropped_wh = 0.0;  // turns of the uploads that were dropped
    double pending_wh = 0.0;  // turns metered since the last upload: not reported yet
    uint64_t restarts = 0;
    bool restart_keeps_log = false;  // restarts keep the unreported energy (block log)
    double restart_wh = 0.0;         // turns metered before a restart and never reported
};

class Recorder {
  public:
    using TurnSink = std::function<void(const Turn&)>;
    using ReportSink = std::function<void(uint64_t time, bool sent)>;

    Recorder(std::function<uint64_t()> now, TurnSink on_turn, ReportSink on_report);

    // Feed every log message (the text after the "<file> : <function>(<line>)  " prefix).
    void OnLog(const std::string& tag, const std::string& message);
    // Feed every notification of the plug-in.
    void OnNotification(const std::string& property, const std::string& json);
    // Closes the turn in progress (at the end of the run).
    void Finish();
    // The plug-in was destroyed and created again: its unreported energy is gone, unless the
    // plug-in keeps its log in its data file (the daily block report).
    void OnRestart();
    void SetRestartKeepsLog(bool keeps) { restart_keeps_log_ = keeps; }

    Totals Snapshot() const;
    // Counters for the progress line, readable without the lock.
    uint64_t TurnCount() const { return turn_count_.load(std::memory_order_relaxed); }
    double MeteredWh() const { return metered_wh_.load(std::memory_order_relaxed); }

  private:
    void close_turn();
    void finish_upload(bool sent, double sent_wh);

    std::function<uint64_t()> now_;
    TurnSink on_turn_;
    ReportSink on_report_;
    mutable std::mutex mutex_;
    Turn turn_;
    bool turn_open_ = false;
    Totals totals_;
    double upload_wh_ = 0.0;  // the turns of the upload in progress
    bool upload_open_ = false;
    bool restart_keeps_log_ = false;
    std::atomic<uint64_t> turn_count_{0};
    std::atomic<double> metered_wh_{0.0};
};

// The summary printed at the end. `interruption` is empty, or says what ended the run early.
std::string Summary(const Totals& totals, uint64_t simulated_seconds,
                    const std::string& interruption);

}  // namespace energysim
