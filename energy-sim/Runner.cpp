// One run: the world set up from the profile, the plug-in loaded and created, the timeline
// stepped and its commands applied, the plug-in stopped, the summary and the plot written. The
// clock driver, the plug-in's host and the outputs do the work.
#include "Runner.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <map>
#include <memory>

#include "ClockDriver.h"
#include "Error.h"
#include "Outputs.h"
#include "Plot.h"
#include "PluginHost.h"
#include "Recorder.h"
#include "ServiceNames.h"
#include "TempDir.h"
#include "VirtualClock.h"
#include "World.h"
#include "tvsim/Simulator.h"

namespace energysim {
namespace {

constexpr uint64_t kStep = 3600;  // simulated seconds between checkpoints

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

// Runs `f` on a plug-in's thread: an exception must not cross the plug-in, so it is kept for
// the main thread, which stops the run with it.
template <typename F>
void Guarded(Outputs& outputs, F f) {
    try {
        f();
    } catch (const std::exception& e) {
        outputs.FailLater(e.what());
    } catch (...) {
        outputs.FailLater("unexpected error");
    }
}

class Session : public Stage {
  public:
    Session(const RunOptions& o, std::ostream& out, std::ostream& err)
        : o_(o),
          err_(err),
          entries_(o.scenario ? o.scenario->entries : kNoEntries),
          outputs_(out, o.plot_file),
          progress_(o.progress),
          series_(static_cast<uint64_t>(o.start), o.duration),
          clock_(o.start, o.speed, o.interrupt),
          recorder_([this] { return static_cast<uint64_t>(vclock::NowSeconds() - clock_.Shift()); },
                    [this](const Turn& t) { series_.AddTurn(t.time, t.watts, t.wh); },
                    [this](uint64_t time, bool sent) { series_.AddReport(time, sent); }),
          host_(clock_, recorder_),
          picture_(o.profile.picture) {
        recorder_.SetRestartKeepsLog(o.queue == RunOptions::Queue::kBlocks);
    }
    // Stops and unloads the plug-in on an error path.
    ~Session() override { tear_down(); }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    int Run() {
        set_up_world();
        start_plugin();
        run_timeline();
        tear_down();
        return report();
    }

    std::map<std::string, std::string>& Picture() override { return picture_; }
    void ReportProtocol(const std::string& name, wexf_protocol_status_e status) override {
        host_.SetProtocol(name, status, true);
    }
    void RestartPlugin() override { host_.Restart(reached_); }
    void JumpWallClock(int64_t seconds) override { clock_.JumpWallClock(seconds); }

  private:
    void set_up_world();
    void observe();
    void start_plugin();
    void apply_entries_at(uint64_t offset, bool needs_service);
    void run_timeline();
    void show_progress(bool force);
    void tear_down();
    int report();

    static inline const std::vector<ScenarioEntry> kNoEntries;

    const RunOptions& o_;
    std::ostream& err_;
    const std::vector<ScenarioEntry>& entries_;
    size_t next_ = 0;  // the first entry not applied yet
    std::unique_ptr<hostkit::TempDir> scratch_;
    Outputs outputs_;
    ProgressLine progress_;
    PlotSeries series_;
    ClockDriver clock_;
    Recorder recorder_;
    PluginHost host_;
    std::map<std::string, std::string> picture_;  // register name -> published text
    bool observing_ = false;
    uint64_t reached_ = 0;  // simulated seconds run
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
    outputs_.Open(o_.log_file, o_.log_level);

    tvsim::Reset();
    wexfhost::Reset();
    wexfhost::SetHistoryKept(false);
    ApplyProfile(o_.profile);
    tvsim::SetAppPath(tvsim::AppPath::kData, data_dir);
    tvsim::SetAppPath(tvsim::AppPath::kSharedResource, o_.profile.shared_dir);
    tvsim::SetLogRetention(0);  // lines are followed as they come, not kept
    observe();
}

// The observers run on the plug-in's threads.
void Session::observe() {
    observing_ = true;
    tvsim::SetLogObserver([this](const tvsim::LogLine& line) {
        Guarded(outputs_, [&] {
            // A signal ends the run after the turn that is running: its next wait parks.
            if (o_.interrupt != nullptr && o_.interrupt->load() != 0) {
                vclock::SetLimit(vclock::NowNanos());
            }
            const std::string message = line.Message();
            host_.OnLog(message);
            recorder_.OnLog(line.tag, message);
            outputs_.WriteLog(line, vclock::NowSeconds());
        });
    });
    wexfhost::SetNotificationObserver([this](const wexfhost::Notification& n) {
        Guarded(outputs_, [&] {
            recorder_.OnNotification(n.property, n.json);
            outputs_.WriteNotification(n);
        });
    });
}

void Session::apply_entries_at(uint64_t offset, bool needs_service) {
    for (const ScenarioEntry& e : entries_) {
        if (e.offset == offset && e.command.kind->needs_service == needs_service) {
            Apply(e.command, *this);
        }
    }
}

void Session::start_plugin() {
    host_.Load(o_.plugin_path);
    clock_.Enable();  // the clock stands still except in the worker's waits
    // Settings at offset 0 are in place before the plug-in starts; protocol reports need its
    // service, so they follow CreatePlugin.
    apply_entries_at(0, false);
    if (!(o_.scenario && o_.scenario->SetsCorvaneAtStart())) {
        host_.SetProtocol(powermeter::names::kProtocol, WEXF_PROTOCOL_STATUS_READY, false);
    }
    host_.Create();
    apply_entries_at(0, true);
    while (next_ < entries_.size() && entries_[next_].offset == 0) {
        ++next_;
    }
}

void Session::run_timeline() {
    clock_.MarkStart();
    uint64_t at = 0;
    while (true) {
        uint64_t target = std::min(o_.duration, at + kStep);
        if (next_ < entries_.size()) {
            target = std::min(target, entries_[next_].offset);
        }
        clock_.StepTo(target, host_.WorkerStarted(), [this] {
            outputs_.Check();
            show_progress(false);
        });
        outputs_.Check();
        if (clock_.Signal() != 0) {
            // The last turn ran at "now" and counts for its 10 seconds, as every turn does.
            const int64_t last = vclock::NowSeconds() - clock_.Shift() - o_.start;
            reached_ = std::min<uint64_t>(
                o_.duration, static_cast<uint64_t>(last) + (recorder_.TurnCount() > 0 ? 10 : 0));
            break;
        }
        at = reached_ = target;
        show_progress(at >= o_.duration);
        if (at >= o_.duration) {
            break;
        }
        for (; next_ < entries_.size() && entries_[next_].offset == at; ++next_) {
            Apply(entries_[next_].command, *this);
        }
    }
    clock_.MarkEnd();
}

void Session::show_progress(bool force) {
    const int64_t now = vclock::NowSeconds();
    const double done = static_cast<double>(now - clock_.Shift() - o_.start) /
                        std::max<double>(1, static_cast<double>(o_.duration));
    progress_.Show(force, now, done, recorder_.TurnCount(), recorder_.MeteredWh());
}

// Stops the plug-in; the clock and the observers last. Runs on the normal path and, from the
// destructor, on every error path.
void Session::tear_down() {
    host_.Stop();
    if (observing_) {
        vclock::Disable();
        tvsim::SetLogObserver(nullptr);
        wexfhost::SetNotificationObserver(nullptr);
        recorder_.Finish();
        observing_ = false;
        progress_.End();
    }
}

int Session::report() {
    const int signal = clock_.Signal();
    err_ << Summary(recorder_.Snapshot(), reached_, signal != 0 ? SignalName(signal) : "");
    if (!host_.WorkerStarted()) {
        err_ << "note: the meter did not start (see the log with --log-level error)\n";
    }
    // Kept: the worker was where the paced clock wanted it nearly all the time.
    if (signal == 0 && clock_.FellBehind()) {
        err_ << fmt::format(
            "energy-sim: warning: this machine could not keep --speed {:g}; the run reached "
            "{:.4g} simulated seconds per real second\n",
            o_.speed, static_cast<double>(reached_) / clock_.RealSeconds());
    }
    err_.flush();
    if (!err_) {
        throw SimError(std::string("cannot write the summary to stderr: ") + std::strerror(errno));
    }
    if (outputs_.HasPlot()) {
        outputs_.WritePlot(
            RenderSvg("energy-consumption on " + o_.profile.name + ", from " + Iso(o_.start),
                      series_, entries_));
    }
    outputs_.FinishLog();
    outputs_.Check();
    return signal != 0 ? 128 + signal : 0;
}

}  // namespace

int Run(const RunOptions& o, std::ostream& out, std::ostream& err) {
    Session session(o, out, err);
    return session.Run();
}

}  // namespace energysim
