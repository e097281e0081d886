#include "VirtualClock.h"

#include <dlfcn.h>
#include <errno.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <vector>

#define VCLOCK_EXPORT extern "C" __attribute__((visibility("default")))

// A 32-bit glibc build with a 64-bit time_t (_TIME_BITS=64) calls the clock functions under
// their 64-bit names: the C library's headers redirect `time`, `gettimeofday`, `clock_gettime`
// and `pthread_cond_clockwait` to `__time64`, `__gettimeofday64`, `__clock_gettime64` and
// `__pthread_cond_clockwait64`, so the definitions at the end of this file are emitted under
// those names there. Libraries built with the 32-bit time_t (libstdc++'s clocks, GLib) still
// call the classic names, which this file then defines as well (VCLOCK_TIME32).
#if defined(__USE_TIME_BITS64) && defined(__TIMESIZE) && __TIMESIZE == 32
#define VCLOCK_TIME32 1
#define VCLOCK_NAME(classic, time64) time64
#else
#define VCLOCK_TIME32 0
#define VCLOCK_NAME(classic, time64) classic
#endif

namespace vclock {
namespace {

using TimeFn = time_t (*)(time_t*);
using GetTimeOfDayFn = int (*)(struct timeval*, void*);
using ClockGetTimeFn = int (*)(clockid_t, struct timespec*);
using ClockWaitFn = int (*)(pthread_cond_t*, pthread_mutex_t*, clockid_t, const struct timespec*);

// The next definition after this executable's: the C library's, or a sanitizer's interceptor.
void* next_symbol(const char* name) {
    void* fn = dlsym(RTLD_NEXT, name);
    if (fn == nullptr) {
        std::fprintf(stderr, "vclock: no next definition of %s\n", name);
        std::abort();
    }
    return fn;
}

TimeFn real_time() {
    static const TimeFn fn = reinterpret_cast<TimeFn>(next_symbol(VCLOCK_NAME("time", "__time64")));
    return fn;
}
GetTimeOfDayFn real_gettimeofday() {
    static const GetTimeOfDayFn fn = reinterpret_cast<GetTimeOfDayFn>(
        next_symbol(VCLOCK_NAME("gettimeofday", "__gettimeofday64")));
    return fn;
}
ClockGetTimeFn real_clock_gettime() {
    static const ClockGetTimeFn fn = reinterpret_cast<ClockGetTimeFn>(
        next_symbol(VCLOCK_NAME("clock_gettime", "__clock_gettime64")));
    return fn;
}
ClockWaitFn real_clockwait() {
    static const ClockWaitFn fn = reinterpret_cast<ClockWaitFn>(
        next_symbol(VCLOCK_NAME("pthread_cond_clockwait", "__pthread_cond_clockwait64")));
    return fn;
}

constexpr int64_t kNoLimit = std::numeric_limits<int64_t>::max();
// A parked wait re-parks after this much real time; only a real wake-up or a release ends it.
constexpr int64_t kParkRealTimeout = 3600 * kNanosPerSecond;

int64_t to_nanos(const struct timespec& ts) {
    return static_cast<int64_t>(ts.tv_sec) * kNanosPerSecond + ts.tv_nsec;
}

struct timespec to_timespec(int64_t nanos) {
    struct timespec ts;
    ts.tv_sec = static_cast<time_t>(nanos / kNanosPerSecond);
    ts.tv_nsec = static_cast<long>(nanos % kNanosPerSecond);
    return ts;
}

int64_t real_monotonic() {
    struct timespec ts;
    real_clock_gettime()(CLOCK_MONOTONIC, &ts);
    return to_nanos(ts);
}

int64_t real_realtime() {
    struct timespec ts;
    real_clock_gettime()(CLOCK_REALTIME, &ts);
    return to_nanos(ts);
}

enum class Base { kNone, kRealtime, kMonotonic };

Base base_of(clockid_t clock) {
    switch (clock) {
        case CLOCK_REALTIME:
        case CLOCK_REALTIME_COARSE:
        case CLOCK_REALTIME_ALARM:
        case CLOCK_TAI:
            return Base::kRealtime;
        case CLOCK_MONOTONIC:
        case CLOCK_MONOTONIC_RAW:
        case CLOCK_MONOTONIC_COARSE:
        case CLOCK_BOOTTIME:
        case CLOCK_BOOTTIME_ALARM:
            return Base::kMonotonic;
        default:
            return Base::kNone;  // CPU-time and dynamic clocks stay real
    }
}

struct Parked {
    uint64_t id;
    pthread_cond_t* cond;
    pthread_mutex_t* mutex;
    int64_t deadline;  // virtual elapsed nanoseconds
};

// Everything below is guarded by g_mutex. Virtual time is kept as "elapsed" nanoseconds since
// Enable; the two clocks add their own base to it. Raw pthread objects are used so that the
// clock's own waits go straight to the real functions.
pthread_mutex_t g_mutex = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t g_park_cond = PTHREAD_COND_INITIALIZER;
std::atomic<bool> g_enabled{false};
int64_t g_realtime_base = 0;   // virtual CLOCK_REALTIME at elapsed 0
int64_t g_monotonic_base = 0;  // virtual CLOCK_MONOTONIC at elapsed 0
int64_t g_anchor_virtual = 0;  // elapsed at g_anchor_real
int64_t g_anchor_real = 0;     // real monotonic time of the anchor
double g_speed = 0.0;
int64_t g_limit = kNoLimit;  // elapsed
uint64_t g_next_id = 0;
uint64_t g_wait_count = 0;
std::vector<Parked> g_parked;

class Lock {
  public:
    explicit Lock(pthread_mutex_t* m) : m_(m) { pthread_mutex_lock(m_); }
    ~Lock() { pthread_mutex_unlock(m_); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

  private:
    pthread_mutex_t* m_;
};

// Virtual elapsed time now. Time flows at g_speed but never passes the limit; when it reaches
// the limit the anchor moves there, so raising the limit later does not make time jump.
int64_t elapsed_locked() {
    int64_t v = g_anchor_virtual;
    if (g_speed > 0.0) {
        const int64_t real_now = real_monotonic();
        v += static_cast<int64_t>(static_cast<double>(real_now - g_anchor_real) * g_speed);
        if (v > g_limit && g_anchor_virtual <= g_limit) {
            g_anchor_virtual = g_limit;
            g_anchor_real = real_now;
            v = g_limit;
        }
    }
    return v;
}

void reanchor_locked(int64_t elapsed) {
    g_anchor_virtual = elapsed;
    g_anchor_real = real_monotonic();
}

// Moves virtual time forward to `elapsed` (never backwards).
void advance_to_locked(int64_t elapsed) {
    reanchor_locked(std::max(elapsed_locked(), elapsed));
}

int64_t base_locked(Base base) {
    return base == Base::kRealtime ? g_realtime_base : g_monotonic_base;
}

bool remove_parked_locked(uint64_t id) {
    auto it = std::find_if(g_parked.begin(), g_parked.end(),
                           [id](const Parked& p) { return p.id == id; });
    if (it == g_parked.end()) {
        return false;
    }
    g_parked.erase(it);
    return true;
}

// Releases the parked waits whose deadline the limit now covers (all of them when `all`).
// Each one's mutex is taken first: while the entry is still listed its waiter is inside the
// real wait, so the broadcast reaches it and cannot stray into a later wait.
void release_parked(bool all) {
    std::vector<Parked> todo;
    {
        Lock lock(&g_mutex);
        for (const Parked& p : g_parked) {
            if (all || p.deadline <= g_limit) {
                todo.push_back(p);
            }
        }
    }
    for (const Parked& p : todo) {
        pthread_mutex_lock(p.mutex);
        {
            Lock lock(&g_mutex);
            if (remove_parked_locked(p.id)) {
                pthread_cond_broadcast(p.cond);
            }
        }
        pthread_mutex_unlock(p.mutex);
    }
}

int virtual_wait(pthread_cond_t* cond, pthread_mutex_t* mutex, Base base,
                 const struct timespec* abstime) {
    pthread_mutex_lock(&g_mutex);
    const int64_t deadline = to_nanos(*abstime) - base_locked(base);
    ++g_wait_count;
    bool released = false;
    while (deadline > g_limit) {
        const uint64_t id = ++g_next_id;
        g_parked.push_back(Parked{id, cond, mutex, deadline});
        pthread_cond_broadcast(&g_park_cond);
        pthread_mutex_unlock(&g_mutex);
        const struct timespec park_until = to_timespec(real_monotonic() + kParkRealTimeout);
        const int rc = real_clockwait()(cond, mutex, CLOCK_MONOTONIC, &park_until);
        pthread_mutex_lock(&g_mutex);
        if (remove_parked_locked(id)) {
            // Still listed, so nobody released it: a real wake-up, an error or the long
            // re-park time-out.
            if (rc != ETIMEDOUT) {
                pthread_mutex_unlock(&g_mutex);
                return rc;
            }
            continue;
        }
        released = true;
        if (!g_enabled.load()) {
            // Released by Disable: the deadline means nothing in real time any more.
            pthread_mutex_unlock(&g_mutex);
            return ETIMEDOUT;
        }
        break;
    }
    if (released && g_speed <= 0.0) {
        // The mutex was already given up while parked; just arrive at the deadline.
        advance_to_locked(deadline);
        pthread_mutex_unlock(&g_mutex);
        return ETIMEDOUT;
    }
    // As fast as possible: a deadline long past. "Now" would still sleep for the kernel's
    // timer slack (about 50 us) on every turn.
    int64_t real_deadline = 0;
    if (g_speed > 0.0) {
        real_deadline = real_monotonic();
        const int64_t remaining = deadline - elapsed_locked();
        if (remaining > 0) {
            real_deadline += static_cast<int64_t>(static_cast<double>(remaining) / g_speed);
        }
    }
    pthread_mutex_unlock(&g_mutex);
    const struct timespec until = to_timespec(real_deadline);
    const int rc = real_clockwait()(cond, mutex, CLOCK_MONOTONIC, &until);
    if (rc == ETIMEDOUT) {
        Lock lock(&g_mutex);
        advance_to_locked(std::min(deadline, g_limit));
    }
    return rc;
}

// Virtual time of `base` in nanoseconds, or -1 when `base` is not virtual right now.
int64_t virtual_now(Base base) {
    if (base == Base::kNone || !g_enabled.load(std::memory_order_acquire)) {
        return -1;
    }
    Lock lock(&g_mutex);
    return base_locked(base) + elapsed_locked();
}

}  // namespace

void Enable(int64_t start_epoch_seconds) {
    Lock lock(&g_mutex);
    const int64_t monotonic_now =
        g_enabled.load() ? g_monotonic_base + elapsed_locked() : real_monotonic();
    g_monotonic_base = monotonic_now;
    g_realtime_base = start_epoch_seconds * kNanosPerSecond;
    g_speed = 0.0;
    g_limit = kNoLimit;
    g_wait_count = 0;
    reanchor_locked(0);
    g_enabled.store(true);
}

void Disable() {
    {
        Lock lock(&g_mutex);
        g_enabled.store(false);
    }
    release_parked(true);
}

bool IsEnabled() {
    return g_enabled.load();
}

void SetSpeed(double speed) {
    Lock lock(&g_mutex);
    reanchor_locked(elapsed_locked());
    g_speed = speed > 0.0 ? speed : 0.0;
}

bool JumpWallClock(int64_t delta_nanos) {
    Lock lock(&g_mutex);
    if (!g_enabled.load()) {
        return false;
    }
    const int64_t wall = g_realtime_base + elapsed_locked();
    // Before the epoch the wall clock would read as "not virtual" (virtual_now's -1); far
    // beyond it, base plus elapsed time would overflow.
    if (delta_nanos < -wall || delta_nanos > std::numeric_limits<int64_t>::max() / 2 - wall) {
        return false;
    }
    // Only the wall clock's base moves; elapsed time, on which waits and the limit run, does not.
    g_realtime_base += delta_nanos;
    return true;
}

int64_t NowNanos() {
    const int64_t v = virtual_now(Base::kRealtime);
    return v >= 0 ? v : real_realtime();
}

void SetLimit(int64_t epoch_nanos) {
    {
        Lock lock(&g_mutex);
        g_limit = epoch_nanos - g_realtime_base;
    }
    release_parked(false);
}

void ClearLimit() {
    {
        Lock lock(&g_mutex);
        g_limit = kNoLimit;
    }
    release_parked(false);
}

bool WaitUntilParked(int timeout_ms) {
    pthread_mutex_t* parked_mutex = nullptr;
    {
        Lock lock(&g_mutex);
        const struct timespec until = to_timespec(real_monotonic() + int64_t{timeout_ms} * 1000000);
        while (g_parked.empty()) {
            if (real_clockwait()(&g_park_cond, &g_mutex, CLOCK_MONOTONIC, &until) == ETIMEDOUT &&
                g_parked.empty()) {
                return false;
            }
        }
        parked_mutex = g_parked.front().mutex;
    }
    // The parked waiter holds its mutex everywhere except inside the real wait.
    pthread_mutex_lock(parked_mutex);
    pthread_mutex_unlock(parked_mutex);
    return true;
}

int ParkedCount() {
    Lock lock(&g_mutex);
    return static_cast<int>(g_parked.size());
}

uint64_t VirtualWaitCount() {
    Lock lock(&g_mutex);
    return g_wait_count;
}

int64_t KernelNanos(int clock_id) {
    struct timespec ts {};
#if defined(SYS_clock_gettime64)
    // A 32-bit target: the classic call fills a 32-bit timespec, this build's has 64 bits.
    syscall(SYS_clock_gettime64, clock_id, &ts);
#else
    syscall(SYS_clock_gettime, clock_id, &ts);
#endif
    return to_nanos(ts);
}

}  // namespace vclock

// ---- The interposed C functions ----

VCLOCK_EXPORT time_t time(time_t* out) noexcept {
    const int64_t v = vclock::virtual_now(vclock::Base::kRealtime);
    if (v < 0) {
        return vclock::real_time()(out);
    }
    const time_t seconds = static_cast<time_t>(v / vclock::kNanosPerSecond);
    if (out != nullptr) {
        *out = seconds;
    }
    return seconds;
}

VCLOCK_EXPORT int gettimeofday(struct timeval* tv, void* tz) noexcept {
    const int64_t v = vclock::virtual_now(vclock::Base::kRealtime);
    if (v < 0) {
        return vclock::real_gettimeofday()(tv, tz);
    }
    tv->tv_sec = static_cast<time_t>(v / vclock::kNanosPerSecond);
    tv->tv_usec = static_cast<suseconds_t>((v % vclock::kNanosPerSecond) / 1000);
    return 0;
}

VCLOCK_EXPORT int clock_gettime(clockid_t clock, struct timespec* ts) noexcept {
    const int64_t v = vclock::virtual_now(vclock::base_of(clock));
    if (v < 0) {
        return vclock::real_clock_gettime()(clock, ts);
    }
    *ts = vclock::to_timespec(v);
    return 0;
}

VCLOCK_EXPORT int pthread_cond_clockwait(pthread_cond_t* cond, pthread_mutex_t* mutex,
                                         clockid_t clock, const struct timespec* abstime) {
    const vclock::Base base = vclock::base_of(clock);
    if (base == vclock::Base::kNone || !vclock::g_enabled.load(std::memory_order_acquire)) {
        return vclock::real_clockwait()(cond, mutex, clock, abstime);
    }
    return vclock::virtual_wait(cond, mutex, base, abstime);
}

#if VCLOCK_TIME32
// ---- The classic 32-bit entry points of a 32-bit glibc ----
// Same clock, 32-bit seconds. Like the C library's own, a time that does not fit fails with
// EOVERFLOW instead of wrapping.
namespace vclock {
namespace {

struct Timespec32 {
    int32_t tv_sec;
    int32_t tv_nsec;
};
struct Timeval32 {
    int32_t tv_sec;
    int32_t tv_usec;
};
using Time32Fn = int32_t (*)(int32_t*);
using GetTimeOfDay32Fn = int (*)(Timeval32*, void*);
using ClockGetTime32Fn = int (*)(clockid_t, Timespec32*);
using ClockWait32Fn = int (*)(pthread_cond_t*, pthread_mutex_t*, clockid_t, const Timespec32*);

template <typename Fn>
Fn classic(const char* name) {
    return reinterpret_cast<Fn>(next_symbol(name));
}

// Seconds of `nanos` as a 32-bit count, or false when they do not fit.
bool seconds32(int64_t nanos, int32_t* out) {
    const int64_t s = nanos / kNanosPerSecond;
    if (s < std::numeric_limits<int32_t>::min() || s > std::numeric_limits<int32_t>::max()) {
        errno = EOVERFLOW;
        return false;
    }
    *out = static_cast<int32_t>(s);
    return true;
}

}  // namespace
}  // namespace vclock

VCLOCK_EXPORT int32_t vclock_time32(int32_t* out) noexcept __asm__("time");
VCLOCK_EXPORT int vclock_gettimeofday32(vclock::Timeval32* tv, void* tz) noexcept
    __asm__("gettimeofday");
VCLOCK_EXPORT int vclock_clock_gettime32(clockid_t clock, vclock::Timespec32* ts) noexcept
    __asm__("clock_gettime");
VCLOCK_EXPORT int vclock_clockwait32(
    pthread_cond_t* cond, pthread_mutex_t* mutex, clockid_t clock,
    const vclock::Timespec32* abstime) __asm__("pthread_cond_clockwait");

int32_t vclock_time32(int32_t* out) noexcept {
    static const auto real = vclock::classic<vclock::Time32Fn>("time");
    const int64_t v = vclock::virtual_now(vclock::Base::kRealtime);
    if (v < 0) {
        return real(out);
    }
    int32_t seconds = 0;
    if (!vclock::seconds32(v, &seconds)) {
        return -1;
    }
    if (out != nullptr) {
        *out = seconds;
    }
    return seconds;
}

int vclock_gettimeofday32(vclock::Timeval32* tv, void* tz) noexcept {
    static const auto real = vclock::classic<vclock::GetTimeOfDay32Fn>("gettimeofday");
    const int64_t v = vclock::virtual_now(vclock::Base::kRealtime);
    if (v < 0) {
        return real(tv, tz);
    }
    if (!vclock::seconds32(v, &tv->tv_sec)) {
        return -1;
    }
    tv->tv_usec = static_cast<int32_t>((v % vclock::kNanosPerSecond) / 1000);
    return 0;
}

int vclock_clock_gettime32(clockid_t clock, vclock::Timespec32* ts) noexcept {
    static const auto real = vclock::classic<vclock::ClockGetTime32Fn>("clock_gettime");
    const int64_t v = vclock::virtual_now(vclock::base_of(clock));
    if (v < 0) {
        return real(clock, ts);
    }
    if (!vclock::seconds32(v, &ts->tv_sec)) {
        return -1;
    }
    ts->tv_nsec = static_cast<int32_t>(v % vclock::kNanosPerSecond);
    return 0;
}

int vclock_clockwait32(pthread_cond_t* cond, pthread_mutex_t* mutex, clockid_t clock,
                       const vclock::Timespec32* abstime) {
    static const auto real = vclock::classic<vclock::ClockWait32Fn>("pthread_cond_clockwait");
    const vclock::Base base = vclock::base_of(clock);
    if (base == vclock::Base::kNone || !vclock::g_enabled.load(std::memory_order_acquire)) {
        return real(cond, mutex, clock, abstime);
    }
    struct timespec wide;
    wide.tv_sec = abstime->tv_sec;
    wide.tv_nsec = abstime->tv_nsec;
    return vclock::virtual_wait(cond, mutex, base, &wide);
}
#endif
