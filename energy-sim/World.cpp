#include "World.h"

#include "Registers.h"
#include "tvsim/Simulator.h"

namespace energysim {

void ApplyProfile(const DeviceProfile& p) {
    tvsim::SetModelName(p.model);
    tvsim::SetPanelType(p.panel_type);
    tvsim::SetLocaleSet(p.locale_set);
    tvsim::SetModelYear(p.model_year);
    tvsim::SetVconf(powermeter::Registers::kVconfKey, PictureJson(p.picture));
    tvsim::SetMasterVolume(p.volume);
    tvsim::SetSpeakerSelection(p.speaker);
    tvsim::SetPowerState(p.power_state);
    tvsim::SetAmbientMode(p.ambient_mode);
    tvsim::SetAppId("com.veltrix.tv.wex-framework");
}

}  // namespace energysim
