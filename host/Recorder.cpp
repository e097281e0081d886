#include "Recorder.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace energysim {
namespace {

bool StartsWith(const std::string& s, const char* prefix) {
    return s.compare(0, std::strlen(prefix), prefix) == 0;
}

double NumberAfter(const std::string& s, size_t pos) {
    return std::strtod(s.c_str() + pos, nullptr);
}

constexpr char kTurnRule[] = "===================================";
constexpr char kStatus[] = "[Energy Factors] Power Status: ";
constexpr char kWatts[] = "[Energy] Calculated Power Consumption: ";
constexpr char kEnergy[] = "[Energy] Instantaneous Power: ";
constexpr char kFailedTurn[] = "[Energy] !!! An exception: ";
constexpr char kUpload[] = "[Energy] !!! UPLOAD NOW";
constexpr char kNotReady[] = "Protocol is not READY yet!!";
constexpr char kNotifyFailed[] = "exception caught = ";

std::string FormatDuration(uint64_t s) {
    char buf[64];
    std::snprintf(
        buf, sizeof buf, "%llud %02llu:%02llu:%02llu", static_cast<unsigned long long>(s / 86400),
        static_cast<unsigned long long>(s % 86400 / 3600),
        static_cast<unsigned long long>(s % 3600 / 60), static_cast<unsigned long long>(s % 60));
    return buf;
}

}  // namespace

void Recorder::OnLog(int /*priority*/, const std::string& tag, const std::string& m) {
    if (tag != "ENERGY_SERVICE") {
        return;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    if (StartsWith(m, kTurnRule) && m.size() > sizeof(kTurnRule) &&
        m[sizeof(kTurnRule) - 1] >= '0' && m[sizeof(kTurnRule) - 1] <= '9') {
        Turn t;
        t.time = now_();
        t.state = "no estimate";
        turns_.push_back(t);
    } else if (turns_.empty()) {
        return;
    } else if (StartsWith(m, kStatus)) {
        turns_.back().state = m.substr(sizeof(kStatus) - 1);
    } else if (StartsWith(m, kWatts)) {
        turns_.back().watts = NumberAfter(m, sizeof(kWatts) - 1);
    } else if (StartsWith(m, kEnergy)) {
        Turn& t = turns_.back();
        t.wh = NumberAfter(m, sizeof(kEnergy) - 1);
        t.estimated = true;
        total_wh_ += t.wh;
        pending_wh_ += t.wh;
    } else if (StartsWith(m, kFailedTurn)) {
        Turn& t = turns_.back();
        if (!t.estimated) {
            t.state = "no estimate";
            t.watts = 0.0;
        }
    } else if (m == kUpload) {
        upload_open_ = true;
        upload_wh_ = pending_wh_;
        pending_wh_ = 0.0;  // the queue is reset after the upload
    } else if (upload_open_ && (m == kNotReady || StartsWith(m, kNotifyFailed))) {
        finish_upload(false, "");
    }
}

void Recorder::OnNotification(const std::string& property, const std::string& json) {
    if (property != "dailyPowerConsumption") {
        return;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    finish_upload(true, json);
}

void Recorder::finish_upload(bool sent, const std::string& json) {
    Report r;
    r.time = turns_.empty() ? now_() : turns_.back().time;
    r.sent = sent;
    r.wh = upload_wh_;
    r.json = json;
    reports_.push_back(r);
    upload_open_ = false;
    upload_wh_ = 0.0;
    if (report_observer_) {
        report_observer_(r);
    }
}

std::vector<Turn> Recorder::Turns() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return turns_;
}

std::vector<Report> Recorder::Reports() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return reports_;
}

double Recorder::TotalWh() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return total_wh_;
}

double Recorder::PendingWh() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return pending_wh_ + (upload_open_ ? upload_wh_ : 0.0);
}

std::string Summary(const std::vector<Turn>& turns, const std::vector<Report>& reports,
                    double total_wh, double pending_wh, uint64_t simulated_seconds) {
    struct Bucket {
        uint64_t turns = 0;
        double wh = 0.0;
    };
    std::map<std::string, Bucket> by_state;
    for (const Turn& t : turns) {
        Bucket& b = by_state[t.state];
        ++b.turns;
        b.wh += t.wh;
    }
    size_t sent = 0, dropped = 0;
    double sent_wh = 0.0, dropped_wh = 0.0;
    for (const Report& r : reports) {
        (r.sent ? sent : dropped)++;
        (r.sent ? sent_wh : dropped_wh) += r.wh;
    }
    std::string out;
    char line[256];
    std::snprintf(line, sizeof line, "simulated time   %s (%llu s)\n",
                  FormatDuration(simulated_seconds).c_str(),
                  static_cast<unsigned long long>(simulated_seconds));
    out += line;
    std::snprintf(line, sizeof line, "turns            %zu\n", turns.size());
    out += line;
    std::snprintf(line, sizeof line, "reports          %zu sent (%.6f Wh), %zu dropped (%.6f Wh)\n",
                  sent, sent_wh, dropped, dropped_wh);
    out += line;
    std::snprintf(line, sizeof line, "total energy     %.6f Wh (%.6f Wh not yet reported)\n",
                  total_wh, pending_wh);
    out += line;
    out += "per power state  time            energy\n";
    for (const auto& [state, b] : by_state) {
        std::snprintf(line, sizeof line, "  %-20s %s  %14.6f Wh\n", state.c_str(),
                      FormatDuration(b.turns * 10).c_str(), b.wh);
        out += line;
    }
    return out;
}

}  // namespace energysim
