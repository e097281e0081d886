#include "PowerMeter.h"

#include <chrono>
#include <cstdint>
#include <ctime>
#include <exception>
#include <utility>

#include "EngineQueue.h"
#include "Log.h"
#include "LogTexts.h"
#include "TimeUtil.h"

namespace powermeter {

namespace {

constexpr std::chrono::nanoseconds kTurnPeriod{10000000000LL};
constexpr double kSecondsPerHour = 3600.0;
constexpr unsigned long kQueueInterval = 10;

// Turns run by every worker this process has started; never reset, not even by a new Start.
// Only the worker touches it, and workers never overlap (the next one starts after a join).
int32_t g_turn = 0;

// What follows the turn number in a turn's first line.
constexpr char kTurnRuleTail[] = "============================================";

// Processor ticks between two clock() readings, printed with %d.
int elapsed_ticks(std::clock_t since) {
    return static_cast<int>(std::clock() - since);
}

}  // namespace

std::unique_ptr<PowerMeter> PowerMeter::m_instance;
std::once_flag PowerMeter::m_once;

PowerMeter* PowerMeter::GetInstance() {
    std::call_once(m_once, [] { m_instance.reset(new PowerMeter()); });
    return m_instance.get();
}

PowerMeter::PowerMeter()
    : m_queue(NewEngineQueue(), &DeleteEngineQueue),
      m_instantaneous_power(0.0),
      m_accumulated_power(0.0),
      m_accumulated_since(0) {
    m_started.store(false);
}

PowerMeter::~PowerMeter() = default;

bool PowerMeter::Start(const NotifyFunction& notify) {
    ELOGI("[Energy] Start!!!!");
    if (m_started.load()) {
        ELOGE("[Energy] thread has already been created! Please Stop PowerMeter first");
        return false;
    }
    // The total is restamped even when the calculator then fails to initialise.
    reset_accumulated_power();
    if (!m_calculator.Init()) {
        ELOGE("[Energy] failed to init the calculator");
        return false;
    }
    NotifyFunction copy(notify);
    m_notify.swap(copy);
    m_queue->Init();
    return create_thread();
}

void PowerMeter::Stop() {
    ELOGI("[Energy] Stop!!!!");
    terminate_thread();
}

bool PowerMeter::IsStarted() {
    return m_started.load();
}

bool PowerMeter::IsAvailable() {
    return m_calculator.Init();
}

bool PowerMeter::create_thread() {
    const std::clock_t start = std::clock();
    // Set before the thread exists, so the new worker sees true at its first check.
    m_started.store(true);
    try {
        std::thread worker([this] { run(); });
        m_thread = std::move(worker);
    } catch (const std::exception& e) {
        m_started.store(false);
        ELOGE("[Energy] failed to init because %s", e.what());
        return false;
    }
    ELOGI("%s%d", logtext::kMeterThreadCreated, elapsed_ticks(start));
    return true;
}

// Deliberately without m_mutex: a stop that arrives while a turn runs finds nobody waiting, and
// the worker then notices only after its next full wait.
void PowerMeter::terminate_thread() {
    if (!m_started.load()) {
        ELOGE("[Energy] thread has not been created");
        return;
    }
    const std::clock_t start = std::clock();
    if (m_thread.joinable()) {
        m_started.store(false);
        m_cond.notify_one();
        m_thread.join();
    }
    ELOGI("%s%d", logtext::kMeterThreadTerminated, elapsed_ticks(start));
}

void PowerMeter::add_accumulated_power(double energy) {
    m_accumulated_power += energy;
}

void PowerMeter::reset_accumulated_power() {
    m_accumulated_power = 0.0;
    m_accumulated_since = static_cast<uint32_t>(TimeUtil::GetLinuxTime());
}

void PowerMeter::run() {
    while (m_started.load()) {
        std::unique_lock<std::mutex> lock(m_mutex);
        try {
            ELOGI("%s%ld%s", logtext::kTurnRule, static_cast<long>(g_turn), kTurnRuleTail);
            ++g_turn;
            m_calculator.Calculate();
            // Always the nominal 10 s, not the time actually spent since the last turn.
            m_instantaneous_power =
                m_calculator.PowerConsumption() * kNominalInterval / kSecondsPerHour;
            if (m_instantaneous_power > kPlausibilityLimit) {
                ELOGE("[Energy] !!!WARNING:: Invalid Instantaneous Power: %lf, so makes it 0",
                      m_instantaneous_power);
                m_instantaneous_power = 0.0;
            }
            add_accumulated_power(m_instantaneous_power);
            print();
            ELOGI(
                "=================================================================================="
                "==");
            m_queue->Add(m_calculator.Time(), m_instantaneous_power, kQueueInterval);
            if (m_queue->IsUploadRequired()) {
                ELOGI("%s", logtext::kUploadNow);
                const std::string json = m_queue->GetJson();
                m_notify(json);  // an empty function throws std::bad_function_call
                m_queue->Reset();
            }
            m_queue->Print();
        } catch (const std::exception& e) {
            ELOGE("%s%s", logtext::kTurnFailed, e.what());
        }
        // 10 s on the monotonic clock. No predicate: a notify, a spurious wake-up and a time-out
        // all just end the wait.
        m_cond.wait_for(lock, kTurnPeriod);
    }
}

void PowerMeter::print() {
    ELOGI("%s%lf (W/h)", logtext::kCalculatedPower, m_calculator.PowerConsumption());
    ELOGI("%s%lf", logtext::kInstantaneousPower, m_instantaneous_power);
    const std::string label =
        "Accumulated Power: " + std::to_string(m_accumulated_power) + " from ";
    TimeUtil::PrintTime(m_accumulated_since, label.c_str());
}

}  // namespace powermeter
