// Token buckets against arithmetic.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "model/machine/meters.h"

namespace jxmodel {
namespace {

constexpr uint64_t kSecond = 1'000'000'000;

MachineSettings::Rates rates(double committed, uint64_t committed_burst, double peak,
                             uint64_t peak_burst) {
  return {{committed, committed_burst}, {peak, peak_burst}};
}

std::string coloursOf(MeterArray& sut, int packets, uint32_t bytes, uint64_t now) {
  std::string colours;
  for (int i = 0; i < packets; ++i) {
    colours += "gyr"[static_cast<size_t>(sut.execute(0, bytes, now))];
  }
  return colours;
}

TEST(Meter, IsGreenWithoutRates) {
  MeterArray sut(2, true);
  EXPECT_EQ(coloursOf(sut, 3, 1'000'000, 0), "ggg");
  sut.setRates(1, rates(0, 0, 0, 0));
  EXPECT_EQ(coloursOf(sut, 3, 1'000'000, 0), "ggg");
}

TEST(Meter, EmptiesItsBurstsAndFillsThemWithTime) {
  MeterArray sut(1, false);
  sut.setRates(0, rates(1, 2, 2, 4));
  // Both are full: 2 are within the committed burst, 2 more within the peak burst.
  EXPECT_EQ(coloursOf(sut, 6, 100, kSecond), "ggyyrr");
  // A second later: 1 token committed, 2 peak.
  EXPECT_EQ(coloursOf(sut, 4, 100, 2 * kSecond), "gyrr");
  // Bursts are the most that waits.
  EXPECT_EQ(coloursOf(sut, 6, 100, 1000 * kSecond), "ggyyrr");
}

TEST(Meter, CountsBytesWhereItCountsBytes) {
  MeterArray sut(1, true);
  sut.setRates(0, rates(1000, 150, 1000, 250));
  EXPECT_EQ(coloursOf(sut, 4, 100, kSecond), "gyrr");
  EXPECT_EQ(coloursOf(sut, 1, 50, kSecond), "g");  // what was left of both buckets
  EXPECT_EQ(coloursOf(sut, 2, 100, kSecond + kSecond / 10), "gr");
}

TEST(Meter, TakesNothingForWhoOnlyAsks) {
  MeterArray sut(1, false);
  sut.setRates(0, rates(1, 1, 1, 1));
  EXPECT_EQ(sut.ask(0, 100, 0), Colour::kGreen);
  EXPECT_EQ(sut.ask(0, 100, 0), Colour::kGreen);
  EXPECT_EQ(coloursOf(sut, 2, 100, 0), "gr");
  EXPECT_EQ(sut.ask(0, 100, 0), Colour::kRed);
}

TEST(Meter, IsFullAgainWithNewRates) {
  MeterArray sut(2, false);
  sut.setAllRates(rates(0, 1, 0, 1));
  EXPECT_EQ(coloursOf(sut, 2, 1, 0), "gr");
  EXPECT_EQ(sut.execute(1, 1, 0), Colour::kGreen);
  sut.setRates(0, rates(0, 1, 0, 1));
  EXPECT_EQ(coloursOf(sut, 2, 1, 0), "gr");
  sut.setRates(0, std::nullopt);
  EXPECT_EQ(coloursOf(sut, 2, 1, 0), "gg");
  EXPECT_EQ(sut.execute(1, 1, 0), Colour::kRed);
}

// Over a long time, no more is green than the committed rate and burst allow, and hardly less.
TEST(Meter, LetsTheRatesThrough) {
  MeterArray sut(1, false);
  sut.setRates(0, rates(100, 10, 300, 30));
  uint64_t green = 0, yellow = 0;
  for (uint64_t i = 0; i < 10'000; ++i) {  // 1000 a second for 10 seconds
    const Colour colour = sut.execute(0, 64, i * kSecond / 1000);
    green += colour == Colour::kGreen ? 1U : 0U;
    yellow += colour == Colour::kYellow ? 1U : 0U;
  }
  EXPECT_GE(green, 1008U);
  EXPECT_LE(green, 1010U);
  EXPECT_GE(green + yellow, 3028U);
  EXPECT_LE(green + yellow, 3030U);
}

}  // namespace
}  // namespace jxmodel
