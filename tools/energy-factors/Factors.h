// The twelve numeric factors of a data-set row as one array, in column order (the eight
// backlight factors, then the four component factors), with their column names.
#pragma once

#include <array>
#include <string>

#include "PowerFactors.h"

namespace energyfactors {

constexpr int kFactorCount =
    powermeter::PowerFactors::kBluCount + powermeter::PowerFactors::kComponentCount;
using Factors = std::array<double, kFactorCount>;

// Column name of factor i ("OD_MIN" ... "SPEAKER").
const char* FactorName(int i);
// The factors of a parsed row.
Factors FactorsOf(const powermeter::PowerFactors& row);
// The first factor that is not a finite number (NaN or infinite), or -1. The plug-in's parser
// reads "nan", "inf" and overflowing numbers like any other; the tools refuse them, since every
// watt computed from such a row is not finite either.
int NonFiniteFactor(const Factors& factors);
// Data-set text of one factor: "-" for the missing marker, else the shortest text that reads
// back as the same double.
std::string FactorText(double value);

}  // namespace energyfactors
