// Log texts that programs outside the plug-in follow (energy-sim finds the meter's start, each
// turn's energy and each upload by them; tests look for them too). Each is the text's fixed
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

}  // namespace powermeter::logtext
