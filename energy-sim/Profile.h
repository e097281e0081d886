// A device profile: the simulated TV's identity and state at the start of a run.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace energysim {

struct DeviceProfile {
    std::string name = "built-in default";
    std::optional<std::string> model;       // system information: SW model
    std::optional<std::string> panel_type;  // system information: panel type string
    std::optional<std::string> locale_set;
    std::optional<int> model_year;  // two digits
    // Picture-engine registers published in the configuration key, as decimal text.
    std::map<std::string, std::string> picture;
    int volume = 20;
    int speaker = 0;  // 0 = the TV's own speaker
    int power_state = 0;
    int ambient_mode = 0;
    std::string data_dir;    // "" = a fresh temporary directory
    std::string shared_dir;  // "" = the directory holding the sample energy_factors.dat
};

// The profile used when none is given.
DeviceProfile DefaultProfile();

// The largest profile file read (a profile is a few hundred bytes).
constexpr uint64_t kMaxProfileBytes = 1024 * 1024;

// Reads a profile file (a regular file of at most kMaxProfileBytes). Throws SimError with a
// one-line message naming the file and, for an invalid value, the field.
DeviceProfile LoadProfile(const std::string& path);

// Parses profile text; `origin` names it in error messages. The profile lists what differs
// from the built-in default: a field left out keeps the default's value, and null for the
// model, panel type, locale set, model year, the picture or one of its registers says that the
// platform does not publish it.
DeviceProfile ParseProfile(const std::string& text, const std::string& origin);

// The configuration-key text for a picture: {"ANA":"700",...} in register order.
std::string PictureJson(const std::map<std::string, std::string>& picture);

}  // namespace energysim
