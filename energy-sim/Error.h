// The one error type of energy-sim: bad input or a run that cannot go on. main prints its text
// as one line and exits with status 2.
#pragma once

#include <stdexcept>

namespace energysim {

class SimError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

}  // namespace energysim
