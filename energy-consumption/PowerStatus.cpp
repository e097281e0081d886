#include "PowerStatus.h"

#include <device_power.h>

#include "Log.h"
#include "LogTexts.h"

namespace powermeter {

_PowerStatusForEnergy PowerStatus::GetCurrent() {
    const int state = device_power_get_state();
    const int ambient = device_power_get_ambient_mode();
    switch (state) {
        case kStateOn:
            return NORMAL;
        case kStatePictureOff:
            return PICTURE_OFF;
        case kStateStandby:
            return ambient == kAmbientAlwaysOnScreen ? ALWAYS_ON_SCREEN : BACKGROUND_STANDBY;
        case kStateSuspend:
            return SUSPEND;
        case kStateLowPower:
            return ambient == kAmbientLowPower ? LPM : SUSPEND;
        default:
            return SUSPEND;
    }
}

void PowerStatus::Print(_PowerStatusForEnergy s) {
    if (s >= NORMAL && s <= MAX_POWER_STATUS_FOR_ENERGY) {
        ELOGI("%s%s", logtext::kPowerStatus, kNames[s]);
    }
}

}  // namespace powermeter
