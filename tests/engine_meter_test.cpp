// The power meter and the service's callbacks, linked directly rather than through the plug-in.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "EnergyService.h"
#include "EngineFixture.h"
#include "PowerMeter.h"

namespace powermeter {

class PowerMeterTestPeer {
  public:
    static double Accumulated() { return PowerMeter::GetInstance()->m_accumulated_power; }
    static uint32_t Since() { return PowerMeter::GetInstance()->m_accumulated_since; }
    static void SetTotal(double wh, uint32_t since) {
        PowerMeter::GetInstance()->m_accumulated_power = wh;
        PowerMeter::GetInstance()->m_accumulated_since = since;
    }
};

}  // namespace powermeter

namespace enginetest {
namespace {

using powermeter::PowerMeter;
using Peer = powermeter::PowerMeterTestPeer;

class PowerMeterTest : public EngineTest {
  protected:
    void TearDown() override {
        if (meter_->IsStarted()) {
            // Without a limit a wake-up lost mid-turn costs only a virtual 10 s.
            vclock::ClearLimit();
            meter_->Stop();
        }
        EngineTest::TearDown();
    }
    PowerMeter* meter_ = PowerMeter::GetInstance();
    std::vector<std::string> sent_;
    PowerMeter::NotifyFunction notify_ = [this](const std::string& json) { sent_.push_back(json); };
};

TEST_F(PowerMeterTest, IsASingleton) {
    EXPECT_EQ(PowerMeter::GetInstance(), meter_);
}

TEST_F(PowerMeterTest, StopBeforeStartOnlyLogs) {
    meter_->Stop();
    EXPECT_TRUE(Logged(DLOG_INFO, kTag, "[Energy] Stop!!!!"));
    EXPECT_TRUE(Logged(DLOG_ERROR, kTag, "[Energy] thread has not been created"));
    EXPECT_EQ(CountPrefix("[Energy] elaspsed time to terminate"), 0u);
    EXPECT_FALSE(meter_->IsStarted());
}

TEST_F(PowerMeterTest, FailedStartStillResetsAndRestampsTheTotal) {
    Peer::SetTotal(5.0, 1);
    tvsim::SetPanelType(std::nullopt);
    EXPECT_FALSE(meter_->Start(notify_));
    EXPECT_TRUE(Logged(DLOG_ERROR, kTag, "[Energy] failed to init the calculator"));
    EXPECT_EQ(Peer::Accumulated(), 0.0);
    EXPECT_EQ(Peer::Since(), static_cast<uint32_t>(kStart));
    EXPECT_FALSE(meter_->IsStarted());
    EXPECT_EQ(CountPrefix("[Energy] elaspsed time to create"), 0u);

    // A failed initialisation can be retried; the probe initialises the calculator for good.
    tvsim::SetPanelType(std::string(kPanel));
    EXPECT_TRUE(meter_->IsAvailable());
    ASSERT_TRUE(meter_->Start(notify_));
    EXPECT_TRUE(Logged(DLOG_ERROR, kTag, "[Energy] calculator has already been initialized"));
    EXPECT_TRUE(meter_->IsStarted());
}

TEST_F(PowerMeterTest, SecondStartIsRefusedAndTheFirstWorkerRunsOn) {
    ASSERT_TRUE(meter_->Start(notify_));
    ASSERT_TRUE(vclock::WaitUntilParked());
    Peer::SetTotal(3.0, 7);
    EXPECT_FALSE(meter_->Start(notify_));
    EXPECT_TRUE(Logged(DLOG_ERROR, kTag,
                       "[Energy] thread has already been created! Please Stop PowerMeter first"));
    // Refused before anything changed.
    EXPECT_EQ(Peer::Accumulated(), 3.0);
    EXPECT_EQ(Peer::Since(), 7u);
    RunTo(10);
    EXPECT_EQ(TurnNumbers().size(), 2u);
    meter_->Stop();
    EXPECT_FALSE(meter_->IsStarted());
    EXPECT_EQ(CountPrefix("[Energy] elaspsed time to terminate PowerMeter thread "), 1u);
}

TEST_F(PowerMeterTest, RestartCountsOnButTotalsAfresh) {
    const double energy = TurnEnergy(Watts(row_, kAna, 1080));
    ASSERT_TRUE(meter_->Start(notify_));
    RunTo(20);
    meter_->Stop();
    // The last turn's values stay in the stopped meter.
    EXPECT_EQ(Peer::Accumulated(), energy + energy + energy);
    ASSERT_TRUE(meter_->Start(notify_));
    ASSERT_TRUE(vclock::WaitUntilParked());
    EXPECT_EQ(Peer::Accumulated(), energy);
    EXPECT_EQ(Peer::Since(), static_cast<uint32_t>(kStart + 20));
    const std::vector<long> turns = TurnNumbers();
    ASSERT_EQ(turns.size(), 4u);
    EXPECT_EQ(turns, (std::vector<long>{turns[0], turns[0] + 1, turns[0] + 2, turns[0] + 3}));
    // The queue was prepared again too: the next report starts with the new worker.
    RunTo(20 + 900);
    double sum = 0.0;
    for (int turn = 0; turn < 91; ++turn) {
        sum += energy;
    }
    EXPECT_EQ(sent_, std::vector<std::string>{Report(sum, kStart + 20)});
}

TEST_F(PowerMeterTest, EmptyNotifyFunctionLeavesTheQueueDueAndRetriesEveryTurn) {
    ASSERT_TRUE(meter_->Start(PowerMeter::NotifyFunction()));
    RunTo(910);
    const std::string error =
        std::string("[Energy] !!! An exception: ") + std::bad_function_call().what();
    EXPECT_EQ(CountLogged(DLOG_INFO, kTag, "[Energy] !!! UPLOAD NOW"), 2u);
    EXPECT_EQ(CountLogged(DLOG_ERROR, kTag, error), 2u);
    // The rest of the turn is skipped, so the queue's summary is missing on those two turns.
    EXPECT_EQ(CountPrefix("[Energy] Accumulated power : "), 90u);
    EXPECT_EQ(TurnNumbers().size(), 92u);
}

TEST_F(PowerMeterTest, NotifyGetsTheQueueTextOnTheWorkerWithTheLoopMutexHeld) {
    ASSERT_TRUE(meter_->Start(notify_));
    RunTo(900);
    ASSERT_EQ(sent_.size(), 1u);
    double sum = 0.0;
    for (int turn = 0; turn < 91; ++turn) {
        sum += TurnEnergy(Watts(row_, kAna, 1080));
    }
    EXPECT_EQ(sent_[0], Report(sum, kStart));
    EXPECT_EQ(Peer::Accumulated(), sum);
}

class EnergyServiceCallbackTest : public testsupport::SimTest {};

TEST_F(EnergyServiceCallbackTest, StatusCallbackReadsTheNameUpToItsZeroAndToleratesNoUserData) {
    using powermeter::EnergyService;
    // The length is not used: the whole zero-terminated text is the name.
    EnergyService::protocolStatusCallback(nullptr, wexf_string_t{"corvane-x", 7},
                                          WEXF_PROTOCOL_STATUS_READY, nullptr);
    EXPECT_TRUE(Logged(DLOG_ERROR, kTag, "protocol name[corvane-x], protocol status[2]"));
    EXPECT_FALSE(Logged(DLOG_INFO, kTag, "corvane protocol is ready"));
    EnergyService::protocolStatusCallback(nullptr, wexf_string_t{nullptr, 3},
                                          WEXF_PROTOCOL_STATUS_ERROR, nullptr);
    EXPECT_TRUE(Logged(DLOG_ERROR, kTag, "protocol name[], protocol status[3]"));
    // Ready without user data: logged, nothing to set.
    EnergyService::protocolStatusCallback(nullptr, wexf_string_t{"corvane", 7},
                                          WEXF_PROTOCOL_STATUS_CONNECTED, nullptr);
    EXPECT_TRUE(Logged(DLOG_INFO, kTag, "corvane protocol is ready"));
}

}  // namespace
}  // namespace enginetest
