#include "FactorLoaderOracle.h"

#include <fstream>
#include <vector>

#include "Log.h"

namespace testsupport {

using powermeter::PowerFactors;

bool OracleLoad(const std::string& dir, const std::string& panel_type, const std::string& sw_model,
                PowerFactors& out) {
    if (panel_type.size() <= 8) {
        ELOGE("[Energy] Invalid Panel Type");
        return false;
    }
    ELOGI("[Energy] Find a power factors for %s", sw_model.c_str());
    ELOGD("[Energy] data file path %s", dir.c_str());
    const std::string path = dir + "energy_factors.dat";
    std::vector<PowerFactors> candidates;
    std::ifstream in(path);
    if (!in.is_open()) {
        ELOGE("[Energy] Cannot open to %s", path.c_str());
    } else {
        std::string line;
        std::getline(in, line);
        ELOGI("[Energy] Data File Version: %s", line.c_str());
        while (std::getline(in, line)) {
            PowerFactors row;
            if (row.Parse(line) && row.IsSameSWModel(sw_model)) {
                candidates.push_back(row);
                ELOGD("[Energy] candidate panel type");
                row.PrintInfo();
            }
        }
    }
    if (candidates.empty()) {
        ELOGE("[Energy] No matched SW Model");
        return false;
    }
    ELOGE("[Energy] Find a power factors for %s", panel_type.c_str());
    for (const PowerFactors& candidate : candidates) {
        if (candidate.IsSamePanelType(panel_type)) {
            out = candidate;
            return true;
        }
    }
    for (const PowerFactors& candidate : candidates) {
        if (candidate.IsSimilarPanelType(panel_type)) {
            out = candidate;
            return true;
        }
    }
    ELOGE("[Energy] there is no proper factors");
    return false;
}

}  // namespace testsupport
