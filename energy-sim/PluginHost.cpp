#include "PluginHost.h"

#include <sys/stat.h>

#include "Error.h"
#include "InputFile.h"
#include "LogTexts.h"
#include "VirtualClock.h"
#include "World.h"

namespace energysim {
namespace {

// The largest plug-in library loaded (a sanitizer build is a few MB).
constexpr uint64_t kMaxPluginBytes = 256ull * 1024 * 1024;

}  // namespace

void PluginHost::Load(const std::string& path) {
    // dlopen would block on a FIFO and read a device without end: a path that names something
    // must be a regular file. A missing one is left to dlopen, whose message says it all.
    struct stat st;
    if (path.find('/') != std::string::npos && stat(path.c_str(), &st) == 0) {
        const std::string why = hostkit::CheckInputFile(path, kMaxPluginBytes);
        if (!why.empty()) {
            throw SimError("cannot load plug-in '" + path + "': " + why);
        }
    }
    std::string error;
    plugin_ = wexfhost::Plugin::Load(path, &error);
    if (!plugin_) {
        throw SimError(error);
    }
}

void PluginHost::Create() {
    meter_started_ = false;
    created_ = true;
    plugin_->Create();  // returns 1 whatever happened; its log says the rest
    for (const auto& [name, status] : protocols_) {
        wexfhost::FireProtocolStatus(kService, name, status);
    }
}

void PluginHost::Restart(uint64_t offset) {
    if (!created_) {
        return;
    }
    plugin_->Destroy();
    recorder_.OnRestart();
    clock_.AdvanceTo(offset);
    Create();
    clock_.WaitParked(meter_started_);
}

void PluginHost::SetProtocol(const std::string& name, wexf_protocol_status_e status, bool report) {
    protocols_[name] = status;
    if (report) {
        wexfhost::FireProtocolStatus(kService, name, status);
    }
}

void PluginHost::Stop() {
    if (!plugin_) {
        return;
    }
    if (meter_started_) {
        vclock::SetLimit(vclock::NowNanos());
        if (!vclock::WaitUntilParked(2000)) {
            vclock::ClearLimit();  // a worker that does not park still sees the stop
        }
    }
    plugin_->Destroy();
    plugin_.reset();
}

void PluginHost::OnLog(const std::string& message) {
    if (message.rfind(powermeter::logtext::kMeterThreadCreated, 0) == 0) {
        meter_started_ = true;
    }
}

}  // namespace energysim
