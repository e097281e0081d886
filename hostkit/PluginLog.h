// Reads the plug-in's log as the host programs follow it: energy-sim a run's turns and uploads,
// energy-factors the calculator's snapshots and the set's names. The fixed texts are the
// plug-in's own (LogTexts.h).
#pragma once

#include <string>
#include <string_view>

namespace hostkit {

struct PluginLogLine {
    enum class Kind {
        kOther,
        kTurnStart,           // a turn's rule and number
        kPowerStatus,         // value: the power status name
        kCalculatedPower,     // value: the watts ("%lf (W/h)")
        kInstantaneousPower,  // value: the turn's watt-hours
        kTurnFailed,          // value: the exception's text
        kUploadNow,
        kUploadFailed,    // the protocol is not ready, or the notification failed
        kSnapshotTime,    // value: "Y-M-D h:m:s" (UTC)
        kSnapshotRow,     // value: "<row ID>, blu_type: <type>"
        kSnapshotInputs,  // value: "<ana>, dutysum:<n>, resolution: <n>, volume: <n>"
        kSwModel,         // value: the SW model
        kPanelType,       // value: the panel type
    };
    Kind kind = Kind::kOther;
    // What follows the fixed text, without a line end; it points into the line read.
    std::string_view value;

    // The number at the start of the value (0 when there is none).
    double Number() const;
};

// Reads one message, or one line of a log file whose prefix (time stamp, priority, tag, file,
// function, line) comes before the message.
PluginLogLine ReadPluginLog(const std::string& line);

}  // namespace hostkit
