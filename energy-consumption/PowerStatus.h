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
    // Reads the device power state and the ambient mode; unknown states and errors count as
    // SUSPEND.
    static _PowerStatusForEnergy GetCurrent();
    // Logs the state's name; logs nothing for a value outside 0-6.
    static void Print(_PowerStatusForEnergy s);
};

}  // namespace powermeter
