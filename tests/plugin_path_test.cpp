// The plug-in end to end: loaded with dlopen by the framework host, metering the simulated TV.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "EngineFixture.h"

namespace enginetest {
namespace {

using Kind = wexfhost::Event::Kind;

class PluginPathTest : public PluginTest {};

TEST_F(PluginPathTest, RegistersTheServiceWithItsFourCallbacksInOrder) {
    ASSERT_EQ(Create(), 1);
    // Stopping mid-turn would lose the wake-up and leave the worker parked at the limit.
    ASSERT_TRUE(vclock::WaitUntilParked());
    wexfhost::ServiceInfo info;
    ASSERT_TRUE(wexfhost::FindService(kService, &info));
    EXPECT_EQ(info.description, "energy consumption service plugin");
    EXPECT_NE(info.user_data, nullptr);
    EXPECT_TRUE(Logged(DLOG_INFO, kTag, "Energy Consumption Plugin Init"));

    // Each request callback answers with "NOT USED" from its own function.
    ASSERT_TRUE(wexfhost::FireGetRequest(kService));
    ASSERT_TRUE(wexfhost::FireSetRequest(kService));
    ASSERT_TRUE(wexfhost::FireCancelRequest(kService));
    std::vector<std::string> not_used;
    for (const auto& line : tvsim::LinesSince(mark_)) {
        if (line.Message() == "NOT USED") {
            EXPECT_EQ(line.priority, DLOG_INFO);
            not_used.push_back(line.text);
        }
    }
    ASSERT_EQ(not_used.size(), 3u);
    EXPECT_NE(not_used[0].find(" : getRequestCallback("), std::string::npos) << not_used[0];
    EXPECT_NE(not_used[1].find(" : setRequestCallback("), std::string::npos) << not_used[1];
    EXPECT_NE(not_used[2].find(" : cancelRequestCallback("), std::string::npos) << not_used[2];
    EXPECT_EQ(wexfhost::NotificationCount(), 0u);

    // The first one is the status callback: it logs every report at ERROR.
    ASSERT_TRUE(Ready(2));
    EXPECT_TRUE(Logged(DLOG_ERROR, kTag, "protocol name[corvane], protocol status[2]"));
    EXPECT_TRUE(Logged(DLOG_INFO, kTag, "corvane protocol is ready"));
    EXPECT_EQ(Destroy(), 1);
}

class ReadyStatusTest : public PluginTest, public ::testing::WithParamInterface<int> {};

TEST_P(ReadyStatusTest, EveryNinetyOneTurnsOneReportCarriesTheRunningTotal) {
    ASSERT_EQ(Create(), 1);
    ASSERT_TRUE(Ready(GetParam()));
    // 45 turns at one picture level, then the set changes: 46 more turns at another.
    RunTo(440);
    SetRegisters(300, 2160);
    RunTo(890);
    EXPECT_EQ(wexfhost::NotificationCount(), 0u);
    RunTo(900);

    double first = 0.0;
    for (int turn = 0; turn < 91; ++turn) {
        first += TurnEnergy(turn < 45 ? Watts(row_, kAna, 1080) : Watts(row_, 300, 2160));
    }
    const std::string expected_first = Report(first, kStart);
    ASSERT_EQ(Reports(), std::vector<std::string>{expected_first});
    EXPECT_TRUE(Logged(DLOG_INFO, kTag, "[Energy] !!! UPLOAD NOW"));
    EXPECT_TRUE(Logged(DLOG_INFO, kTag, "notify " + expected_first));

    // The next report covers the following 91 turns, from the turn after the upload.
    RunTo(1800);
    EXPECT_EQ(wexfhost::NotificationCount(), 1u);
    RunTo(1810);
    double second = 0.0;
    for (int turn = 0; turn < 91; ++turn) {
        second += TurnEnergy(Watts(row_, 300, 2160));
    }
    EXPECT_EQ(Reports(), (std::vector<std::string>{expected_first, Report(second, kStart + 910)}));
    EXPECT_EQ(TurnNumbers().size(), 182u);
    EXPECT_EQ(CountLogged(DLOG_INFO, kTag, "[Energy] !!! UPLOAD NOW"), 2u);
    EXPECT_EQ(Destroy(), 1);
}

INSTANTIATE_TEST_SUITE_P(ConnectedAndReady, ReadyStatusTest, ::testing::Values(0, 2));

TEST_F(PluginPathTest, DestroyStopsTheMeterBeforeItDestroysTheService) {
    uint64_t destroyed_at = 0;
    wexfhost::SetEventObserver([&](const wexfhost::Event& event) {
        if (event.kind == Kind::kServiceDestroyed) {
            destroyed_at = tvsim::LogMark();
        }
    });
    ASSERT_EQ(Create(), 1);
    ASSERT_TRUE(Ready());
    RunTo(30);
    ASSERT_EQ(Destroy(), 1);
    wexfhost::SetEventObserver(nullptr);

    const auto events = wexfhost::Events();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].kind, Kind::kServiceCreated);
    EXPECT_EQ(events[1].kind, Kind::kServiceDestroyed);
    EXPECT_EQ(events[1].service, kService);
    EXPECT_FALSE(wexfhost::FindService(kService, nullptr));

    uint64_t deinit = 0, stop = 0, joined = 0;
    for (const auto& line : tvsim::LinesSince(mark_)) {
        const std::string message = line.Message();
        if (message == "Energy Consumption Plugin Deinit") {
            deinit = line.seq;
        } else if (message == "[Energy] Stop!!!!") {
            stop = line.seq;
        } else if (message.rfind("[Energy] elaspsed time to terminate PowerMeter thread ", 0) ==
                   0) {
            joined = line.seq;
        }
    }
    ASSERT_NE(joined, 0u);
    EXPECT_LT(deinit, stop);
    EXPECT_LT(stop, joined);
    EXPECT_LT(joined, destroyed_at);
    // The worker is gone: nothing waits any more.
    EXPECT_EQ(vclock::ParkedCount(), 0);
    EXPECT_EQ(TurnNumbers().size(), 4u);
}

}  // namespace
}  // namespace enginetest
