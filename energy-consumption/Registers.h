// Picture-engine values that the video pipeline publishes as a JSON object in the
// configuration key "memory/ave/powerconsumption".
#pragma once

#include <cstdint>
#include <string>

namespace powermeter {

// Register index; the name of each enumerator is also its JSON member name.
enum _SYSTEMREGISTER {
    ANA = 0,
    DutySum = 1,
    APL = 2,
    BLOSD = 3,
    RESOLUTION = 4,
    PC = 5,
    HDR = 6,
    IDS = 7,
    TEMP = 8,
};

class Registers {
  public:
    // The configuration key that holds the registers.
    static constexpr char kVconfKey[] = "memory/ave/powerconsumption";
    static constexpr int kCount = 9;
    static constexpr int32_t kNotAvailable = -12345678;
    // The JSON member name of each register, in register order.
    static constexpr const char* kNames[kCount] = {"ANA", "DutySum", "APL", "BLOSD", "RESOLUTION",
                                                   "PC",  "HDR",     "IDS", "TEMP"};

    Registers();

    // Forgets every value, then reads and parses the configuration key afresh. A member that is
    // an array or object (or a JSON document that is not an object) throws
    // common::json::JsonException out of here, as any failed snapshot does.
    void Refresh();
    bool IsAvailable(_SYSTEMREGISTER r) const;
    // Throws std::runtime_error "<name> is not available" for a missing register.
    int Value(_SYSTEMREGISTER r) const;

  private:
    std::string read_vconf();
    void parse(const std::string& text);

    int32_t values_[kCount];
    std::string names_[kCount];
};

}  // namespace powermeter
