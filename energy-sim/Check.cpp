#include "Check.h"

#include <dlog.h>

#include "SystemInfoUtil.h"
#include "World.h"
#include "tvsim/Simulator.h"

namespace energysim {

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
