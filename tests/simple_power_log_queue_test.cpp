// The running-total queue: upload timing, the report text and the log lines.
#include "SimplePowerLogQueue.h"
#include "TestSupport.h"

using testsupport::SimTest;

namespace {

constexpr const char kEnergy[] = "ENERGY_SERVICE";
constexpr const char kRule[] =
    "====================================================================================";
// 2021-01-01 00:00:00 UTC.
constexpr unsigned long kT0 = 1609459200ul;

class SimplePowerLogQueueTest : public SimTest {
  protected:
    powermeter::SimplePowerLogQueue queue;
    powermeter::IPowerLogQueue& log = queue;
};

TEST_F(SimplePowerLogQueueTest, UploadIsDueNineHundredSecondsAfterTheFirstInterval) {
    log.Init();
    // 90 intervals span only 890 s between the first and the latest time stamp.
    for (int i = 0; i < 90; ++i) {
        log.Add(kT0 + 10ul * i, 0.5, 10);
        ASSERT_FALSE(log.IsUploadRequired()) << "interval " << i;
    }
    log.Add(kT0 + 900, 0.5, 10);
    EXPECT_TRUE(log.IsUploadRequired());
    // 91 intervals of 0.5 Wh; both numbers travel as strings.
    EXPECT_EQ(log.GetJson(),
              "{\"cumulativePower\":\"45.500000\",\"cumulativeUnit\":\"Wh\","
              "\"cumulativeDateUTC\":\"1609459200\"}");

    // Reset empties the total but keeps the 900 s threshold.
    log.Reset();
    EXPECT_FALSE(log.IsUploadRequired());
    log.Add(kT0 + 2000, 1.0, 10);
    log.Add(kT0 + 2899, 1.0, 10);
    EXPECT_FALSE(log.IsUploadRequired());
    log.Add(kT0 + 2900, 1.0, 10);
    EXPECT_TRUE(log.IsUploadRequired());
    EXPECT_EQ(log.GetJson(),
              "{\"cumulativePower\":\"3.000000\",\"cumulativeUnit\":\"Wh\","
              "\"cumulativeDateUTC\":\"1609461200\"}");
}

TEST_F(SimplePowerLogQueueTest, EmptyQueueReportsZeroAndLogsOneLine) {
    log.Init();
    EXPECT_FALSE(log.IsUploadRequired());
    EXPECT_EQ(log.GetJson(),
              "{\"cumulativePower\":\"0.000000\",\"cumulativeUnit\":\"Wh\","
              "\"cumulativeDateUTC\":\"0\"}");
    log.Print();
    EXPECT_EQ(Messages(kEnergy),
              std::vector<std::string>{"[Energy] There is no accumulated power"});
}

TEST_F(SimplePowerLogQueueTest, PrintShowsTotalAndBothTimes) {
    log.Init();
    log.Add(kT0, 0.25, 10);
    log.Add(kT0 + 3723, 1.125, 10);  // 01:02:03
    log.Print();
    EXPECT_EQ(Messages(kEnergy), (std::vector<std::string>{
                                     kRule,
                                     "[Energy] Current Time:  UTC: 2021-1-1 1:2:3",
                                     "[Energy] Accumulated power : 1.375000",
                                     "[Energy]      From Time:  UTC: 2021-1-1 0:0:0",
                                     kRule,
                                 }));
}

TEST_F(SimplePowerLogQueueTest, ZeroTimeStampDoesNotStartTheTotal) {
    log.Init();
    log.Add(0, 2.0, 10);
    log.Add(kT0, 3.0, 10);
    // The energy of the zero-stamped interval counts; the start comes from the next one.
    EXPECT_EQ(log.GetJson(),
              "{\"cumulativePower\":\"5.000000\",\"cumulativeUnit\":\"Wh\","
              "\"cumulativeDateUTC\":\"1609459200\"}");
    EXPECT_FALSE(log.IsUploadRequired());
}

TEST_F(SimplePowerLogQueueTest, ClockRunningBackwardsMakesUploadDueAtOnce) {
    log.Init();
    log.Add(kT0, 1.0, 10);
    log.Add(kT0 - 1, 1.0, 10);
    EXPECT_TRUE(log.IsUploadRequired());
}

TEST_F(SimplePowerLogQueueTest, SpanIsComputedInThirtyTwoBits) {
    log.Init();
    // A 64-bit argument is cut to 32 bits, as every time stamp of the system.
    log.Add(0x1'0000'0010ul, 1.0, 10);
    EXPECT_EQ(log.GetJson(),
              "{\"cumulativePower\":\"1.000000\",\"cumulativeUnit\":\"Wh\","
              "\"cumulativeDateUTC\":\"16\"}");
    // Across the 32-bit wrap, 0xFFFFFF00 -> 0x00000284 is a span of 900 s.
    log.Reset();
    log.Add(0xFFFFFF00ul, 1.0, 10);
    log.Add(0x283ul, 1.0, 10);
    EXPECT_FALSE(log.IsUploadRequired());
    log.Add(0x284ul, 1.0, 10);
    EXPECT_TRUE(log.IsUploadRequired());
}

TEST_F(SimplePowerLogQueueTest, InitForgetsWhatWasCollected) {
    log.Add(kT0, 4.0, 10);
    log.Init();
    log.Print();
    EXPECT_TRUE(Logged(DLOG_INFO, kEnergy, "[Energy] There is no accumulated power"));
}

}  // namespace
