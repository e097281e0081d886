// Finds this set's row of energy_factors.dat: same SW model, then equal panel type before a
// similar one.
#pragma once

#include <system_info.h>

#include <string>
#include <vector>

#include "PowerFactors.h"

namespace powermeter {

class PowerFactorLoader {
  public:
    // Reads the set's panel type and SW model from the platform and selects their row.
    bool Load(PowerFactors& out);
    // Selects the row for this panel type and SW model. Never throws.
    bool Load(const std::string& panel_type, const std::string& sw_model, PowerFactors& out);
    void PrintVersion() const;

  private:
    friend class PowerFactorLoaderPeer;  // tests reach the SW-model-blind lookup

    std::vector<PowerFactors> make_candidates(const std::string& sw_model);
    bool find_one_with_panel_type(std::vector<PowerFactors>& candidates,
                                  const std::string& panel_type, PowerFactors& out);
    bool find_same_panel_type(std::vector<PowerFactors>& candidates, const std::string& panel_type,
                              PowerFactors& out);
    bool find_similar_panel_type(std::vector<PowerFactors>& candidates,
                                 const std::string& panel_type, PowerFactors& out);
    // Scans the whole file regardless of SW model; not used by Load.
    bool find_one_with_panel_type(const std::string& panel_type, PowerFactors& out);

    bool get_sw_model(std::string& sw);
    bool get_panel_type(std::string& panel);
    std::string get_system_info(system_info_key_e key, const char* label);
    std::string get_system_info(const char* key);
    static std::string make_error_msg(const char* label, int code);
    std::string get_data_file_path();
    static bool validate_panel_type(const std::string& p);
    void print_version() const;

    std::string version_;
};

}  // namespace powermeter
