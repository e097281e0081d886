#include "World.h"

#include <optional>

#include "Registers.h"
#include "wexfhost/FrameworkHost.h"

namespace energysim {
namespace {

template <class... Ts>
struct Overloaded : Ts... {
    using Ts::operator()...;
};
template <class... Ts>
Overloaded(Ts...) -> Overloaded<Ts...>;

}  // namespace

void ApplyProfile(const DeviceProfile& p) {
    tvsim::SetModelName(p.model);
    tvsim::SetPanelType(p.panel_type);
    tvsim::SetLocaleSet(p.locale_set);
    tvsim::SetModelYear(p.model_year);
    tvsim::SetVconf(kPictureKey, PictureJson(p.picture));
    tvsim::SetMasterVolume(p.volume);
    tvsim::SetSpeakerSelection(p.speaker);
    tvsim::SetPowerState(p.power_state);
    tvsim::SetAmbientMode(p.ambient_mode);
    tvsim::SetAppId("com.veltrix.tv.wex-framework");
}

void World::Apply(const Command& command) {
    std::visit(Overloaded{
                   [](const command::Power& c) {
                       tvsim::SetPowerState(c.setting.state);
                       tvsim::SetAmbientMode(c.setting.ambient);
                   },
                   [](const command::PowerState& c) { tvsim::SetPowerState(c.value); },
                   [](const command::AmbientMode& c) { tvsim::SetAmbientMode(c.value); },
                   [](const command::Volume& c) { tvsim::SetMasterVolume(c.value); },
                   [](const command::Speaker& c) { tvsim::SetSpeakerSelection(c.value); },
                   [this](const command::Picture& c) {
                       for (const auto& [index, value] : c.registers) {
                           const char* name = powermeter::Registers::kNames[index];
                           if (value) {
                               picture_[name] = std::to_string(*value);
                           } else {
                               picture_.erase(name);
                           }
                       }
                       tvsim::SetVconf(kPictureKey, PictureJson(picture_));
                   },
                   [this](const command::Config& c) {
                       tvsim::SetVconf(kPictureKey,
                                       c.present ? std::optional<std::string>(PictureJson(picture_))
                                                 : std::nullopt);
                   },
                   [](const command::ConfigRaw& c) { tvsim::SetVconf(kPictureKey, c.text); },
                   [](const command::Protocol& c) {
                       wexfhost::FireProtocolStatus(kService, c.name, c.status);
                   },
                   [](const command::Fail& c) { tvsim::FailCall(c.call, c.code); },
                   [](const command::Restore& c) { tvsim::ClearFailure(c.call); },
                   [](const command::Note&) {},
                   [](const command::Restart&) {},
                   [](const command::Clock&) {},
               },
               command);
}

}  // namespace energysim
