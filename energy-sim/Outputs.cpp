#include "Outputs.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "ClockDriver.h"
#include "Error.h"
#include "SharedJson.h"
#include "VirtualClock.h"

namespace energysim {
namespace {

constexpr int64_t kProgressInterval = 100000000;  // real nanoseconds between progress lines

}  // namespace

Outputs::Outputs(std::ostream& out, std::string plot_file)
    : out_(out), plot_file_(std::move(plot_file)) {}

Outputs::~Outputs() {
    if (plot_ != nullptr) {
        std::fclose(plot_);
        plot_ = nullptr;
        remove_partial_plot();
    }
}

void Outputs::Open(const std::string& log_file, int log_level) {
    if (!plot_file_.empty()) {
        plot_ = std::fopen(plot_file_.c_str(), "w");
        if (plot_ == nullptr) {
            throw SimError("cannot write plot " + plot_file_ + ": " + std::strerror(errno));
        }
        struct stat st;
        plot_is_file_ = fstat(fileno(plot_), &st) == 0 && S_ISREG(st.st_mode);
    }
    log_ = std::make_unique<LogOutput>(log_file, log_level);
}

void Outputs::WriteNotification(const wexfhost::Notification& n) {
    const int64_t now = vclock::NowSeconds();
    common::json::JsonValue line(common::json::JsonType::Object);
    line["time"] = Iso(now);
    line["epoch"] = static_cast<long long>(now);
    line["property"] = n.property;
    line["json"] = n.json;
    const std::string text = line.toString(false) + "\n";
    std::lock_guard<std::mutex> lock(mutex_);
    out_ << text;
    out_.flush();
    if (!out_ && error_.empty()) {
        error_ = std::string("cannot write the reports to stdout: ") + std::strerror(errno);
    }
}

void Outputs::FailLater(const std::string& error) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (error_.empty()) {
        error_ = error;
    }
}

void Outputs::Check() {
    std::string error;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        error = error_;
    }
    if (error.empty() && log_) {
        error = log_->Error();
    }
    if (!error.empty()) {
        throw SimError(error);
    }
}

void Outputs::WritePlot(const std::string& svg) {
    const bool written = std::fwrite(svg.data(), 1, svg.size(), plot_) == svg.size();
    const bool closed = std::fclose(plot_) == 0;
    plot_ = nullptr;
    if (!written || !closed) {
        const std::string error = "cannot write plot " + plot_file_ + ": " + std::strerror(errno);
        remove_partial_plot();
        throw SimError(error);
    }
}

void Outputs::FinishLog() {
    const std::string error = log_->Finish();
    if (!error.empty()) {
        throw SimError(error);
    }
}

void Outputs::remove_partial_plot() {
    if (plot_is_file_) {
        std::remove(plot_file_.c_str());
    }
}

void ProgressLine::Show(bool force, int64_t now, double done, uint64_t turns, double wh) {
    if (!enabled_) {
        return;
    }
    const int64_t now_real = RealNanos();
    if (!force && now_real - last_ < kProgressInterval) {
        return;
    }
    last_ = now_real;
    fmt::print(stderr, "\r[{}] {:6.1f}%  {} turns  {:.3f} Wh   ", Iso(now), 100.0 * done, turns,
               wh);
    std::fflush(stderr);
}

void ProgressLine::End() const {
    if (enabled_) {
        std::fputs("\n", stderr);
    }
}

}  // namespace energysim
