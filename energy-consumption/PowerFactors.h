// One row of the energy data set energy_factors.dat: the per-model coefficients from which the
// calculator estimates the set's power.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace powermeter {

// Index into the backlight-unit factors.
enum _BLU {
    OD_MIN = 0,
    OD_MAX = 1,
    VF_MIN = 2,
    VF_MAX = 3,
    ALPHA = 4,
    BLOCK = 5,
    TYPE = 6,
    COMPENSATE_CONSTANT = 7,
};

// Index into the per-component factors.
enum _COMPONENT {
    CELL = 0,
    MAIN = 1,
    MAIN_LPM = 2,
    SPEAKER = 3,
};

class PowerFactors {
  public:
    static constexpr int kBluCount = 8;
    static constexpr int kComponentCount = 4;
    static constexpr int kTokenCount = 19;
    // A missing factor: finite and in-band, so it enters the arithmetic unnoticed.
    static constexpr double kMissing = -12345678.0;
    // The factors' column names, as the data set's documentation and the log name them.
    static constexpr const char* kBluNames[kBluCount] = {
        "OD_MIN", "OD_MAX", "VF_MIN", "VF_MAX", "ALPHA", "BLOCK", "TYPE", "COMPENSATE_CONSTANT"};
    static constexpr const char* kComponentNames[kComponentCount] = {"CELL", "MAIN", "MAIN_LPM",
                                                                     "SPEAKER"};

    PowerFactors();

    // Fills the record from one comma-separated row; false (with an ERROR line) when the row
    // does not have 19 tokens or its panel type is too short. A failed parse keeps the fields
    // written so far.
    bool Parse(const std::string& line);
    // Checks a row as Parse would, without copying anything: false, with the same ERROR line,
    // exactly when Parse fails; otherwise `sw_model` is the row's SW-model token.
    static bool Screen(std::string_view line, std::string_view& sw_model);

    int SequenceNumber() const;
    bool IsValid() const;
    double Components(_COMPONENT c) const;
    double BLUFactors(_BLU b) const;

    bool IsSamePanelType(const std::string& p) const;
    bool IsSameModel(const std::string& m) const;
    bool IsSameSWModel(const std::string& s) const;
    // Equal in characters 0-1, 4-5 and 7-8. Throws std::out_of_range when either string is
    // shorter than 7 characters.
    bool IsSimilarPanelType(const std::string& p) const;

    void Print() const;
    void PrintInfo() const;

  private:
    static std::vector<std::string> tokenize(const std::string& s, char sep);
    static double atof_with_default(const std::string& token);
    static bool validate_panel_type(std::string_view p);

    int32_t sequence_number_;
    std::string text1_;
    std::string model_;
    std::string sw_model_;
    std::string text4_;
    std::string panel_type_;
    std::string text6_;
    double blu_[kBluCount];
    double components_[kComponentCount];
};

}  // namespace powermeter
