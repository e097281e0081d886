// Whether the energy data set holds a row for this set's SW model with a compatible panel type.
// Deliberately looser than the plug-in's factor loader: it reads two tokens of each row only.
#pragma once

#include <string>
#include <vector>

#include "WexfCommonExport.h"

namespace common {
namespace service_prerequisite {

class WEXF_COMMON_API EnergyServicePrerequisite {
  public:
    EnergyServicePrerequisite(const std::string& sw_model, const std::string& panel_type);

    // Scans the data set; false on any failure. Never throws.
    bool IsAvailable();

  private:
    bool check_availability_simply();
    std::string get_data_file_path();
    std::vector<std::string> tokenize(const std::string& line, char separator);
    bool get_swmodel_paneltype_from_dataset(const std::string& line, std::string& sw_model,
                                            std::string& panel_type);
    bool is_similar_panel_type(const std::string& mine, const std::string& theirs);

    std::string sw_model;
    std::string panel_type;
};

}  // namespace service_prerequisite
}  // namespace common
