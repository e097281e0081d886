// The metering loop as the framework sees it: what reaches the framework, what is dropped,
// and how the loop survives bad values and failures.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "EngineFixture.h"

namespace enginetest {
namespace {

class EngineLoopTest : public PluginTest {
  protected:
    double Sum(int turns, double watts) const {
        double sum = 0.0;
        for (int turn = 0; turn < turns; ++turn) {
            sum += TurnEnergy(watts);
        }
        return sum;
    }
    const double watts_ = Watts(Row{}, kAna, 1080);
};

TEST_F(EngineLoopTest, UploadBeforeTheProtocolIsReadyIsDroppedAndNotRetried) {
    ASSERT_EQ(Create(), 1);
    RunTo(900);
    EXPECT_EQ(wexfhost::NotificationCount(), 0u);
    EXPECT_TRUE(Logged(DLOG_INFO, kTag, "[Energy] !!! UPLOAD NOW"));
    EXPECT_TRUE(Logged(DLOG_ERROR, kTag, "Protocol is not READY yet!!"));
    EXPECT_EQ(CountPrefix("[Energy] !!! An exception"), 0u);
    // The queue was reset all the same: the next report starts after the dropped one.
    ASSERT_TRUE(Ready());
    RunTo(1810);
    EXPECT_EQ(Reports(), std::vector<std::string>{Report(Sum(91, watts_), kStart + 910)});
    EXPECT_EQ(CountLogged(DLOG_ERROR, kTag, "Protocol is not READY yet!!"), 1u);
    EXPECT_EQ(Destroy(), 1);
}

TEST_F(EngineLoopTest, OnlyTheCorvaneProtocolMovesTheReadyFlag) {
    ASSERT_EQ(Create(), 1);
    ASSERT_TRUE(Status("corvane2", 0));
    ASSERT_TRUE(Status("Corvane", 2));
    ASSERT_TRUE(Status("", 0));
    EXPECT_TRUE(Logged(DLOG_ERROR, kTag, "protocol name[corvane2], protocol status[0]"));
    EXPECT_FALSE(Logged(DLOG_INFO, kTag, "corvane protocol is ready"));
    RunTo(900);
    EXPECT_EQ(wexfhost::NotificationCount(), 0u);
    // Armed, another protocol going down changes nothing either.
    ASSERT_TRUE(Ready());
    ASSERT_TRUE(Status("other", 1));
    ASSERT_TRUE(Status("corvan", 3));
    RunTo(1810);
    EXPECT_EQ(wexfhost::NotificationCount(), 1u);
    EXPECT_EQ(Destroy(), 1);
}

class DisarmTest : public EngineLoopTest, public ::testing::WithParamInterface<int> {};

TEST_P(DisarmTest, ANotReadyStatusDropsUploadsUntilTheNextReadyOne) {
    ASSERT_EQ(Create(), 1);
    ASSERT_TRUE(Ready(0));
    RunTo(900);
    ASSERT_EQ(wexfhost::NotificationCount(), 1u);
    ASSERT_TRUE(Ready(GetParam()));
    RunTo(1810);
    EXPECT_EQ(wexfhost::NotificationCount(), 1u);
    EXPECT_TRUE(Logged(DLOG_ERROR, kTag, "Protocol is not READY yet!!"));
    ASSERT_TRUE(Ready(2));
    RunTo(2720);
    const auto reports = Reports();
    ASSERT_EQ(reports.size(), 2u);
    EXPECT_EQ(reports[1], Report(Sum(91, watts_), kStart + 1820));
    EXPECT_EQ(Destroy(), 1);
}

INSTANTIATE_TEST_SUITE_P(DisconnectedAndError, DisarmTest, ::testing::Values(1, 3));

TEST_F(EngineLoopTest, ImplausiblePowerCountsAsZeroButIsStillQueuedAndNegativePowerCounts) {
    // watts = ANA exactly: no cell or main-board share.
    row_ = Row{1.0, 0.0, 0.0};
    WriteFactors(row_);
    SetRegisters(7921, 1080);  // 22.0028 Wh in one turn: rejected
    ASSERT_EQ(Create(), 1);
    ASSERT_TRUE(Ready());
    ASSERT_TRUE(vclock::WaitUntilParked());
    SetRegisters(7920, 1080);  // exactly 22.0 Wh: accepted
    RunTo(10);
    SetRegisters(-360, 1080);  // -1.0 Wh per turn: accepted
    RunTo(900);

    EXPECT_EQ(
        CountLogged(DLOG_ERROR, kTag,
                    "[Energy] !!!WARNING:: Invalid Instantaneous Power: 22.002778, so makes it 0"),
        1u);
    const auto totals = AccumulatedTexts();
    ASSERT_EQ(totals.size(), 91u);
    EXPECT_EQ(totals[0], "0.000000");
    EXPECT_EQ(totals[1], "22.000000");
    EXPECT_EQ(totals[2], "21.000000");
    EXPECT_TRUE(Logged(DLOG_INFO, kTag, "[Energy] Instantaneous Power: 0.000000"));
    EXPECT_TRUE(
        Logged(DLOG_INFO, kTag, "[Energy] Calculated Power Consumption: 7921.000000 (W/h)"));
    double sum = 0.0 + TurnEnergy(7920.0);
    for (int turn = 2; turn < 91; ++turn) {
        sum += TurnEnergy(-360.0);
    }
    // The rejected first turn still opened the report: its date is the first turn's.
    EXPECT_EQ(Reports(), std::vector<std::string>{Report(sum, kStart)});
    EXPECT_EQ(Destroy(), 1);
}

TEST_F(EngineLoopTest, ACalculatorThatThrowsIsLoggedAndRetriedAfterTheFullWait) {
    SetRegistersText("{\"ANA\":\"693\",\"DutySum\":\"300\"}");
    ASSERT_EQ(Create(), 1);
    ASSERT_TRUE(Ready());
    ASSERT_TRUE(vclock::WaitUntilParked());
    EXPECT_TRUE(Logged(DLOG_ERROR, kTag, "[Energy] !!! An exception: RESOLUTION is not available"));
    EXPECT_TRUE(AccumulatedTexts().empty());
    // Still waiting out its 10 s: a limit one second short releases nothing.
    vclock::SetLimitSeconds(kStart + 9);
    EXPECT_EQ(vclock::ParkedCount(), 1);
    EXPECT_EQ(TurnNumbers(), std::vector<long>{0});

    SetRegisters(kAna, 1080);
    RunTo(10);
    EXPECT_EQ(TurnNumbers(), (std::vector<long>{0, 1}));
    EXPECT_EQ(AccumulatedTexts(), std::vector<std::string>{std::to_string(TurnEnergy(watts_))});
    RunTo(10 + 900);
    EXPECT_EQ(Reports(), std::vector<std::string>{Report(Sum(91, watts_), kStart + 10)});
    EXPECT_EQ(
        CountLogged(DLOG_ERROR, kTag, "[Energy] !!! An exception: RESOLUTION is not available"),
        1u);
    EXPECT_EQ(Destroy(), 1);
}

class FrameworkFaultTest : public EngineLoopTest,
                           public ::testing::WithParamInterface<wexfhost::Fault> {};

TEST_P(FrameworkFaultTest, AThrowingFrameworkCallIsCaughtInTheNotifyAndTheQueueStillResets) {
    wexfhost::SetFault(GetParam(), "framework down");
    ASSERT_EQ(Create(), 1);
    ASSERT_TRUE(Ready());
    RunTo(900);
    EXPECT_TRUE(Logged(DLOG_ERROR, kTag, "exception caught = framework down"));
    EXPECT_EQ(CountPrefix("[Energy] !!! An exception"), 0u);
    EXPECT_EQ(wexfhost::NotificationCount(), 0u);
    wexfhost::SetFault(wexfhost::Fault::kNone);
    RunTo(1810);
    EXPECT_EQ(Reports(), std::vector<std::string>{Report(Sum(91, watts_), kStart + 910)});
    EXPECT_EQ(Destroy(), 1);
}

INSTANTIATE_TEST_SUITE_P(
    NotifyAndProperty, FrameworkFaultTest,
    ::testing::Values(wexfhost::Fault::kNotifyThrows, wexfhost::Fault::kPropertyThrows),
    [](const ::testing::TestParamInfo<wexfhost::Fault>& info) {
        return std::string(info.param == wexfhost::Fault::kNotifyThrows ? "Notify" : "Property");
    });

}  // namespace
}  // namespace enginetest
