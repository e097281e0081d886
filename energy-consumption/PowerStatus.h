// The set's power state, mapped onto the six states of the power model.
#pragma once

namespace powermeter {

enum _PowerStatusForEnergy {
    NORMAL = 0,
    LPM = 1,
    BACKGROUND_STANDBY = 2,
    ALWAYS_ON_SCREEN = 3,
    PICTURE_OFF = 4,
    SUSPEND = 5,
    MAX_POWER_STATUS_FOR_ENERGY = 6,
};

class PowerStatus {
  public:
    // The name of each state, as the log prints it, in state order.
    static constexpr const char* kNames[MAX_POWER_STATUS_FOR_ENERGY + 1] = {
        "NORMAL",      "LPM",     "BACKGROUND_STANDBY",         "ALWAYS_ON_SCREEN",
        "PICTURE_OFF", "SUSPEND", "MAX_POWER_STATUS_FOR_ENERGY"};
    // Device power states and ambient modes as the platform reports them.
    static constexpr int kStateOn = 0;
    static constexpr int kStatePictureOff = 1;
    static constexpr int kStateStandby = 2;
    static constexpr int kStateSuspend = 3;
    static constexpr int kStateLowPower = 4;
    static constexpr int kAmbientOff = 0;
    static constexpr int kAmbientAlwaysOnScreen = 1;
    static constexpr int kAmbientLowPower = 2;

    // Reads the device power state and the ambient mode; unknown states and errors count as
    // SUSPEND.
    static _PowerStatusForEnergy GetCurrent();
    // Logs the state's name; logs nothing for a value outside 0-6.
    static void Print(_PowerStatusForEnergy s);
};

}  // namespace powermeter
