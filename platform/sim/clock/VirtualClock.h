// Virtual clock for running hours of metering in a fraction of a second.
//
// Linked into an executable that exports its symbols (CMake ENABLE_EXPORTS, i.e. -rdynamic),
// this library defines `time`, `gettimeofday`, `clock_gettime` and `pthread_cond_clockwait`.
// The dynamic linker binds every caller in the process to the executable's definitions first,
// including libraries loaded later with dlopen (the plug-in, libstdc++'s steady_clock), so the
// plug-in's clock and its timed waits run in virtual time without the plug-in knowing; the
// plug-in itself exports nothing extra. While the virtual clock is disabled (the default),
// each function forwards to the next definition in lookup order (dlsym(RTLD_NEXT, ...)): the C
// library's, or a sanitizer's interceptor in front of it. On a 32-bit target built with a
// 64-bit time_t these are the C library's 64-bit entry points (__time64, ...), and the classic
// 32-bit ones are defined beside them for libraries built with a 32-bit time_t.
//
// Virtual time. Enable(start) starts virtual time at `start` seconds since the epoch.
// CLOCK_REALTIME (and time(), gettimeofday()) and CLOCK_MONOTONIC (with BOOTTIME, RAW and the
// COARSE variants) then advance together: both are a fixed base plus the same virtual elapsed
// time. CPU-time clocks are never virtual.
//   - Speed 0 (the default): virtual time stands still except in timed waits. A timed wait
//     whose deadline is due returns ETIMEDOUT at once (after releasing and retaking the mutex,
//     like a real wait with a past deadline) and moves virtual time to its deadline.
//   - Speed s > 0: virtual time also flows at s times real time; a timed wait really waits
//     (remaining virtual time) / s.
// A real wake-up (pthread_cond_signal/broadcast from another thread) still ends a wait: the
// interposed wait calls the real one on the same condition variable and mutex.
//
// Limit. SetLimit(t) caps virtual time at t (nanoseconds since the epoch). A wait whose
// deadline lies beyond the limit "parks": it records itself, then waits on its condition
// variable in real time, without any virtual advance, until a real wake-up arrives (the wait
// returns 0, virtual time unchanged) or SetLimit raises the limit to cover the deadline (the
// wait then carries on as above). WaitUntilParked() blocks until some wait is parked and then
// locks and unlocks that wait's mutex once: the waiter only releases that mutex inside the real
// wait, so afterwards it is certainly a waiter on its condition variable and a following
// notify (for example a Stop) cannot be lost. A host can thus run to time T exactly, change
// the world, raise the limit, and stop the worker deterministically.
//
// Caveats. The clock is process-wide: every timed wait on pthread_cond_clockwait in the
// process (std::condition_variable::wait_for/wait_until on steady_clock) is a virtual wait and
// moves virtual time. While the clock is enabled, keep timed waits to the thread under test;
// use WaitUntilParked to synchronise with it. A notify that finds nobody waiting is lost as on
// the real clock; with a limit the waiter then parks instead of timing out, so stop a worker
// after WaitUntilParked or with the limit cleared. pthread_cond_timedwait is not interposed.
// SetLimit locks the mutex of every wait it releases; that mutex must still exist.
#pragma once

#include <cstdint>

namespace vclock {

constexpr int64_t kNanosPerSecond = 1000000000;

// Starts virtual time at `start_epoch_seconds` (seconds since the epoch, UTC); speed 0; no
// limit. Calling it again restarts virtual time at the new start; the virtual monotonic clock
// keeps going from where it was, so it never runs backwards.
void Enable(int64_t start_epoch_seconds);
// Back to the real clock. Waits already parked are released and return as timed out.
void Disable();
bool IsEnabled();

// 0 = as fast as possible (time moves only in waits); 1 = real time; 10 = ten times faster.
void SetSpeed(double speed);

// Jumps the virtual wall clock (time, gettimeofday, CLOCK_REALTIME and its variants) by
// `delta_nanos`, forwards or backwards, as network time or a user setting the clock does; the
// monotonic clock does not move, so timed waits, their 10-second cadence, parked waits and the
// limit (kept as elapsed time) carry on exactly as before. A later SetLimit(t) reads t on the
// jumped wall clock. False, and nothing changes, while disabled or when the wall clock would
// fall before the epoch.
bool JumpWallClock(int64_t delta_nanos);
inline bool JumpWallClockSeconds(int64_t delta_seconds) {
    return JumpWallClock(delta_seconds * kNanosPerSecond);
}

// Virtual CLOCK_REALTIME in nanoseconds since the epoch (the real one while disabled).
int64_t NowNanos();
inline int64_t NowSeconds() {
    return NowNanos() / kNanosPerSecond;
}

// Caps virtual time at `epoch_nanos`; waits with later deadlines park. Raising the limit
// releases the parked waits it now covers. SetLimitSeconds is the same in whole seconds.
void SetLimit(int64_t epoch_nanos);
inline void SetLimitSeconds(int64_t epoch_seconds) {
    SetLimit(epoch_seconds * kNanosPerSecond);
}
// No limit (the default after Enable).
void ClearLimit();

// Blocks until a wait is parked (at most `timeout_ms` of real time), then locks and unlocks its
// mutex once. Returns false on time-out.
bool WaitUntilParked(int timeout_ms = 30000);
// Number of waits parked right now.
int ParkedCount();

// Number of interposed waits that ran in virtual time since the last Enable.
uint64_t VirtualWaitCount();

// The kernel's own clock `clock_id` (CLOCK_MONOTONIC, ...) in nanoseconds, asked through the
// system call itself, so neither this clock nor a sanitizer stands between: real time while
// virtual time runs.
int64_t KernelNanos(int clock_id);

}  // namespace vclock
