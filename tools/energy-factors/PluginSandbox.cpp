#include "PluginSandbox.h"

#include <dlog.h>
#include <fmt/format.h>

#include <fstream>
#include <stdexcept>

#include "Calculator.h"
#include "Factors.h"
#include "PowerFactorLoader.h"
#include "Registers.h"
#include "SharedJson.h"

namespace energyfactors {

namespace {

constexpr char kDataFile[] = "energy_factors.dat";
constexpr size_t kDefaultRetention = 200000;  // the simulator's own default

using powermeter::PowerStatus;
using powermeter::Registers;

// Platform power state and ambient mode that the plug-in maps onto each power state.
struct PlatformState {
    int state;
    int ambient;
};
constexpr PlatformState kPlatformStates[kStateCount] = {
    {PowerStatus::kStateOn, PowerStatus::kAmbientOff},                  // NORMAL
    {PowerStatus::kStateLowPower, PowerStatus::kAmbientLowPower},       // LPM
    {PowerStatus::kStateStandby, PowerStatus::kAmbientOff},             // BACKGROUND_STANDBY
    {PowerStatus::kStateStandby, PowerStatus::kAmbientAlwaysOnScreen},  // ALWAYS_ON_SCREEN
    {PowerStatus::kStatePictureOff, PowerStatus::kAmbientOff},          // PICTURE_OFF
    {PowerStatus::kStateSuspend, PowerStatus::kAmbientOff},             // SUSPEND
};

// The configuration key's text for the registers the calculator reads.
std::string PictureJson(const Inputs& in) {
    common::json::JsonValue doc(common::json::JsonType::Object);
    doc[Registers::kNames[powermeter::ANA]] = std::to_string(in.ana);
    doc[Registers::kNames[powermeter::DutySum]] = std::to_string(in.dutysum);
    doc[Registers::kNames[powermeter::RESOLUTION]] = std::to_string(in.resolution);
    return doc.toString(false);
}

// While alive, the simulated TV drops the plug-in's lines below errors unformatted: where only
// the watts are wanted, the calculator's many info lines per call cost more than the
// calculation (lint calls it 900 times a row).
struct ErrorsOnly {
    ErrorsOnly() { tvsim::SetLogDropBelow(DLOG_ERROR); }
    ~ErrorsOnly() { tvsim::SetLogDropBelow(0); }
    ErrorsOnly(const ErrorsOnly&) = delete;
    ErrorsOnly& operator=(const ErrorsOnly&) = delete;
};

// The row for a message: a control byte shows as \xNN. A NUL would otherwise end the message
// where it stands (what() is a C string), and hide why the row is refused.
std::string Printable(const std::string& text) {
    std::string out;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        out += byte < 0x20 || byte == 0x7f ? fmt::format("\\x{:02x}", byte) : std::string(1, c);
    }
    return out;
}

std::vector<std::string> MessagesSince(uint64_t mark) {
    std::vector<std::string> out;
    for (const tvsim::LogLine& l : tvsim::LinesSince(mark)) {
        out.push_back(l.Message());
    }
    return out;
}

}  // namespace

PluginSandbox::PluginSandbox() : dir_("energy-factors") {
    tvsim::Reset();
    tvsim::SetLogRetention(kDefaultRetention);
    tvsim::SetAppPath(tvsim::AppPath::kSharedResource, dir_.path());
    tvsim::SetSpeakerSelection(0);
}

PluginSandbox::~PluginSandbox() {
    tvsim::Reset();
    tvsim::ClearLog();
    tvsim::SetLogRetention(kDefaultRetention);
}

void PluginSandbox::WriteDataSet(const std::string& text) {
    std::ofstream out(dir_.File(kDataFile), std::ios::binary | std::ios::trunc);
    out << text;
    if (!out.flush()) {
        throw std::runtime_error(fmt::format("cannot write {}", dir_.File(kDataFile)));
    }
}

Selection PluginSandbox::Select(const std::string& sw_model, const std::string& panel_type) {
    tvsim::SetModelName(sw_model);
    tvsim::SetPanelType(panel_type);
    const uint64_t mark = tvsim::LogMark();
    Selection s;
    powermeter::PowerFactorLoader loader;
    s.selected = loader.Load(s.row);
    s.log = tvsim::LinesSince(mark);
    return s;
}

bool PluginSandbox::ParseRow(const std::string& line, powermeter::PowerFactors* out,
                             std::vector<std::string>* log) {
    const uint64_t mark = tvsim::LogMark();
    const bool ok = out->Parse(line);
    if (log != nullptr) {
        *log = MessagesSince(mark);
    }
    return ok;
}

std::vector<std::string> PluginSandbox::TextColumns(const powermeter::PowerFactors& row) {
    // Print logs "[Energy] === ID === ", then one "[Energy] <text>" per text column.
    const uint64_t mark = tvsim::LogMark();
    row.Print();
    std::vector<std::string> messages = MessagesSince(mark);
    std::vector<std::string> texts;
    const std::string prefix = "[Energy] ";
    for (size_t i = 1; i < messages.size() && texts.size() < 6; ++i) {
        texts.push_back(messages[i].substr(prefix.size()));
    }
    return texts;
}

struct RowModel::Impl {
    powermeter::Calculator calculator;
    std::string picture;  // the configuration key's text last published
    int volume = -1;
};

RowModel::RowModel(PluginSandbox& sandbox, const std::string& row_text) : impl_(new Impl) {
    powermeter::PowerFactors row;
    std::vector<std::string> log;
    if (!PluginSandbox::ParseRow(row_text, &row, &log)) {
        throw std::runtime_error(fmt::format("the plug-in does not read the row \"{}\": {}",
                                             Printable(row_text), fmt::join(log, "; ")));
    }
    if (const int i = NonFiniteFactor(FactorsOf(row)); i >= 0) {
        throw std::runtime_error(fmt::format("{} of the row \"{}\" is not a finite number",
                                             FactorName(i), Printable(row_text)));
    }
    const std::vector<std::string> texts = PluginSandbox::TextColumns(row);
    sandbox.WriteDataSet("energy-factors\n" + row_text + "\n");
    tvsim::SetModelName(texts[2]);
    tvsim::SetPanelType(texts[4]);
    if (!impl_->calculator.Init()) {
        throw std::runtime_error("the plug-in does not select this row: " + Printable(row_text));
    }
}

RowModel::~RowModel() = default;

double RowModel::Watts(const Inputs& in) {
    std::string picture = PictureJson(in);
    if (picture != impl_->picture) {
        tvsim::SetVconf(Registers::kVconfKey, picture);
        impl_->picture = std::move(picture);
    }
    if (in.volume != impl_->volume) {
        tvsim::SetMasterVolume(in.volume);
        impl_->volume = in.volume;
    }
    tvsim::SetPowerState(kPlatformStates[in.state].state);
    tvsim::SetAmbientMode(kPlatformStates[in.state].ambient);
    const ErrorsOnly quiet;
    impl_->calculator.Calculate();
    return impl_->calculator.PowerConsumption();
}

}  // namespace energyfactors
