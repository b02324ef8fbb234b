#include "model/switch/tap.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "packets.h"

namespace jxmodel {
namespace {

using namespace test;
using testing::IsEmpty;
using testing::SizeIs;

constexpr std::chrono::milliseconds kPatience{240'000};

TEST(Tap, WantsWhatPassesItsPortInItsDirection) {
  EXPECT_TRUE(Tap(1, TapDirection::kBoth).wants(1, true));
  EXPECT_TRUE(Tap(1, TapDirection::kBoth).wants(1, false));
  EXPECT_FALSE(Tap(1, TapDirection::kBoth).wants(2, false));
  EXPECT_TRUE(Tap(1, TapDirection::kIn).wants(1, false));
  EXPECT_FALSE(Tap(1, TapDirection::kIn).wants(1, true));
  EXPECT_TRUE(Tap(1, TapDirection::kOut).wants(1, true));
  EXPECT_FALSE(Tap(1, TapDirection::kOut).wants(1, false));
}

TEST(Tap, HandsOverCopiesInOrder) {
  Tap sut(1, TapDirection::kBoth);
  PacketBuffer packet = packetOf(frameOf(1), 17);
  sut.put(packet, false);
  packet.data()[20] = 2;
  sut.put(packet, true);
  const Tap::Harvest harvest = sut.take(kPatience);
  ASSERT_THAT(harvest.packets, SizeIs(2));
  EXPECT_EQ(bytesOf(harvest.packets[0].packet), frameOf(1));
  EXPECT_EQ(harvest.packets[0].packet.timeNs(), 17);
  EXPECT_FALSE(harvest.packets[0].leaving);
  EXPECT_EQ(harvest.packets[1].packet.data()[20], 2);
  EXPECT_TRUE(harvest.packets[1].leaving);
  EXPECT_FALSE(harvest.ended);
  EXPECT_EQ(harvest.lost, 0U);
}

TEST(Tap, CountsWhatFindsTheQueueFullAndGoesOnAfterwards) {
  Tap sut(1, TapDirection::kBoth);
  const PacketBuffer big = packetOf(frameOf(1, 1 << 20));
  for (int i = 0; i < 100; ++i) sut.put(big, false);
  const Tap::Harvest first = sut.take(kPatience);
  EXPECT_GT(first.packets.size(), 50U);
  EXPECT_EQ(first.packets.size() + first.lost, 100U);
  EXPECT_GT(first.lost, 0U);
  sut.put(big, false);
  const Tap::Harvest next = sut.take(kPatience);
  EXPECT_THAT(next.packets, SizeIs(1));
  EXPECT_EQ(next.lost, first.lost);
}

TEST(Tap, WakesWhoWaitsWhenItEnds) {
  Tap sut(1, TapDirection::kBoth);
  std::thread waiting([&sut] {
    const Tap::Harvest harvest = sut.take(kPatience);
    EXPECT_TRUE(harvest.ended);
    EXPECT_THAT(harvest.packets, IsEmpty());
  });
  sut.end();
  waiting.join();
}

}  // namespace
}  // namespace jxmodel
