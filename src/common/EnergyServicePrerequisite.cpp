#include "EnergyServicePrerequisite.h"

#include <exception>
#include <fstream>

#include "AppInfoUtil.h"
#include "Log.h"
#include "ReadableFile.h"
#include "SystemInfoUtil.h"

namespace common {
namespace service_prerequisite {

namespace {

constexpr const char kDataFileName[] = "energy_factors.dat";
constexpr const char kFallbackDirectory[] =
    "/opt/usr/apps/com.veltrix.tv.wex-framework/shared/res/";
constexpr char kSeparator = ',';
constexpr size_t kTokenCount = 19;
constexpr size_t kSwModelToken = 3;
constexpr size_t kPanelTypeToken = 5;
constexpr size_t kMinPanelTypeLength = 9;

}  // namespace

EnergyServicePrerequisite::EnergyServicePrerequisite(const std::string& sw_model,
                                                     const std::string& panel_type)
    : sw_model(sw_model), panel_type(panel_type) {}

bool EnergyServicePrerequisite::IsAvailable() {
    bool available = false;
    try {
        available = check_availability_simply();
    } catch (const std::exception& e) {
        CLOGE("[EnergyServicePrerequisite] Exception !! - %s", e.what());
        return false;
    }
    CLOGI("[EnergyServicePrerequisite] Availability Check for %s, %s: %d", sw_model.c_str(),
          panel_type.c_str(), available ? 1 : 0);
    return available;
}

bool EnergyServicePrerequisite::check_availability_simply() {
    const std::string path = get_data_file_path();
    // A FIFO or a device counts as a file that cannot be opened: it could block the open (and
    // with it the framework's availability check) or be read without end.
    std::ifstream in;
    if (!IsSpecialFile(path)) {
        in.open(path);
    }
    if (!in.is_open()) {
        CLOGE("[EnergyServicePrerequisite] Cannot open to %s", path.c_str());
        return false;
    }
    // A read error (not end of file) throws, so that it is reported rather than taken for
    // the end of the data set.
    in.exceptions(std::ios::badbit);
    std::string version;
    std::getline(in, version);
    CLOGI("[EnergyServicePrerequisite] energy data version: %s", version.c_str());

    std::string line;
    while (std::getline(in, line)) {
        std::string row_sw_model;
        std::string row_panel_type;
        if (get_swmodel_paneltype_from_dataset(line, row_sw_model, row_panel_type) &&
            row_sw_model == sw_model && is_similar_panel_type(panel_type, row_panel_type)) {
            CLOGI("[EnergyServicePrerequisite] find one from energy data set: %s, %s",
                  row_sw_model.c_str(), row_panel_type.c_str());
            return true;
        }
    }
    CLOGE("[EnergyServicePrerequisite] Could not find a proper data set: %s, %s", sw_model.c_str(),
          panel_type.c_str());
    return false;
}

std::string EnergyServicePrerequisite::get_data_file_path() {
    const std::string dir = AppInfoUtil::GetSharedResourcePath();
    CLOGD("[EnergyServicePrerequisite] data file path %s", dir.c_str());
    return (dir.empty() ? std::string(kFallbackDirectory) : dir) + kDataFileName;
}

std::vector<std::string> EnergyServicePrerequisite::tokenize(const std::string& line,
                                                             char separator) {
    std::vector<std::string> tokens;
    std::string::size_type start = 0;
    while (start <= line.size()) {
        std::string::size_type end = line.find(separator, start);
        if (end == std::string::npos) {
            end = line.size();
        }
        if (end > start) {
            tokens.emplace_back(line, start, end - start);
        }
        start = end + 1;
    }
    return tokens;
}

bool EnergyServicePrerequisite::get_swmodel_paneltype_from_dataset(const std::string& line,
                                                                   std::string& sw_model,
                                                                   std::string& panel_type) {
    const std::vector<std::string> tokens = tokenize(line, kSeparator);
    if (tokens.size() != kTokenCount) {
        CLOGE("[EnergyServicePrerequisite] The number of tokens is %d (not 19)",
              static_cast<int>(tokens.size()));
        return false;
    }
    sw_model = tokens[kSwModelToken];
    panel_type = tokens[kPanelTypeToken];
    CLOGD("[EnergyServicePrerequisite] candidate energy data set: %s, %s", sw_model.c_str(),
          panel_type.c_str());
    return true;
}

bool EnergyServicePrerequisite::is_similar_panel_type(const std::string& mine,
                                                      const std::string& theirs) {
    if (mine.size() < kMinPanelTypeLength || theirs.size() < kMinPanelTypeLength) {
        CLOGE("[EnergyServicePrerequisite] Invalid Panel Type %s and %s", mine.c_str(),
              theirs.c_str());
        return false;
    }
    return mine.compare(0, 2, theirs, 0, 2) == 0 && mine.compare(4, 2, theirs, 4, 2) == 0 &&
           mine.compare(7, 2, theirs, 7, 2) == 0;
}

}  // namespace service_prerequisite
}  // namespace common

bool SystemInfoUtil::IsSupportEnergyService() {
    const int year = GetTVYear();
    if (year <= 21) {
        CLOGE("Energy Service Not Supported Under 22 year TV");
        return false;
    }
    const std::string locale = GetLocaleSet();
    if (locale == "CHI_DTV" || locale == "EA_CHINA") {
        CLOGE("Energy Service Not Supported in China Region");
        return false;
    }
    const std::string model = GetModelName();
    const std::string panel = GetPanelType();
    if (model.empty() || panel.empty()) {
        CLOGE("At this time, Failed to get sw model and panel type, so it returns true here");
        return true;
    }
    return common::service_prerequisite::EnergyServicePrerequisite(model, panel).IsAvailable();
}
