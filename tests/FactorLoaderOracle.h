// The data-set lookup written the straightforward way: every row is read with std::getline and
// parsed into a record before its SW model is compared. PowerFactorLoader checks rows without
// copying and parses only its SW model's rows; the differential test holds it to this.
#pragma once

#include <string>

#include "PowerFactors.h"

namespace testsupport {

// PowerFactorLoader::Load(panel_type, sw_model, out) over `dir` + "energy_factors.dat", with
// the same log messages in the same order.
bool OracleLoad(const std::string& dir, const std::string& panel_type, const std::string& sw_model,
                powermeter::PowerFactors& out);

}  // namespace testsupport
