#include "Runner.h"

#include <dlog.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>
#include <memory>
#include <mutex>

#include "Error.h"
#include "InputFile.h"
#include "LogOutput.h"
#include "LogTexts.h"
#include "Plot.h"
#include "Recorder.h"
#include "SharedJson.h"
#include "SystemInfoUtil.h"
#include "TempDir.h"
#include "VirtualClock.h"
#include "World.h"
#include "tvsim/Simulator.h"
#include "wexfhost/FrameworkHost.h"

namespace energysim {
namespace {

constexpr uint64_t kStep = 3600;                  // simulated seconds between checkpoints
constexpr int64_t kPaceTick = 10000000;           // real nanoseconds between limit raises
constexpr int64_t kProgressInterval = 100000000;  // real nanoseconds between progress lines
constexpr int kParkPollMs = 100;
// The largest plug-in library loaded (a sanitizer build is a few MB).
constexpr uint64_t kMaxPluginBytes = 256ull * 1024 * 1024;

// Real monotonic time. The process's clock functions run in virtual time while the virtual
// clock is enabled, so this goes to the kernel directly.
int64_t RealNanos() {
    return vclock::KernelNanos(CLOCK_MONOTONIC);
}

void SleepReal(int64_t nanos) {
    struct timespec ts {};
    ts.tv_sec = static_cast<time_t>(nanos / vclock::kNanosPerSecond);
    ts.tv_nsec = static_cast<long>(nanos % vclock::kNanosPerSecond);
    nanosleep(&ts, nullptr);  // not interposed: a real sleep; a signal just ends it early
}

bool IsDir(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

std::string SignalName(int sig) {
    switch (sig) {
        case SIGINT:
            return "SIGINT";
        case SIGTERM:
            return "SIGTERM";
        case SIGHUP:
            return "SIGHUP";
        case SIGXFSZ:
            return "SIGXFSZ";
        default:
            return "signal " + std::to_string(sig);
    }
}

// One run: set up the world, load the plug-in, run the timeline, tear down, report. The
// destructor stops and unloads the plug-in on an error path.
class Session : public Stage {
  public:
    Session(const RunOptions& o, std::ostream& out, std::ostream& err)
        : o_(o),
          out_(out),
          err_(err),
          series_(static_cast<uint64_t>(o.start), o.duration),
          recorder_([this] { return static_cast<uint64_t>(vclock::NowSeconds() - wall_shift_); },
                    [this](const Turn& t) { series_.AddTurn(t.time, t.watts, t.wh); },
                    [this](uint64_t time, bool sent) { series_.AddReport(time, sent); }),
          picture_(o.profile.picture) {
        if (o.scenario) {
            entries_ = &o.scenario->entries;
        }
        recorder_.SetRestartKeepsLog(o.queue == RunOptions::Queue::kBlocks);
    }
    // On an error path the plot is not written: a plot file this run truncated is removed, so
    // a plot is either complete or absent.
    ~Session() {
        tear_down();
        if (plot_ != nullptr) {
            std::fclose(plot_);
            plot_ = nullptr;
            remove_partial_plot();
        }
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    int Run() {
        set_up_world();
        load_plugin();
        run_timeline();
        tear_down();
        return report();
    }

    std::map<std::string, std::string>& Picture() override { return picture_; }
    void ReportProtocol(const std::string& name, wexf_protocol_status_e status) override;
    void RestartPlugin() override;
    void JumpWallClock(int64_t seconds) override;

  private:
    void set_up_world();
    void load_plugin();
    void run_timeline();
    void tear_down();
    int report();

    void apply_entries_at(uint64_t offset, bool protocol);
    void create_plugin();
    int64_t wall_at(uint64_t offset) const;
    void advance_clock_to(uint64_t offset);
    void step_to(uint64_t offset);
    void pace_to(uint64_t offset);
    void wait_parked();
    bool poll_interrupt();
    void check_outputs();
    void show_progress(bool force);
    void write_notification(const wexfhost::Notification& n);
    void write_plot();
    void remove_partial_plot();
    void fail_later(const std::string& error);

    const RunOptions& o_;
    std::ostream& out_;
    std::ostream& err_;
    const std::vector<ScenarioEntry>* entries_ = nullptr;
    size_t next_ = 0;
    std::unique_ptr<hostkit::TempDir> scratch_;
    std::unique_ptr<LogOutput> log_;
    FILE* plot_ = nullptr;
    bool plot_is_file_ = false;  // a regular file, which an error path removes
    PlotSeries series_;
    Recorder recorder_;
    std::map<std::string, std::string> picture_;  // register name -> published text
    std::unique_ptr<wexfhost::Plugin> plugin_;
    std::atomic<bool> meter_started_{false};
    bool created_ = false;  // CreatePlugin ran
    // The last status of each protocol, reported again to a re-created service.
    std::map<std::string, wexf_protocol_status_e> protocols_;
    bool observing_ = false;
    std::mutex out_mutex_;
    // The first error of the worker's thread (an output that failed, an exception in an
    // observer); the main thread raises it at its next check.
    std::string out_error_;
    uint64_t reached_ = 0;  // simulated seconds run
    // The scenario's wall-clock jumps so far: the wall clock reads the run's time plus this.
    // Read by the recorder on the worker's thread.
    std::atomic<int64_t> wall_shift_{0};
    int signal_ = 0;
    int64_t real_start_ = 0;
    int64_t real_end_ = 0;
    int64_t last_progress_ = 0;
    int64_t lag_ = 0;
};

void Session::set_up_world() {
    std::string data_dir = o_.profile.data_dir;
    if (data_dir.empty()) {
        scratch_ = std::make_unique<hostkit::TempDir>("energy-sim");
        data_dir = scratch_->path();
    }
    if (!IsDir(data_dir)) {
        throw SimError("data directory " + data_dir + " does not exist");
    }
    if (!IsDir(o_.profile.shared_dir)) {
        throw SimError("shared directory " + o_.profile.shared_dir + " does not exist");
    }
    if (!o_.plot_file.empty()) {
        plot_ = std::fopen(o_.plot_file.c_str(), "w");
        if (plot_ == nullptr) {
            throw SimError("cannot write plot " + o_.plot_file + ": " + std::strerror(errno));
        }
        struct stat st;
        plot_is_file_ = fstat(fileno(plot_), &st) == 0 && S_ISREG(st.st_mode);
    }
    log_ = std::make_unique<LogOutput>(o_.log_file, o_.log_level);

    tvsim::Reset();
    wexfhost::Reset();
    wexfhost::SetHistoryKept(false);
    ApplyProfile(o_.profile);
    tvsim::SetAppPath(tvsim::AppPath::kData, data_dir);
    tvsim::SetAppPath(tvsim::AppPath::kSharedResource, o_.profile.shared_dir);
    tvsim::SetLogRetention(0);  // lines are followed as they come, not kept
    observing_ = true;
    // The observers run on the plug-in's threads: an exception must not cross the plug-in, so
    // it is kept for the main thread, which stops the run with it.
    tvsim::SetLogObserver([this](const tvsim::LogLine& line) {
        try {
            // A signal ends the run after the turn that is running: its next wait parks.
            if (o_.interrupt != nullptr && o_.interrupt->load() != 0) {
                vclock::SetLimit(vclock::NowNanos());
            }
            const std::string message = line.Message();
            if (message.rfind(powermeter::logtext::kMeterThreadCreated, 0) == 0) {
                meter_started_ = true;
            }
            recorder_.OnLog(line.tag, message);
            log_->Write(line, vclock::NowSeconds());
        } catch (const std::exception& e) {
            fail_later(e.what());
        } catch (...) {
            fail_later("unexpected error");
        }
    });
    wexfhost::SetNotificationObserver([this](const wexfhost::Notification& n) {
        try {
            write_notification(n);
        } catch (const std::exception& e) {
            fail_later(e.what());
        } catch (...) {
            fail_later("unexpected error");
        }
    });
}

void Session::fail_later(const std::string& error) {
    std::lock_guard<std::mutex> lock(out_mutex_);
    if (out_error_.empty()) {
        out_error_ = error;
    }
}

void Session::write_notification(const wexfhost::Notification& n) {
    recorder_.OnNotification(n.property, n.json);
    const int64_t now = vclock::NowSeconds();
    common::json::JsonValue line(common::json::JsonType::Object);
    line["time"] = Iso(now);
    line["epoch"] = static_cast<long long>(now);
    line["property"] = n.property;
    line["json"] = n.json;
    const std::string text = line.toString(false) + "\n";
    std::lock_guard<std::mutex> lock(out_mutex_);
    out_ << text;
    out_.flush();
    if (!out_ && out_error_.empty()) {
        out_error_ = std::string("cannot write the reports to stdout: ") + std::strerror(errno);
    }
}

void Session::apply_entries_at(uint64_t offset, bool protocol) {
    if (entries_ == nullptr) {
        return;
    }
    for (const ScenarioEntry& e : *entries_) {
        if (e.offset == offset && e.command.kind->needs_service == protocol) {
            Apply(e.command, *this);
        }
    }
}

void Session::load_plugin() {
    // dlopen would block on a FIFO and read a device without end: a path that names something
    // must be a regular file. A missing one is left to dlopen, whose message says it all.
    struct stat st;
    if (o_.plugin_path.find('/') != std::string::npos && stat(o_.plugin_path.c_str(), &st) == 0) {
        const std::string why = hostkit::CheckInputFile(o_.plugin_path, kMaxPluginBytes);
        if (!why.empty()) {
            throw SimError("cannot load plug-in '" + o_.plugin_path + "': " + why);
        }
    }
    std::string error;
    plugin_ = wexfhost::Plugin::Load(o_.plugin_path, &error);
    if (!plugin_) {
        throw SimError(error);
    }
    // The clock stands still except in the worker's waits; the timeline raises its limit.
    vclock::Enable(o_.start);
    vclock::SetLimitSeconds(o_.start);
    // Settings at offset 0 are in place before the plug-in starts; protocol reports need its
    // service, so they follow CreatePlugin.
    apply_entries_at(0, false);
    if (!(o_.scenario && o_.scenario->SetsCorvaneAtStart())) {
        protocols_["corvane"] = WEXF_PROTOCOL_STATUS_READY;
    }
    create_plugin();
    apply_entries_at(0, true);
    while (entries_ != nullptr && next_ < entries_->size() && (*entries_)[next_].offset == 0) {
        ++next_;
    }
}

void Session::run_timeline() {
    real_start_ = RealNanos();
    uint64_t at = 0;
    while (true) {
        uint64_t target = std::min(o_.duration, at + kStep);
        if (entries_ != nullptr && next_ < entries_->size()) {
            target = std::min(target, (*entries_)[next_].offset);
        }
        step_to(target);
        if (signal_ != 0) {
            // The last turn ran at "now" and counts for its 10 seconds, as every turn does.
            const int64_t last = vclock::NowSeconds() - wall_shift_ - o_.start;
            reached_ = std::min<uint64_t>(
                o_.duration, static_cast<uint64_t>(last) + (recorder_.TurnCount() > 0 ? 10 : 0));
            break;
        }
        at = reached_ = target;
        show_progress(at >= o_.duration);
        if (at >= o_.duration) {
            break;
        }
        for (; entries_ != nullptr && next_ < entries_->size() && (*entries_)[next_].offset == at;
             ++next_) {
            Apply((*entries_)[next_].command, *this);
        }
    }
    real_end_ = RealNanos();
}

void Session::ReportProtocol(const std::string& name, wexf_protocol_status_e status) {
    protocols_[name] = status;
    wexfhost::FireProtocolStatus(kService, name, status);
}

// CreatePlugin, then the protocols' last statuses, as a framework reports them to a new service.
void Session::create_plugin() {
    meter_started_ = false;
    created_ = true;
    plugin_->Create();  // returns 1 whatever happened; its log says the rest
    for (const auto& [name, status] : protocols_) {
        wexfhost::FireProtocolStatus(kService, name, status);
    }
}

// The worker is parked just before the time reached: DestroyPlugin, then CreatePlugin at that
// time (the new worker's first turn), with the data directory as it is. Before the first
// CreatePlugin there is nothing to restart.
void Session::RestartPlugin() {
    if (!created_) {
        return;
    }
    plugin_->Destroy();
    recorder_.OnRestart();
    advance_clock_to(reached_);
    create_plugin();
    wait_parked();
}

// The worker is parked (or not yet created): the wall clock jumps, the monotonic clock and the
// limit (kept as elapsed time) do not, so the next turn still comes 10 s after the last one.
void Session::JumpWallClock(int64_t seconds) {
    if (!vclock::JumpWallClockSeconds(seconds)) {
        throw SimError(fmt::format("clock {:+d} s would move the wall clock before 1970", seconds));
    }
    wall_shift_ += seconds;
}

// The wall-clock time of the run's `offset`, after the jumps so far.
int64_t Session::wall_at(uint64_t offset) const {
    return o_.start + wall_shift_ + static_cast<int64_t>(offset);
}

// With no worker waiting, a timed wait of this thread moves virtual time to `offset`.
void Session::advance_clock_to(uint64_t offset) {
    const int64_t target = wall_at(offset);
    vclock::SetLimitSeconds(target);
    std::mutex m;
    std::condition_variable cv;
    std::unique_lock<std::mutex> lock(m);
    const auto delta =
        std::chrono::nanoseconds(target * vclock::kNanosPerSecond - vclock::NowNanos());
    cv.wait_until(lock, std::chrono::steady_clock::now() + delta);
}

// Lets the plug-in run every turn due before `offset` (a turn due exactly at a change must see
// the change), and waits until its worker waits for the next one.
void Session::step_to(uint64_t offset) {
    if (o_.speed > 0) {
        pace_to(offset);
    }
    if (!poll_interrupt()) {
        vclock::SetLimit(wall_at(offset) * vclock::kNanosPerSecond - 1);
    }
    const int64_t waiting_since = RealNanos();
    wait_parked();
    lag_ += RealNanos() - waiting_since;  // real time the paced clock waited for the worker
    // A signal during the wait parked the worker early (see the log observer): the run has not
    // reached `offset`, and must not apply its changes.
    poll_interrupt();
    check_outputs();
}

// Raises the limit with real time, `speed` simulated seconds per real second. Time moves only
// when the worker's wait reaches its deadline, so a slow machine makes the run slower, never
// skips a turn.
void Session::pace_to(uint64_t offset) {
    while (!poll_interrupt()) {
        const double real = static_cast<double>(RealNanos() - real_start_) / 1e9;
        const double paced = o_.speed * real;
        if (paced >= static_cast<double>(offset)) {
            return;
        }
        vclock::SetLimit(wall_at(0) * vclock::kNanosPerSecond + static_cast<int64_t>(paced * 1e9));
        check_outputs();
        show_progress(false);
        SleepReal(kPaceTick);
    }
}

void Session::wait_parked() {
    if (!meter_started_) {
        return;  // no worker: nothing waits
    }
    while (!vclock::WaitUntilParked(kParkPollMs)) {
        poll_interrupt();
    }
}

// Takes a pending interrupt: from now on the worker parks at its next wait.
bool Session::poll_interrupt() {
    if (signal_ == 0 && o_.interrupt != nullptr && o_.interrupt->load() != 0) {
        signal_ = o_.interrupt->load();
        vclock::SetLimit(vclock::NowNanos());
    }
    return signal_ != 0;
}

void Session::check_outputs() {
    std::string error;
    {
        std::lock_guard<std::mutex> lock(out_mutex_);
        error = out_error_;
    }
    if (error.empty()) {
        error = log_->Error();
    }
    if (!error.empty()) {
        throw SimError(error);
    }
}

void Session::show_progress(bool force) {
    if (!o_.progress) {
        return;
    }
    const int64_t now_real = RealNanos();
    if (!force && now_real - last_progress_ < kProgressInterval) {
        return;
    }
    last_progress_ = now_real;
    const int64_t now = vclock::NowSeconds();
    fmt::print(stderr, "\r[{}] {:6.1f}%  {} turns  {:.3f} Wh   ", Iso(now),
               100.0 * static_cast<double>(now - wall_shift_ - o_.start) /
                   std::max<double>(1, static_cast<double>(o_.duration)),
               recorder_.TurnCount(), recorder_.MeteredWh());
    std::fflush(stderr);
}

// Parks the worker, then DestroyPlugin and unload; the clock and the observers last. Runs on
// the normal path and, from the destructor, on every error path.
void Session::tear_down() {
    if (plugin_) {
        if (meter_started_) {
            vclock::SetLimit(vclock::NowNanos());
            if (!vclock::WaitUntilParked(2000)) {
                vclock::ClearLimit();  // a worker that does not park still sees the stop
            }
        }
        plugin_->Destroy();
        plugin_.reset();
    }
    if (observing_) {
        vclock::Disable();
        tvsim::SetLogObserver(nullptr);
        wexfhost::SetNotificationObserver(nullptr);
        recorder_.Finish();
        observing_ = false;
        if (o_.progress) {
            std::fputs("\n", stderr);
        }
    }
}

void Session::write_plot() {
    const std::string svg =
        RenderSvg("energy-consumption on " + o_.profile.name + ", from " + Iso(o_.start), series_,
                  entries_ != nullptr ? *entries_ : std::vector<ScenarioEntry>{});
    const bool written = std::fwrite(svg.data(), 1, svg.size(), plot_) == svg.size();
    const bool closed = std::fclose(plot_) == 0;
    plot_ = nullptr;
    if (!written || !closed) {
        const std::string error = "cannot write plot " + o_.plot_file + ": " + std::strerror(errno);
        remove_partial_plot();
        throw SimError(error);
    }
}

void Session::remove_partial_plot() {
    if (plot_is_file_) {
        std::remove(o_.plot_file.c_str());
    }
}

int Session::report() {
    err_ << Summary(recorder_.Snapshot(), reached_, signal_ != 0 ? SignalName(signal_) : "");
    if (!meter_started_) {
        err_ << "note: the meter did not start (see the log with --log-level error)\n";
    }
    // Kept: the worker was where the paced clock wanted it nearly all the time.
    const double real = static_cast<double>(real_end_ - real_start_) / 1e9;
    if (o_.speed > 0 && signal_ == 0 && real > 0 &&
        static_cast<double>(lag_) > 0.1 * static_cast<double>(real_end_ - real_start_)) {
        err_ << fmt::format(
            "energy-sim: warning: this machine could not keep --speed {:g}; the run reached "
            "{:.4g} simulated seconds per real second\n",
            o_.speed, static_cast<double>(reached_) / real);
    }
    err_.flush();
    if (!err_) {
        throw SimError(std::string("cannot write the summary to stderr: ") + std::strerror(errno));
    }
    if (plot_ != nullptr) {
        write_plot();
    }
    const std::string log_error = log_->Finish();
    if (!log_error.empty()) {
        throw SimError(log_error);
    }
    check_outputs();
    return signal_ != 0 ? 128 + signal_ : 0;
}

}  // namespace

int Run(const RunOptions& o, std::ostream& out, std::ostream& err) {
    Session session(o, out, err);
    return session.Run();
}

int Check(const DeviceProfile& profile, const std::string& default_shared_dir, std::ostream& out) {
    tvsim::Reset();
    ApplyProfile(profile);
    tvsim::SetAppPath(tvsim::AppPath::kSharedResource,
                      profile.shared_dir.empty() ? default_shared_dir : profile.shared_dir);
    uint64_t mark = tvsim::LogMark();
    bool supported = SystemInfoUtil::IsSupportEnergyService();
    std::string reason;
    for (const tvsim::LogLine& line : tvsim::LinesSince(mark)) {
        std::string m = line.Message();
        bool decisive = line.priority == DLOG_ERROR ||
                        m.find("find one from energy data set") != std::string::npos;
        if (decisive && m.find("Availability Check") == std::string::npos) {
            reason = m;
        }
    }
    out << (supported ? "supported" : "not supported") << ": " << profile.name << "\n";
    if (!reason.empty()) {
        out << "reason: " << reason << "\n";
    }
    return supported ? 0 : 1;
}

}  // namespace energysim
