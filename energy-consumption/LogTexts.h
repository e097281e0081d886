// Log texts that programs outside the plug-in follow (energy-sim finds the meter's start, each
// turn's energy and each upload by them; energy-factors reads each turn's inputs and the set's
// names; tests look for them too). Each is the text's fixed
// start; what follows it is noted beside it.
#pragma once

namespace powermeter::logtext {

// Followed by the clock ticks it took.
inline constexpr char kMeterThreadCreated[] = "[Energy] elaspsed time to create PowerMeter thread ";
// Followed by the clock ticks it took.
inline constexpr char kMeterThreadTerminated[] =
    "[Energy] elaspsed time to terminate PowerMeter thread ";
// The start of a turn: this rule, the turn number, then more '='.
inline constexpr char kTurnRule[] = "===================================";
// Followed by the power status name.
inline constexpr char kPowerStatus[] = "[Energy Factors] Power Status: ";
// Followed by the watts ("%lf (W/h)").
inline constexpr char kCalculatedPower[] = "[Energy] Calculated Power Consumption: ";
// Followed by the turn's watt-hours ("%lf").
inline constexpr char kInstantaneousPower[] = "[Energy] Instantaneous Power: ";
// Followed by the exception's text.
inline constexpr char kTurnFailed[] = "[Energy] !!! An exception: ";
inline constexpr char kUploadNow[] = "[Energy] !!! UPLOAD NOW";
inline constexpr char kProtocolNotReady[] = "Protocol is not READY yet!!";
// Followed by the exception's text.
inline constexpr char kNotifyFailed[] = "exception caught = ";
// The calculator's snapshot of a turn: its time, followed by "Y-M-D h:m:s" (UTC)...
inline constexpr char kSnapshotTime[] = "[Energy] UTC: ";
// ...the row's ID, followed by "%d, blu_type: %d"...
inline constexpr char kSnapshotRow[] = "[Energy Factors] enum: ";
// ...and the inputs, followed by "%d, dutysum:%d, resolution: %d, volume: %d"; then the power
// status (kPowerStatus).
inline constexpr char kSnapshotInputs[] = "[Energy Factors] ana:";
// The loader's names of the set, each followed by the name.
inline constexpr char kSwModel[] = "[Energy] SW Model: ";
inline constexpr char kPanelType[] = "[Energy] Panel Type: ";

}  // namespace powermeter::logtext
