// Estimates the set's instantaneous power in watts from this set's power factors and a fresh
// snapshot of the live inputs.
#pragma once

#include <cstdint>

#include "PowerFactors.h"
#include "PowerStatus.h"
#include "Registers.h"

namespace powermeter {

class Calculator {
  public:
    // Loads this set's factors once. A failed load can be retried; a successful one is kept.
    bool Init();
    bool IsInitialized();
    // Takes a snapshot and computes the power. Throws std::runtime_error when not initialised
    // or when a register the formula needs is not available (the previous result stays).
    void Calculate();
    // Watts computed by the last Calculate.
    double PowerConsumption();
    // Time of the last snapshot, in seconds since the epoch.
    unsigned long Time();

    // Backlight types: 0-3 have a formula, kBluTypeCompensated is ANA times the compensate
    // constant, kBluTypeUndefined is named but has no formula; it and any other type meter 0 W
    // for the backlight.
    static constexpr int kBluTypeCompensated = 4;
    static constexpr int kBluTypeUndefined = 5;
    // The type a row's TYPE factor selects: truncated toward zero; -1 for a value no int can
    // hold (or NaN).
    static int BluType(double type_factor);

  private:
    bool is_initialized();
    void prepare();
    void adjust_main_power_constant();
    void print_factors();
    double calculate_power_consumption();
    double calculate_blu(int type);
    double calculate_blu_under_type4(int type);
    double calculate_cell();
    double calculate_main();
    double calculate_main_lpm();
    double calculate_speaker();
    int blu_type() const;
    double factor(_BLU b) const;
    double factor(_COMPONENT c) const;
    double reg(_SYSTEMREGISTER r) const;

    bool initialized_ = false;
    PowerFactors factors_;
    Registers registers_;
    uint32_t time_ = 0;
    _PowerStatusForEnergy power_status_ = MAX_POWER_STATUS_FOR_ENERGY;
    int32_t volume_ = 0;
    double power_consumption_ = 0.0;
    double main_power_constant_[SUSPEND + 1] = {1.0, 0.0, 0.6, 1.0, 0.7, 0.0};
};

}  // namespace powermeter
