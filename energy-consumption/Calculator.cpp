#include "Calculator.h"

#include <cmath>
#include <stdexcept>

#include "Log.h"
#include "LogTexts.h"
#include "PowerFactorLoader.h"
#include "Sound.h"
#include "TimeUtil.h"

namespace powermeter {

namespace {

constexpr double kResolutionThreshold = 1080.0;
constexpr double kHighResolutionFactor = 1.1;
constexpr double kPictureOffType4Watts = 17.0;

// Full-scale count D and factor K of the backlight formulas of types 0-3.
struct BluConstants {
    double full_scale;
    double k;
};
constexpr BluConstants kBluTable[] = {
    {1023.0, 1.05},  // type 0: K multiplied
    {4095.0, 1.05},  // type 1: K multiplied
    {4095.0, 7.0},   // type 2: K added, in watts
    {4095.0, 1.12},  // type 3: K multiplied
};
constexpr int kBluTableSize = static_cast<int>(sizeof(kBluTable) / sizeof(kBluTable[0]));

}  // namespace

bool Calculator::Init() {
    if (is_initialized()) {
        ELOGE("[Energy] calculator has already been initialized");
        return true;
    }
    PowerFactorLoader loader;
    initialized_ = loader.Load(factors_);
    factors_.Print();
    return initialized_;
}

bool Calculator::IsInitialized() {
    return is_initialized();
}

bool Calculator::is_initialized() {
    return initialized_;
}

void Calculator::Calculate() {
    prepare();
    power_consumption_ = calculate_power_consumption();
}

double Calculator::PowerConsumption() {
    return power_consumption_;
}

unsigned long Calculator::Time() {
    return time_;
}

void Calculator::prepare() {
    if (!is_initialized()) {
        throw std::runtime_error("calculator has not been initialized");
    }
    time_ = static_cast<uint32_t>(TimeUtil::GetLinuxTime());
    power_status_ = PowerStatus::GetCurrent();
    registers_.Refresh();
    adjust_main_power_constant();
    volume_ = Sound::IsTVSpeaker() ? Sound::Volume() : 0;
    print_factors();
    factors_.PrintInfo();
}

void Calculator::adjust_main_power_constant() {
    main_power_constant_[NORMAL] = reg(RESOLUTION) > kResolutionThreshold ? 1.1 : 1.0;
    main_power_constant_[ALWAYS_ON_SCREEN] = reg(RESOLUTION) > kResolutionThreshold ? 1.1 : 1.0;
}

void Calculator::print_factors() {
    TimeUtil::PrintTime(time_, nullptr);
    ELOGI("%s%d, blu_type: %d", logtext::kSnapshotRow, factors_.SequenceNumber(), blu_type());
    const int ana = registers_.Value(ANA);
    const int duty_sum = registers_.Value(DutySum);
    const int resolution = registers_.Value(RESOLUTION);
    ELOGI("%s%d, dutysum:%d, resolution: %d, volume: %d", logtext::kSnapshotInputs, ana, duty_sum,
          resolution, volume_);
    PowerStatus::Print(power_status_);
}

double Calculator::calculate_power_consumption() {
    const int type = blu_type();
    // Each term is its own statement so that the terms are computed (and logged) left to
    // right, and summed left to right.
    double power = 0.0;
    switch (power_status_) {
        case NORMAL:
            power = calculate_blu(type);
            power += calculate_cell();
            power += calculate_main();
            power += calculate_speaker();
            break;
        case LPM:
            power = calculate_main_lpm();
            break;
        case BACKGROUND_STANDBY:
            power = calculate_main();
            break;
        case ALWAYS_ON_SCREEN:
            power = calculate_blu(type);
            power += calculate_cell();
            power += calculate_main();
            break;
        case PICTURE_OFF:
            power = calculate_main();
            power += calculate_speaker();
            power += type == kBluTypeCompensated ? kPictureOffType4Watts : 0.0;
            break;
        case SUSPEND:
            power = 0.0;
            break;
        default:
            ELOGE("[Energy] Undefined PowerStatusForEnergy");
            power = 0.0;
            break;
    }
    return power;
}

double Calculator::calculate_blu(int type) {
    double term = 0.0;
    if (type == kBluTypeUndefined) {
        ELOGE("[Energy] BLU Type 5 is undefined");
    } else if (type == kBluTypeCompensated) {
        term = reg(ANA) * factor(COMPENSATE_CONSTANT);
    } else {
        term = calculate_blu_under_type4(type);
    }
    ELOGI("[Energy] BLU : %lf", term);
    return term;
}

double Calculator::calculate_blu_under_type4(int type) {
    // A type outside 0-5 comes from a bad data row; it has no formula, so it contributes no
    // backlight power rather than reading past the constants table.
    if (type < 0 || type >= kBluTableSize) {
        ELOGE("[Energy] BLU Type %d is undefined", type);
        return 0.0;
    }
    const BluConstants& c = kBluTable[type];
    const double od_max = factor(OD_MAX);
    const double od_min = factor(OD_MIN);
    const double ana = reg(ANA);
    const double duty_sum = reg(DutySum);
    const double vf_max = factor(VF_MAX);
    const double vf_min = factor(VF_MIN);
    const double alpha = factor(ALPHA);
    const double block = factor(BLOCK);

    const double od = (od_max - od_min) * ana / 1023.0 + od_min;
    const double current = od * duty_sum / c.full_scale / 1000.0;
    const double vf = (vf_max - vf_min) * ana / 1023.0 * duty_sum / 1023.0 + vf_min;
    const double voltage = vf + alpha;
    if (type == 2) {
        return current * voltage * block + c.k;
    }
    return current * voltage * block * c.k;
}

double Calculator::calculate_cell() {
    double cell = factor(CELL);
    if (reg(RESOLUTION) > kResolutionThreshold) {
        cell = cell * kHighResolutionFactor;
    }
    ELOGI("[Energy] cell : %lf", cell);
    return cell;
}

double Calculator::calculate_main() {
    const double main_power = factor(MAIN) * main_power_constant_[power_status_];
    ELOGI("[Energy] main_power : %lf", main_power);
    return main_power;
}

double Calculator::calculate_main_lpm() {
    return factor(MAIN_LPM);
}

double Calculator::calculate_speaker() {
    const double speaker = std::pow(factor(SPEAKER), static_cast<double>(volume_) / 100.0) - 1.0;
    ELOGI("[Energy] speaker : %lf", speaker);
    return speaker;
}

int Calculator::blu_type() const {
    return BluType(factor(TYPE));
}

int Calculator::BluType(double t) {
    // Truncation toward zero. A value no int can hold (or NaN) is not a type at all; -1 sends
    // it down the undefined-type path instead of into an undefined conversion.
    if (!(t > -2147483649.0 && t < 2147483648.0)) {
        return -1;
    }
    return static_cast<int>(t);
}

double Calculator::factor(_BLU b) const {
    return factors_.BLUFactors(b);
}

double Calculator::factor(_COMPONENT c) const {
    return factors_.Components(c);
}

double Calculator::reg(_SYSTEMREGISTER r) const {
    return static_cast<double>(registers_.Value(r));
}

}  // namespace powermeter
