#include "PowerStatus.h"

#include <device_power.h>

#include "Log.h"

namespace powermeter {

namespace {

// Device power states and ambient modes as the platform reports them.
constexpr int kStateOn = 0;
constexpr int kStatePictureOff = 1;
constexpr int kStateStandby = 2;
constexpr int kStateSuspend = 3;
constexpr int kStateLowPower = 4;
constexpr int kAmbientAlwaysOnScreen = 1;
constexpr int kAmbientLowPower = 2;

}  // namespace

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
    switch (s) {
        case NORMAL:
            ELOGI("[Energy Factors] Power Status: NORMAL");
            break;
        case LPM:
            ELOGI("[Energy Factors] Power Status: LPM");
            break;
        case BACKGROUND_STANDBY:
            ELOGI("[Energy Factors] Power Status: BACKGROUND_STANDBY");
            break;
        case ALWAYS_ON_SCREEN:
            ELOGI("[Energy Factors] Power Status: ALWAYS_ON_SCREEN");
            break;
        case PICTURE_OFF:
            ELOGI("[Energy Factors] Power Status: PICTURE_OFF");
            break;
        case SUSPEND:
            ELOGI("[Energy Factors] Power Status: SUSPEND");
            break;
        case MAX_POWER_STATUS_FOR_ENERGY:
            ELOGI("[Energy Factors] Power Status: MAX_POWER_STATUS_FOR_ENERGY");
            break;
    }
}

}  // namespace powermeter
