#include "Runner.h"

#include <dlog.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>

#include "Plot.h"
#include "PowerStates.h"
#include "Recorder.h"
#include "SystemInfoUtil.h"
#include "VirtualClock.h"
#include "tvsim/Simulator.h"
#include "wexfhost/FrameworkHost.h"

namespace energysim {
namespace {

constexpr char kService[] = "energy-consumption";
constexpr char kPictureKey[] = "memory/ave/powerconsumption";
constexpr uint64_t kProgressStep = 3600;  // simulated seconds between progress updates

std::string Iso(int64_t epoch) {
    std::time_t t = static_cast<std::time_t>(epoch);
    std::tm tm{};
    gmtime_r(&t, &tm);
    char buf[32];
    std::strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%SZ", &tm);
    return buf;
}

std::string JsonString(const std::string& s) {
    std::string out = "\"";
    for (unsigned char c : s) {
        switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            default:
                if (c < 0x20) {
                    char buf[8];
                    std::snprintf(buf, sizeof buf, "\\u%04x", c);
                    out += buf;
                } else {
                    out += static_cast<char>(c);
                }
        }
    }
    return out + "\"";
}

bool IsDir(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// A fresh temporary data directory, removed at the end of the run.
class ScratchDir {
  public:
    ScratchDir() {
        char tmpl[] = "/tmp/energy-sim-XXXXXX";
        if (mkdtemp(tmpl) == nullptr) {
            throw std::runtime_error(std::string("cannot create a data directory: ") +
                                     std::strerror(errno));
        }
        path_ = std::string(tmpl) + "/";
    }
    ~ScratchDir() {
        std::error_code ec;
        std::filesystem::remove_all(path_, ec);
    }
    const std::string& path() const { return path_; }

  private:
    std::string path_;
};

// The simulated TV's state that scenario entries change.
class World {
  public:
    explicit World(const DeviceProfile& p) : picture_(p.picture) {}

    void Apply(const ScenarioEntry& e) {
        const auto& a = e.args;
        const std::string& c = e.command;
        if (c == "power") {
            PowerSetting s;
            ParsePowerName(a[0], &s);
            tvsim::SetPowerState(s.state);
            tvsim::SetAmbientMode(s.ambient);
        } else if (c == "power-state") {
            tvsim::SetPowerState(std::stoi(a[0]));
        } else if (c == "ambient-mode") {
            tvsim::SetAmbientMode(std::stoi(a[0]));
        } else if (c == "volume") {
            tvsim::SetMasterVolume(std::stoi(a[0]));
        } else if (c == "speaker") {
            tvsim::SetSpeakerSelection(a[0] == "tv" ? 0 : a[0] == "external" ? 1 : std::stoi(a[0]));
        } else if (c == "picture") {
            for (const std::string& kv : a) {
                size_t eq = kv.find('=');
                std::string name = kv.substr(0, eq), value = kv.substr(eq + 1);
                if (value == "-") {
                    picture_.erase(name);
                } else {
                    picture_[name] = std::to_string(std::stoll(value));
                }
            }
            tvsim::SetVconf(kPictureKey, PictureJson(picture_));
        } else if (c == "config") {
            tvsim::SetVconf(kPictureKey, a[0] == "missing"
                                             ? std::nullopt
                                             : std::optional<std::string>(PictureJson(picture_)));
        } else if (c == "config-raw") {
            tvsim::SetVconf(kPictureKey, a.empty() ? std::string() : a[0]);
        } else if (c == "protocol") {
            wexfhost::FireProtocolStatus(kService, a[0], ProtocolStatus(a[1]));
        } else if (c == "fail" || c == "restore") {
            for (int i = 0; i <= static_cast<int>(tvsim::Call::kTimeFromSec); ++i) {
                auto call = static_cast<tvsim::Call>(i);
                if (a[0] == tvsim::CallName(call)) {
                    if (c == "fail") {
                        tvsim::FailCall(call, std::stoi(a[1]));
                    } else {
                        tvsim::ClearFailure(call);
                    }
                }
            }
        }
    }

    static wexf_protocol_status_e ProtocolStatus(const std::string& s) {
        if (s == "ready")
            return WEXF_PROTOCOL_STATUS_READY;
        if (s == "connected")
            return WEXF_PROTOCOL_STATUS_CONNECTED;
        if (s == "disconnected")
            return WEXF_PROTOCOL_STATUS_DISCONNECTED;
        if (s == "error")
            return WEXF_PROTOCOL_STATUS_ERROR;
        return static_cast<wexf_protocol_status_e>(std::stoi(s));
    }

  private:
    std::map<std::string, std::string> picture_;
};

// Where the plug-in's log goes: stderr or a file, from a minimum priority.
class LogOutput {
  public:
    LogOutput(const std::string& file, int min_priority) : min_priority_(min_priority) {
        if (!file.empty()) {
            file_.open(file, std::ios::out | std::ios::trunc);
            if (!file_) {
                throw std::runtime_error("cannot write log file " + file + ": " +
                                         std::strerror(errno));
            }
        }
    }
    void Write(const tvsim::LogLine& line, int64_t now) {
        if (line.priority < min_priority_) {
            return;
        }
        std::lock_guard<std::mutex> lock(mutex_);
        std::string text = Iso(now) + " " + tvsim::PriorityName(line.priority) + " " + line.tag +
                           ": " + line.text + "\n";
        if (file_.is_open()) {
            file_ << text;
        } else {
            std::fputs(text.c_str(), stderr);
        }
    }

  private:
    int min_priority_;
    std::mutex mutex_;
    std::ofstream file_;
};

}  // namespace

void ApplyProfile(const DeviceProfile& p) {
    tvsim::SetModelName(p.model);
    tvsim::SetPanelType(p.panel_type);
    tvsim::SetLocaleSet(p.locale_set);
    tvsim::SetModelYear(p.model_year);
    tvsim::SetVconf(kPictureKey, PictureJson(p.picture));
    tvsim::SetMasterVolume(p.volume);
    tvsim::SetSpeakerSelection(p.speaker);
    tvsim::SetPowerState(p.power_state);
    tvsim::SetAmbientMode(p.ambient_mode);
    tvsim::SetAppId("com.veltrix.tv.wex-framework");
}

int Run(const RunOptions& o, std::ostream& out, std::ostream& err) {
    std::unique_ptr<ScratchDir> scratch;
    std::string data_dir = o.profile.data_dir;
    if (data_dir.empty()) {
        scratch = std::make_unique<ScratchDir>();
        data_dir = scratch->path();
    }
    if (!IsDir(data_dir)) {
        throw std::runtime_error("data directory " + data_dir + " does not exist");
    }
    if (!IsDir(o.profile.shared_dir)) {
        throw std::runtime_error("shared directory " + o.profile.shared_dir + " does not exist");
    }

    tvsim::Reset();
    wexfhost::Reset();
    ApplyProfile(o.profile);
    tvsim::SetAppPath(tvsim::AppPath::kData, data_dir);
    tvsim::SetAppPath(tvsim::AppPath::kSharedResource, o.profile.shared_dir);

    std::string error;
    std::unique_ptr<wexfhost::Plugin> plugin = wexfhost::Plugin::Load(o.plugin_path, &error);
    if (!plugin) {
        throw std::runtime_error(error);
    }

    Recorder recorder([] { return static_cast<uint64_t>(vclock::NowSeconds()); });
    LogOutput log(o.log_file, o.log_level);
    bool meter_started = false;
    tvsim::SetLogRetention(0);  // lines are followed as they come, not kept
    tvsim::SetLogObserver([&](const tvsim::LogLine& line) {
        std::string message = line.Message();
        if (message.rfind("[Energy] elaspsed time to create PowerMeter thread", 0) == 0) {
            meter_started = true;
        }
        recorder.OnLog(line.priority, line.tag, message);
        log.Write(line, vclock::NowSeconds());
    });
    std::mutex out_mutex;
    wexfhost::SetNotificationObserver([&](const wexfhost::Notification& n) {
        recorder.OnNotification(n.property, n.json);
        std::lock_guard<std::mutex> lock(out_mutex);
        int64_t now = vclock::NowSeconds();
        out << "{\"time\":" << JsonString(Iso(now)) << ",\"epoch\":" << now
            << ",\"property\":" << JsonString(n.property) << ",\"json\":" << JsonString(n.json)
            << "}\n";
        out.flush();
    });

    World world(o.profile);
    std::vector<ScenarioEntry> entries;
    if (o.scenario) {
        entries = o.scenario->entries;
    }
    const int64_t end = o.start + static_cast<int64_t>(o.duration);
    auto limit_before = [&](uint64_t offset) {
        // A turn due exactly at a change must see it: stop just before.
        vclock::SetLimit((o.start + static_cast<int64_t>(offset)) * vclock::kNanosPerSecond - 1);
    };

    vclock::Enable(o.start);
    vclock::SetSpeed(o.speed);
    vclock::SetLimit(o.start * vclock::kNanosPerSecond);
    size_t next = 0;
    for (; next < entries.size() && entries[next].offset == 0; ++next) {
        if (entries[next].command != "protocol") {
            world.Apply(entries[next]);
        }
    }

    int created = plugin->Create();
    (void)created;  // the plug-in returns 1 whatever happened; its log says the rest
    bool corvane_set = o.scenario && o.scenario->SetsCorvaneAtStart();
    if (!corvane_set) {
        wexfhost::FireProtocolStatus(kService, "corvane", WEXF_PROTOCOL_STATUS_READY);
    }
    for (const ScenarioEntry& e : entries) {
        if (e.offset == 0 && e.command == "protocol") {
            world.Apply(e);
        }
    }

    auto show_progress = [&](int64_t now) {
        if (!o.progress) {
            return;
        }
        char line[160];
        std::snprintf(line, sizeof line, "\r[%s] %6.1f%%  %zu turns  %.3f Wh   ", Iso(now).c_str(),
                      100.0 * static_cast<double>(now - o.start) / std::max<double>(1, o.duration),
                      recorder.Turns().size(), recorder.TotalWh());
        std::fputs(line, stderr);
        std::fflush(stderr);
    };

    // Step through the run: to each scenario change, and at least every simulated hour.
    uint64_t at = 0;
    while (true) {
        uint64_t target = o.duration;
        if (next < entries.size() && entries[next].offset < target) {
            target = entries[next].offset;
        }
        target = std::min(target, at + kProgressStep);
        if (target > at || target == o.duration) {
            limit_before(target);
            if (meter_started && !vclock::WaitUntilParked()) {
                throw std::runtime_error("the plug-in's worker did not reach its wait in time");
            }
        }
        at = target;
        show_progress(o.start + static_cast<int64_t>(at));
        if (at >= o.duration) {
            break;
        }
        for (; next < entries.size() && entries[next].offset == at; ++next) {
            world.Apply(entries[next]);
        }
    }

    plugin->Destroy();
    plugin.reset();
    vclock::Disable();
    tvsim::SetLogObserver(nullptr);
    wexfhost::SetNotificationObserver(nullptr);
    if (o.progress) {
        std::fputs("\n", stderr);
    }

    std::vector<Turn> turns = recorder.Turns();
    std::vector<Report> reports = recorder.Reports();
    err << Summary(turns, reports, recorder.TotalWh(), recorder.PendingWh(), o.duration);
    if (!meter_started) {
        err << "note: the meter did not start (see the log with --log-level error)\n";
    }

    if (!o.plot_file.empty()) {
        PlotInput plot;
        plot.title = "energy-consumption on " + o.profile.name + ", from " + Iso(o.start);
        plot.start = static_cast<uint64_t>(o.start);
        plot.duration = o.duration;
        plot.turns = std::move(turns);
        plot.reports = std::move(reports);
        plot.changes = entries;
        std::ofstream svg(o.plot_file, std::ios::out | std::ios::trunc);
        svg << RenderSvg(plot);
        if (!svg) {
            throw std::runtime_error("cannot write plot " + o.plot_file);
        }
    }
    (void)end;
    return 0;
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
