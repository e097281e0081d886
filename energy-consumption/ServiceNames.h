// The names the plug-in is known by to the framework, and the report members that receivers
// read back (energy-sim adds up the energy each report carries). Programs outside the plug-in
// address it through these constants, so a name is spelled once.
#pragma once

namespace powermeter::names {

inline constexpr char kService[] = "energy-consumption";
inline constexpr char kServiceDescription[] = "energy consumption service plugin";
// The cloud protocol whose readiness arms notifications.
inline constexpr char kProtocol[] = "corvane";
// The property of every notification; also the block report's only member, its block array.
inline constexpr char kProperty[] = "dailyPowerConsumption";
// The running total's watt-hours, as "%f" text.
inline constexpr char kCumulativePower[] = "cumulativePower";
// A block's watt-hours in the block report.
inline constexpr char kDeltaEnergy[] = "deltaEnergy";

}  // namespace powermeter::names
