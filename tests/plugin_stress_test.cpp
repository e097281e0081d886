// Creating and destroying the plug-in over and over while the framework reports protocol
// status changes from another thread. Run under the tsan preset to check the locking.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "EngineFixture.h"

namespace enginetest {
namespace {

using Kind = wexfhost::Event::Kind;

TEST_F(PluginTest, ThousandCreateDestroyCyclesWhileStatusReportsArrive) {
    tvsim::SetLogRetention(1000);
    std::atomic<long> uploads{0};
    tvsim::SetLogObserver([&](const tvsim::LogLine& line) {
        if (line.Message() == "[Energy] !!! UPLOAD NOW") {
            ++uploads;
        }
    });
    vclock::ClearLimit();  // the worker runs its turns as fast as it can
    std::atomic<bool> done{false};
    std::atomic<long> reports{0};
    std::thread reporter([&] {
        for (int i = 0; !done.load(); ++i) {
            reports += Status("corvane", i % 4) ? 1 : 0;
            Status("other", 1);
            std::this_thread::yield();
        }
    });
    constexpr int kCycles = 1000;
    for (int i = 0; i < kCycles; ++i) {
        // Every 25th worker runs 101 turns, so that it uploads while status reports arrive.
        const bool long_run = i % 25 == 0;
        if (long_run) {
            vclock::SetLimitSeconds(vclock::NowSeconds() + 1000);
        }
        ASSERT_EQ(Create(true), 1);
        if (long_run) {
            ASSERT_TRUE(vclock::WaitUntilParked());
        }
        ASSERT_EQ(Destroy(), 1);
        if (long_run) {
            vclock::ClearLimit();
        }
    }
    done = true;
    reporter.join();

    const auto events = wexfhost::Events();
    size_t created = 0, destroyed = 0;
    for (size_t i = 0; i < events.size(); ++i) {
        if (events[i].kind == Kind::kServiceCreated) {
            EXPECT_EQ(created, destroyed) << "at event " << i;
            ++created;
        } else if (events[i].kind == Kind::kServiceDestroyed) {
            ++destroyed;
            EXPECT_EQ(created, destroyed) << "at event " << i;
        }
    }
    EXPECT_EQ(created, static_cast<size_t>(kCycles));
    EXPECT_EQ(destroyed, static_cast<size_t>(kCycles));
    EXPECT_TRUE(wexfhost::Services().empty());
    EXPECT_EQ(vclock::ParkedCount(), 0);
    EXPECT_GT(reports.load(), 0);
    tvsim::SetLogObserver(nullptr);
    EXPECT_GE(uploads.load(), kCycles / 25);
}

}  // namespace
}  // namespace enginetest
