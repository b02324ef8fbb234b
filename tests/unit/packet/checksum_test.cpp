#include "model/packet/checksum.h"

#include <gtest/gtest.h>

#include <random>

#include "frames.h"

namespace jxmodel {
namespace {

using namespace frames;  // NOLINT: the vocabulary of these tests

TEST(Checksum, OfTheExampleOfItsDescription) {
  const Bytes bytes = {0x00, 0x01, 0xF2, 0x03, 0xF4, 0xF5, 0xF6, 0xF7};  // RFC 1071, section 3
  EXPECT_EQ(foldSum(addWords(bytes.data(), bytes.size())), 0xDDF2);
  EXPECT_EQ(checksumOf(bytes.data(), bytes.size()), 0x220D);
}

TEST(Checksum, OfNothingIsAllOnes) { EXPECT_EQ(checksumOf(nullptr, 0), 0xFFFF); }

TEST(Checksum, AgreesWithAddingWordByWord) {
  std::mt19937 random(7);
  for (size_t size = 0; size < 300; ++size) {
    Bytes bytes(size);
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random() % 5 == 0 ? 0xFF : random());
    EXPECT_EQ(checksumOf(bytes.data(), size), plainChecksum(bytes)) << size;
  }
}

TEST(Checksum, OfParts) {
  const Bytes bytes = {1, 2, 3, 4, 5, 6, 7, 8, 9};
  const uint64_t begin = addWords(bytes.data(), 6);
  EXPECT_EQ(addWords(bytes.data() + 6, 3, begin), addWords(bytes.data(), 9));
}

TEST(Checksum, OfLargeDataLosesNoCarry) {
  const Bytes bytes(1 << 20, 0xFF);
  EXPECT_EQ(checksumOf(bytes.data(), bytes.size()), 0);
}

TEST(AdjustChecksum, AgreesWithStartingAgain) {
  std::mt19937 random(11);
  for (int round = 0; round < 20000; ++round) {
    Bytes bytes(2 + random() % 30 * 2);
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random() % 3 == 0 ? 0xFF : random());
    bytes[0] |= 1;  // words that are not all 0 have one form of each sum
    const uint16_t old = plainChecksum(bytes);
    const size_t at = random() % (bytes.size() / 2) * 2;
    const uint64_t before = word(bytes, at);
    setWord(&bytes, at, static_cast<uint16_t>(at == 0 ? random() | 0x0100 : random()));
    ASSERT_EQ(adjustChecksum(old, before, word(bytes, at)), plainChecksum(bytes)) << round;
  }
}

TEST(AdjustChecksum, OfTheExampleThatTheOlderFormulaGotWrong) {
  EXPECT_EQ(adjustChecksum(0xDD2F, 0x5555, 0x3285), 0x0000);  // RFC 1624, section 4
}

TEST(WholeChecksum, OfEachKindOfFrame) {
  for (const size_t size : {0U, 1U, 2U, 77U, 1400U}) {
    for (const Sample& sample : samples(Bytes(size, 0xC3))) {
      SCOPED_TRACE(sample.name);
      Headers headers;
      ASSERT_EQ(parse(sample.frame.data(), sample.frame.size(), &headers), ParseStatus::kOk);
      const auto ip = ipv4ChecksumOf(sample.frame.data(), headers);
      ASSERT_EQ(ip.has_value(), headers.has(Header::kIpv4));
      if (ip) {
        EXPECT_EQ(*ip, word(sample.frame, sample.ip + 10));
      }

      const auto l4 = l4ChecksumOf(sample.frame.data(), headers);
      const auto place = l4ChecksumOffset(headers);
      ASSERT_EQ(l4.has_value(), sample.l4 != 0);
      ASSERT_EQ(place.has_value(), sample.l4 != 0);
      if (!l4) continue;
      EXPECT_EQ(*place, sample.l4 + checksumPlace(sample.protocol));
      EXPECT_EQ(*l4, word(sample.frame, *place));
    }
  }
}

TEST(WholeChecksum, DoesNotCoverPadding) {
  Sample sample = samples({1, 2, 3}).at(5);
  ASSERT_EQ(sample.name, "ipv4 udp");
  const uint16_t right = word(sample.frame, 40);
  sample.frame.insert(sample.frame.end(), 20, 0xFF);
  Headers headers;
  ASSERT_EQ(parse(sample.frame.data(), sample.frame.size(), &headers), ParseStatus::kOk);
  EXPECT_EQ(l4ChecksumOf(sample.frame.data(), headers), right);
}

TEST(WholeChecksum, IsNotKnownWhereTheFrameLacksAPartOfWhatItCovers) {
  const auto known = [](const Bytes& frame) {
    Headers headers;
    EXPECT_EQ(parse(frame.data(), frame.size(), &headers), ParseStatus::kOk);
    EXPECT_TRUE(l4ChecksumOffset(headers).has_value());
    return l4ChecksumOf(frame.data(), headers).has_value();
  };
  EXPECT_FALSE(known(ethernet(kIpv4Type, ipv4(kTcp, tcp({}), {}, 0x2000))));
  EXPECT_FALSE(known(ethernet(kIpv4Type, ipv4(kTcp, tcp({}), {131, 7, 4, 10, 0, 0, 1, 0}))));
  EXPECT_FALSE(known(ethernet(kIpv6Type, ipv6(kRouting, routing(kTcp, 1, tcp({}))))));
  EXPECT_TRUE(known(ethernet(kIpv6Type, ipv6(kRouting, routing(kTcp, 0, tcp({}))))));
}

}  // namespace
}  // namespace jxmodel
