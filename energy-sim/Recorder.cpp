#include "Recorder.h"

#include <fmt/format.h>

#include <cstdlib>
#include <cstring>

#include "Duration.h"
#include "Log.h"
#include "PluginLog.h"
#include "ServiceNames.h"
#include "SharedJson.h"

namespace energysim {
namespace {

constexpr char kNoEstimate[] = "no estimate";

// The energy a report carried, read from its text as sent: the running total's
// "cumulativePower", or the sum of the daily block report's "deltaEnergy" values.
double ReportedWh(const std::string& json) {
    const auto doc = common::json::JsonValue::Create(json);
    if (!doc.isMember(powermeter::names::kProperty)) {
        return std::strtod(doc[powermeter::names::kCumulativePower].asString().c_str(), nullptr);
    }
    const auto& blocks = doc[powermeter::names::kProperty];
    double wh = 0.0;
    for (unsigned i = 0; i < blocks.size(); ++i) {
        wh += blocks[i][powermeter::names::kDeltaEnergy].asDouble();
    }
    return wh;
}

std::string FormatDuration(uint64_t s) {
    return hostkit::FormatDuration(s, hostkit::DurationStyle::kClock);
}

}  // namespace

Recorder::Recorder(std::function<uint64_t()> now, TurnSink on_turn, ReportSink on_report)
    : now_(std::move(now)), on_turn_(std::move(on_turn)), on_report_(std::move(on_report)) {}

void Recorder::OnLog(const std::string& tag, const std::string& m) {
    if (tag != common::log::kEnergyTag) {
        return;
    }
    using Kind = hostkit::PluginLogLine::Kind;
    const hostkit::PluginLogLine line = hostkit::ReadPluginLog(m);
    std::lock_guard<std::mutex> lock(mutex_);
    if (line.kind == Kind::kTurnStart) {
        close_turn();
        turn_ = Turn{};
        turn_.time = now_();
        turn_.state = kNoEstimate;
        turn_open_ = true;
        turn_count_.fetch_add(1, std::memory_order_relaxed);
        return;
    }
    if (!turn_open_) {
        return;
    }
    switch (line.kind) {
        case Kind::kPowerStatus:
            turn_.state = std::string(line.value);
            break;
        case Kind::kCalculatedPower:
            turn_.watts = line.Number();
            break;
        case Kind::kInstantaneousPower:
            turn_.wh = line.Number();
            turn_.estimated = true;
            totals_.pending_wh += turn_.wh;
            metered_wh_.store(metered_wh_.load(std::memory_order_relaxed) + turn_.wh,
                              std::memory_order_relaxed);
            break;
        case Kind::kTurnFailed:
            if (!turn_.estimated) {
                turn_.state = kNoEstimate;
                turn_.watts = 0.0;
            }
            break;
        case Kind::kUploadNow:
            upload_open_ = true;
            upload_wh_ = totals_.pending_wh;
            totals_.pending_wh = 0.0;  // the queue is reset after the upload
            break;
        case Kind::kUploadFailed:
            if (upload_open_) {
                finish_upload(false, 0.0);
            }
            break;
        default:
            break;
    }
}

void Recorder::OnNotification(const std::string& property, const std::string& json) {
    if (property != powermeter::names::kProperty) {
        return;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    finish_upload(true, ReportedWh(json));
}

void Recorder::Finish() {
    std::lock_guard<std::mutex> lock(mutex_);
    close_turn();
    if (upload_open_) {  // an upload the run ended in: its energy is still the plug-in's
        totals_.pending_wh += upload_wh_;
        upload_open_ = false;
    }
}

void Recorder::OnRestart() {
    std::lock_guard<std::mutex> lock(mutex_);
    close_turn();
    ++totals_.restarts;
    totals_.restart_keeps_log = restart_keeps_log_;
    if (restart_keeps_log_) {
        return;  // the block log reloads its file; only its open write interval is not saved
    }
    totals_.restart_wh += totals_.pending_wh + (upload_open_ ? upload_wh_ : 0.0);
    totals_.pending_wh = 0.0;
    upload_open_ = false;
    upload_wh_ = 0.0;
}

void Recorder::close_turn() {
    if (!turn_open_) {
        return;
    }
    ++totals_.turns;
    StateTotal& s = totals_.by_state[turn_.state];
    ++s.turns;
    s.wh += turn_.wh;
    turn_open_ = false;
    if (on_turn_) {
        on_turn_(turn_);
    }
}

void Recorder::finish_upload(bool sent, double sent_wh) {
    const uint64_t time = turn_open_ ? turn_.time : now_();
    if (sent) {
        ++totals_.sent;
        totals_.sent_wh += sent_wh;
    } else {
        ++totals_.dropped;
        totals_.dropped_wh += upload_wh_;
    }
    upload_open_ = false;
    upload_wh_ = 0.0;
    if (on_report_) {
        on_report_(time, sent);
    }
}

Totals Recorder::Snapshot() const {
    std::lock_guard<std::mutex> lock(mutex_);
    Totals t = totals_;
    if (upload_open_) {
        t.pending_wh += upload_wh_;
    }
    return t;
}

std::string Summary(const Totals& t, uint64_t simulated_seconds, const std::string& interruption) {
    std::string out = fmt::format("simulated time   {} ({} s){}\n",
                                  FormatDuration(simulated_seconds), simulated_seconds,
                                  interruption.empty() ? "" : ", interrupted by " + interruption);
    out += fmt::format("turns            {}\n", t.turns);
    out += fmt::format("reports          {} sent ({:.6f} Wh), {} dropped ({:.6f} Wh)\n", t.sent,
                       t.sent_wh, t.dropped, t.dropped_wh);
    if (t.restarts > 0 && t.restart_keeps_log) {
        out +=
            fmt::format("restarts         {} (the block log kept in its data file)\n", t.restarts);
    } else if (t.restarts > 0) {
        out += fmt::format("restarts         {} ({:.6f} Wh metered and never reported)\n",
                           t.restarts, t.restart_wh);
    }
    out += fmt::format("total energy     {:.6f} Wh ({:.6f} Wh not yet reported)\n",
                       t.sent_wh + t.dropped_wh + t.restart_wh + t.pending_wh, t.pending_wh);
    out += "per power state  time            energy\n";
    for (const auto& [state, s] : t.by_state) {
        out += fmt::format("  {:<20} {}  {:14.6f} Wh\n", state, FormatDuration(s.turns * 10), s.wh);
    }
    out +=
        "sources          sent: the reports' cumulativePower as sent; the other figures: the\n"
        "                 plug-in's per-turn energy log lines\n";
    return out;
}

}  // namespace energysim
