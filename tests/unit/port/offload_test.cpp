#include "model/port/offload.h"

#include <gtest/gtest.h>

#include "model/packet/bytes.h"
#include "model/packet/checksum.h"
#include "packets.h"

namespace jxmodel {
namespace {

using namespace test;

struct Made {
  Bytes bytes;
  size_t ip;
  size_t l4;
};

void put16(Bytes* to, size_t value) {
  to->push_back(static_cast<uint8_t>(value >> 8));
  to->push_back(static_cast<uint8_t>(value));
}

/// Ethernet, IPv4 or IPv6, TCP or UDP, `payload` counting bytes; checksums are not there.
Made frame(bool ipv6, bool tcp, size_t payload) {
  Made made;
  Bytes& bytes = made.bytes;
  bytes.assign(12, 2);
  const size_t l4_size = (tcp ? 32 : 8) + payload;
  made.ip = 14;
  const auto protocol = static_cast<uint8_t>(tcp ? 6 : 17);
  if (ipv6) {
    put16(&bytes, 0x86dd);
    bytes.insert(bytes.end(), {0x60, 0, 0, 0});
    put16(&bytes, l4_size);
    bytes.insert(bytes.end(), {protocol, 64});
    for (int i = 0; i < 32; ++i) bytes.push_back(static_cast<uint8_t>(0x20 + i));
  } else {
    put16(&bytes, 0x0800);
    bytes.insert(bytes.end(), {0x45, 0});
    put16(&bytes, 20 + l4_size);
    bytes.insert(bytes.end(), {0xff, 0xff, 0x40, 0, 64, protocol, 0, 0});
    bytes.insert(bytes.end(), {10, 0, 0, 1, 10, 0, 0, 2});
  }
  made.l4 = bytes.size();
  bytes.insert(bytes.end(), {0x30, 0x39, 0x01, 0xbb});
  if (tcp) {
    bytes.insert(bytes.end(), {0xff, 0xff, 0xff, 0x00, 0, 0, 0, 1});  // the sequence wraps
    bytes.insert(bytes.end(), {0x80, 0x99, 1, 0, 0, 0, 0, 0});        // CWR, ACK, PSH, FIN
    bytes.insert(bytes.end(), {1, 1, 8, 10, 0, 0, 0, 1, 0, 0, 0, 2});
  } else {
    put16(&bytes, l4_size);
    put16(&bytes, 0);
  }
  for (size_t i = 0; i < payload; ++i) bytes.push_back(static_cast<uint8_t>(i * 7 + i / 256));
  return made;
}

std::vector<PacketBuffer> finish(const OffloadHeader& left, const Bytes& bytes, bool* done) {
  std::vector<PacketBuffer> packets;
  *done = finishOffloads(left, bytes.data(), bytes.size(),
                         [&](PacketBuffer&& packet) { packets.push_back(std::move(packet)); });
  return packets;
}

void expectRightChecksums(const PacketBuffer& packet) {
  Headers headers;
  ASSERT_EQ(parse(packet.data(), packet.size(), &headers), ParseStatus::kOk);
  if (headers.has(Header::kIpv4)) {
    EXPECT_EQ(checksumOf(packet.data() + headers.at(Header::kIpv4), 20), 0);
  }
  // The sum over pseudo header and datagram, checksum included, is 0xffff when it is right.
  const bool ipv4 = headers.has(Header::kIpv4);
  const size_t l4 = headers.at(Header::kL4);
  const size_t size = packet.size() - l4;
  uint64_t sum = ipv4 ? addWords(packet.data() + headers.at(Header::kIpv4) + 12, 8)
                      : addWords(packet.data() + headers.at(Header::kIpv6) + 8, 32);
  sum += size + (headers.has(Header::kTcp) ? 6 : 17);
  EXPECT_EQ(foldSum(addWords(packet.data() + l4, size, sum)), 0xffff);
}

TEST(Offload, AFrameWithNothingLeftIsHandedOnAsItIs) {
  bool done = false;
  const auto packets = finish({}, frameOf(5), &done);
  EXPECT_TRUE(done);
  ASSERT_EQ(packets.size(), 1U);
  EXPECT_EQ(bytesOf(packets[0]), frameOf(5));
}

TEST(Offload, CutsTrainsIntoTheSegmentsThatAWireWouldCarry) {
  for (const bool ipv6 : {false, true}) {
    for (const bool tcp : {false, true}) {
      constexpr size_t kPayload = 3500;
      constexpr size_t kSegment = 1000;
      const Made made = frame(ipv6, tcp, kPayload);
      OffloadHeader left{};
      left.flags = OffloadHeader::kNeedsChecksum;
      left.train = !tcp ? kTrainUdp : ipv6 ? kTrainTcp6 : kTrainTcp4;
      left.segment_size = kSegment;
      bool done = false;
      const auto packets = finish(left, made.bytes, &done);
      ASSERT_TRUE(done);
      ASSERT_EQ(packets.size(), 4U);
      const size_t headers_size = made.l4 + (tcp ? 32 : 8);
      Bytes payload;
      for (size_t i = 0; i < packets.size(); ++i) {
        const uint8_t* const data = packets[i].data();
        const bool last = i == 3;
        EXPECT_EQ(packets[i].size(), headers_size + (last ? 500 : kSegment));
        expectRightChecksums(packets[i]);
        if (!ipv6) {
          EXPECT_EQ(read16(data + made.ip + 4), static_cast<uint16_t>(0xffff + i));
        }
        if (tcp) {
          EXPECT_EQ(read32(data + made.l4 + 4), static_cast<uint32_t>(0xffffff00 + i * kSegment));
          const int flags = 0x10 | (i == 0 ? 0x80 : 0) | (last ? 0x09 : 0);
          EXPECT_EQ(data[made.l4 + 13], flags) << i;
        }
        payload.insert(payload.end(), data + headers_size, data + packets[i].size());
      }
      EXPECT_EQ(payload, Bytes(made.bytes.end() - kPayload, made.bytes.end()));
    }
  }
}

TEST(Offload, FinishesAChecksumFromTheSumOfThePseudoHeader) {
  for (const bool tcp : {false, true}) {
    Made made = frame(false, tcp, 333);
    const size_t ip_sum = made.ip + 10;
    const uint16_t ip_checksum = checksumOf(made.bytes.data() + made.ip, 20);
    write16(made.bytes.data() + ip_sum, ip_checksum);
    const size_t size = made.bytes.size() - made.l4;
    const uint64_t pseudo = addWords(made.bytes.data() + made.ip + 12, 8) + (tcp ? 6 : 17) + size;
    OffloadHeader left{};
    left.flags = OffloadHeader::kNeedsChecksum;
    left.checksum_start = static_cast<uint16_t>(made.l4);
    left.checksum_offset = tcp ? 16 : 6;
    write16(made.bytes.data() + made.l4 + left.checksum_offset, foldSum(pseudo));
    bool done = false;
    const auto packets = finish(left, made.bytes, &done);
    ASSERT_TRUE(done);
    ASSERT_EQ(packets.size(), 1U);
    expectRightChecksums(packets[0]);
  }
}

TEST(Offload, RefusesWhatDoesNotFitToTheFrame) {
  bool done = true;
  OffloadHeader outside{};
  outside.flags = OffloadHeader::kNeedsChecksum;
  outside.checksum_start = 58;
  outside.checksum_offset = 1;
  EXPECT_TRUE(finish(outside, frameOf(1), &done).empty());
  EXPECT_FALSE(done);

  OffloadHeader train{};
  train.train = kTrainTcp4;
  train.segment_size = 100;
  EXPECT_TRUE(finish(train, frameOf(1), &done).empty()) << "no TCP";
  EXPECT_FALSE(done);
  EXPECT_TRUE(finish(train, frame(false, true, 0).bytes, &done).empty()) << "no payload";
  EXPECT_FALSE(done);
  train.segment_size = 0;
  EXPECT_TRUE(finish(train, frame(false, true, 10).bytes, &done).empty()) << "no segment size";
  EXPECT_FALSE(done);
  train.segment_size = 100;
  train.train = 3;
  EXPECT_TRUE(finish(train, frame(false, false, 500).bytes, &done).empty()) << "unknown train";
  EXPECT_FALSE(done);
  train.train = kTrainTcp6;
  Made routed = frame(true, true, 500);
  const Bytes one_stop_left{6, 0, 4, 1, 0, 0, 0, 0};
  routed.bytes.insert(routed.bytes.begin() + routed.l4, one_stop_left.begin(), one_stop_left.end());
  write16(routed.bytes.data() + routed.ip + 4, static_cast<uint16_t>(32 + 500 + 8));
  routed.bytes[routed.ip + 6] = 43;
  EXPECT_TRUE(finish(train, routed.bytes, &done).empty()) << "source routing";
  EXPECT_FALSE(done);
  routed.bytes[routed.l4 + 3] = 0;  // the last stop
  EXPECT_EQ(finish(train, routed.bytes, &done).size(), 5U);
}

TEST(Offload, PutsAVlanTagBackBehindTheAddresses) {
  const Bytes before = frameOf(3);
  PacketBuffer packet = packetOf(before);
  insertVlanTag(0x88a8, 0x6123, &packet);
  Bytes expected = before;
  expected.insert(expected.begin() + 12, {0x88, 0xa8, 0x61, 0x23});
  EXPECT_EQ(bytesOf(packet), expected);
  EXPECT_EQ(packet.wireLength(), expected.size());
}

}  // namespace
}  // namespace jxmodel
