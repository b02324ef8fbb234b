#include "model/packet/fields.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>
#include <string>

#include "frames.h"
#include "model/packet/checksum.h"

namespace jxmodel {
namespace {

using namespace frames;  // NOLINT: the vocabulary of these tests

// A frame of its own with the view on it.
struct Packet {
  explicit Packet(Bytes frame) : bytes(std::move(frame)) {
    view.data = bytes.data();
    view.size = static_cast<uint32_t>(bytes.size());
    status = parse(view.data, view.size, &view.headers);
  }
  Packet(const Packet&) = delete;
  Packet& operator=(const Packet&) = delete;

  Bytes get(FieldId field) const {
    Bytes value((fieldWidth(field) + 7) / 8, 0xEE);
    load(field, view, value.data());
    return value;
  }
  bool set(FieldId field, const Bytes& value) { return store(field, view, value.data()); }

  Bytes bytes;
  PacketView view;
  ParseStatus status;
};

FieldId fieldNamed(const std::string& name) {
  const auto found = findField(name);
  EXPECT_TRUE(found.has_value()) << name;
  return found.value_or(FieldId::kEthernetDst);
}

std::vector<FieldId> allFields() {
  std::vector<FieldId> all;
  for (size_t i = 0; i < fieldCount(); ++i) all.push_back(static_cast<FieldId>(i));
  return all;
}

const Bytes kData = {1, 2, 3, 4, 5};

Bytes sampleNamed(const std::string& name) {
  for (const Sample& sample : samples(kData)) {
    if (sample.name == name) return sample.frame;
  }
  ADD_FAILURE() << "no sample '" << name << "'";
  return {};
}

TEST(Field, EachHasItsNameWidthHeaderAndRight) {
  struct Row {
    const char *name, *header;
    uint32_t width;
    bool writable;
  };
  const Row rows[] = {{"ethernet.dst", "ethernet", 48, true},
                      {"ethernet.src", "ethernet", 48, true},
                      {"ethernet.type", "ethernet", 16, false},
                      {"vlan.vid", "vlan", 12, true},
                      {"vlan.pcp", "vlan", 3, true},
                      {"vlan.dei", "vlan", 1, true},
                      {"vlan.type", "vlan", 16, false},
                      {"vlan1.vid", "vlan1", 12, true},
                      {"vlan1.pcp", "vlan1", 3, true},
                      {"vlan1.dei", "vlan1", 1, true},
                      {"vlan1.type", "vlan1", 16, false},
                      {"arp.op", "arp", 16, true},
                      {"arp.sha", "arp", 48, true},
                      {"arp.spa", "arp", 32, true},
                      {"arp.tha", "arp", 48, true},
                      {"arp.tpa", "arp", 32, true},
                      {"ipv4.src", "ipv4", 32, true},
                      {"ipv4.dst", "ipv4", 32, true},
                      {"ipv4.protocol", "ipv4", 8, false},
                      {"ipv4.ttl", "ipv4", 8, true},
                      {"ipv4.dscp", "ipv4", 6, true},
                      {"ipv4.ecn", "ipv4", 2, true},
                      {"ipv4.length", "ipv4", 16, false},
                      {"ipv4.id", "ipv4", 16, true},
                      {"ipv6.src", "ipv6", 128, true},
                      {"ipv6.dst", "ipv6", 128, true},
                      {"ipv6.next_header", "ipv6", 8, false},
                      {"ipv6.hop_limit", "ipv6", 8, true},
                      {"ipv6.traffic_class", "ipv6", 8, true},
                      {"ipv6.flow_label", "ipv6", 20, true},
                      {"ipv6.length", "ipv6", 16, false},
                      {"l4.sport", "l4", 16, true},
                      {"l4.dport", "l4", 16, true},
                      {"tcp.flags", "tcp", 8, true},
                      {"icmp.type", "icmp", 8, true},
                      {"icmp.code", "icmp", 8, true},
                      {"icmpv6.type", "icmpv6", 8, true},
                      {"icmpv6.code", "icmpv6", 8, true},
                      {"meta.ingress_port", "meta", 9, false},
                      {"meta.egress_port", "meta", 9, true},
                      {"meta.packet_length", "meta", 16, false}};
  for (const Row& row : rows) {
    const FieldId field = fieldNamed(row.name);
    EXPECT_EQ(fieldName(field), row.name);
    EXPECT_EQ(fieldWidth(field), row.width) << row.name;
    EXPECT_STREQ(nameOf(fieldHeader(field)), row.header) << row.name;
    EXPECT_EQ(fieldWritable(field), row.writable) << row.name;
  }
  EXPECT_EQ(std::size(rows), fieldCount());
}

TEST(Field, OtherNamesLeadToTheSameField) {
  EXPECT_EQ(findField("vlan.id"), FieldId::kVlanVid);
  EXPECT_EQ(findField("vlan1.id"), FieldId::kVlan1Vid);
}

TEST(Field, NamesOfNoFieldAreNotFound) {
  for (const char* name : {"", "ipv4", "ipv4.", "ipv4.foo", "IPV4.DST", "meta.next_hop", "dst"}) {
    EXPECT_EQ(findField(name), std::nullopt) << name;
  }
}

TEST(Load, GivesTheValueOfEachField) {
  struct Row {
    const char* sample;
    std::map<std::string, Bytes> values;
  };
  const Bytes one6 = {0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
  const Bytes two6 = {0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2};
  const Row rows[] = {
      {"arp",
       {{"ethernet.dst", {2, 3, 4, 5, 6, 7}},
        {"ethernet.src", {10, 11, 12, 13, 14, 15}},
        {"ethernet.type", {8, 6}},
        {"arp.op", {0, 1}},
        {"arp.sha", {10, 11, 12, 13, 14, 15}},
        {"arp.spa", {192, 0, 2, 1}},
        {"arp.tha", {0x21, 0x22, 0x23, 0x24, 0x25, 0x26}},
        {"arp.tpa", {192, 0, 2, 2}},
        {"meta.packet_length", {0, 42}}}},
      {"ipv4 tcp, options in both",
       {{"ethernet.type", {8, 0}},
        {"ipv4.dscp", {0x2E}},
        {"ipv4.ecn", {2}},
        {"ipv4.length", {0, 57}},
        {"ipv4.id", {0x12, 0x34}},
        {"ipv4.ttl", {64}},
        {"ipv4.protocol", {6}},
        {"ipv4.src", {192, 0, 2, 1}},
        {"ipv4.dst", {198, 51, 100, 2}},
        {"l4.sport", {0x12, 0x34}},
        {"l4.dport", {1, 0xBB}},
        {"tcp.flags", {0x12}}}},
      {"twice tagged ipv4 icmp",
       {{"ethernet.type", {0x88, 0xA8}},
        {"vlan.pcp", {1}},
        {"vlan.dei", {1}},
        {"vlan.vid", {0x0F, 0xFF}},
        {"vlan.type", {0x81, 0x00}},
        {"vlan1.pcp", {6}},
        {"vlan1.dei", {1}},
        {"vlan1.vid", {0, 1}},
        {"vlan1.type", {8, 0}},
        {"icmp.type", {8}},
        {"icmp.code", {0}}}},
      {"tagged ipv6 icmpv6",
       {{"vlan.pcp", {5}},
        {"vlan.dei", {0}},
        {"vlan.vid", {0, 0x64}},
        {"ipv6.traffic_class", {0xAB}},
        {"ipv6.flow_label", {0x0C, 0xDE, 0xF1}},
        {"ipv6.length", {0, 13}},
        {"ipv6.next_header", {58}},
        {"ipv6.hop_limit", {63}},
        {"ipv6.src", one6},
        {"ipv6.dst", two6},
        {"icmpv6.type", {128}},
        {"icmpv6.code", {0}}}},
      {"ipv6 udp", {{"l4.sport", {0x56, 0x78}}, {"l4.dport", {0, 53}}}},
  };
  std::set<std::string> loaded = {"meta.ingress_port", "meta.egress_port"};  // a test of their own
  for (const Row& row : rows) {
    const Packet sut(sampleNamed(row.sample));
    for (const auto& [name, value] : row.values) {
      EXPECT_EQ(sut.get(fieldNamed(name)), value) << row.sample << ": " << name;
      loaded.insert(name);
    }
  }
  EXPECT_EQ(loaded.size(), fieldCount());
}

TEST(Load, GivesWhatTheSwitchKnows) {
  Packet sut(ethernet(0x88CC, Bytes(70000, 0)));
  sut.view.ingress_port = 0x1A5;
  sut.view.egress_port = 3;
  EXPECT_EQ(sut.get(FieldId::kMetaIngressPort), (Bytes{1, 0xA5}));
  EXPECT_EQ(sut.get(FieldId::kMetaEgressPort), (Bytes{0, 3}));
  EXPECT_EQ(sut.get(FieldId::kMetaPacketLength), (Bytes{0xFF, 0xFF}));
  EXPECT_TRUE(sut.set(FieldId::kMetaEgressPort, {0xFF, 0xFE}));  // unused bits are ignored
  EXPECT_EQ(sut.get(FieldId::kMetaEgressPort), (Bytes{1, 0xFE}));
  EXPECT_FALSE(sut.set(FieldId::kMetaIngressPort, {0, 1}));
  EXPECT_EQ(sut.view.ingress_port, 0x1A5);
}

TEST(Field, OfAHeaderThatIsNotThereIsZeroAndCannotBeSet) {
  for (const Sample& sample : samples(kData)) {
    for (const FieldId field : allFields()) {
      Packet sut(sample.frame);
      if (sut.view.headers.has(fieldHeader(field))) continue;
      SCOPED_TRACE(sample.name + ": " + std::string(fieldName(field)));
      const Bytes value = sut.get(field);
      EXPECT_EQ(value, Bytes(value.size(), 0));
      EXPECT_FALSE(sut.set(field, Bytes(value.size(), 0xFF)));
      EXPECT_EQ(sut.bytes, sample.frame);
    }
  }
}

TEST(Store, RefusesFieldsThatSayHowThePacketIsLaidOut) {
  for (const Sample& sample : samples(kData)) {
    for (const FieldId field : allFields()) {
      if (fieldWritable(field)) continue;
      Packet sut(sample.frame);
      EXPECT_FALSE(sut.set(field, Bytes(kMaxFieldBytes, 0x5A))) << fieldName(field);
      EXPECT_EQ(sut.bytes, sample.frame) << fieldName(field);
    }
  }
}

// The bits of `value` that a field has.
Bytes narrowed(Bytes value, uint32_t width) {
  if (width % 8 != 0) value[0] &= static_cast<uint8_t>((1U << width % 8) - 1);
  return value;
}

Bytes randomBytes(std::mt19937* random, size_t size) {
  Bytes bytes(size);
  for (uint8_t& byte : bytes) byte = static_cast<uint8_t>((*random)());
  return bytes;
}

void expectRightChecksums(const Sample& sample, const Bytes& frame) {
  if (sample.ip != 0 && frame[sample.ip] >> 4 == 4) {
    EXPECT_EQ(word(frame, sample.ip + 10), plainIpv4Checksum(frame, sample.ip));
  }
  if (sample.l4 != 0) {
    EXPECT_EQ(word(frame, sample.l4 + checksumPlace(sample.protocol)),
              plainL4Checksum(frame, sample.ip, sample.protocol, sample.l4, frame.size()));
  }
}

// What load gives for every field of a packet.
std::map<FieldId, Bytes> valuesOf(const Packet& packet) {
  std::map<FieldId, Bytes> values;
  for (const FieldId field : allFields()) values[field] = packet.get(field);
  return values;
}

TEST(Store, ChangesOneFieldAndKeepsChecksumsRight) {
  std::mt19937 random(20240117);
  size_t stores = 0;
  for (int round = 0; round < 60; ++round) {
    for (const Sample& sample : samples(randomBytes(&random, random() % 90))) {
      SCOPED_TRACE(sample.name);
      Packet sut(sample.frame);
      ASSERT_EQ(sut.status, ParseStatus::kOk);
      expectRightChecksums(sample, sut.bytes);
      for (const FieldId field : allFields()) {
        if (!fieldWritable(field) || !sut.view.headers.has(fieldHeader(field))) continue;
        SCOPED_TRACE(std::string(fieldName(field)));
        auto expected = valuesOf(sut);
        const Bytes value = randomBytes(&random, (fieldWidth(field) + 7) / 8);
        ASSERT_TRUE(sut.set(field, value));
        expected[field] = narrowed(value, fieldWidth(field));
        EXPECT_EQ(valuesOf(sut), expected);
        expectRightChecksums(sample, sut.bytes);
        ++stores;
      }
    }
  }
  EXPECT_GT(stores, 60U * 80);
}

TEST(Store, SettingAFieldBackGivesTheSameBytes) {
  for (const Sample& sample : samples(kData)) {
    for (const FieldId field : allFields()) {
      Packet sut(sample.frame);
      const Bytes old = sut.get(field);
      if (!sut.set(field, Bytes(old.size(), 0xA5))) continue;
      ASSERT_TRUE(sut.set(field, old));
      EXPECT_EQ(sut.bytes, sample.frame) << sample.name << ": " << fieldName(field);
    }
  }
}

TEST(Store, ChangesNoByteWhereTheValueIsTheSame) {
  // A header whose checksum is written in the other form of 0.
  Bytes frame = ethernet(kIpv4Type, ipv4(89, {}));
  setWord(&frame, 24, 0xFFFF);
  Packet sut(frame);
  EXPECT_TRUE(sut.set(FieldId::kIpv4Ttl, sut.get(FieldId::kIpv4Ttl)));
  EXPECT_EQ(sut.bytes, frame);
}

TEST(Store, LeavesAUdpChecksumThatIsNotUsed) {
  Packet sut(ethernet(kIpv4Type, ipv4(kUdp, udp(kData))));  // 0: never filled in
  for (const FieldId field : {FieldId::kIpv4Src, FieldId::kIpv4Dst, FieldId::kL4Dport}) {
    ASSERT_TRUE(sut.set(field, {7, 8, 9, 10}));
    EXPECT_EQ(word(sut.bytes, 40), 0);
  }
}

TEST(Store, NeverMakesAUdpChecksumLookUnused) {
  Packet sut(sampleNamed("ipv4 udp"));
  int all_ones = 0;
  for (unsigned port = 0; port < 0x10000; ++port) {
    ASSERT_TRUE(
        sut.set(FieldId::kL4Sport, {static_cast<uint8_t>(port >> 8), static_cast<uint8_t>(port)}));
    ASSERT_NE(word(sut.bytes, 40), 0) << port;
    if (word(sut.bytes, 40) == 0xFFFF) ++all_ones;
  }
  EXPECT_GE(all_ones, 1);
}

TEST(Store, KeepsAWrongChecksumWrongByAsMuch) {
  Bytes frame = sampleNamed("ipv4 tcp");
  setWord(&frame, 50, static_cast<uint16_t>(word(frame, 50) ^ 0x0100));
  const int wrong_by = word(frame, 50) - plainL4Checksum(frame, 14, kTcp, 34, frame.size());
  Packet sut(frame);
  ASSERT_TRUE(sut.set(FieldId::kL4Dport, {0x12, 0x00}));
  const int now = word(sut.bytes, 50) - plainL4Checksum(sut.bytes, 14, kTcp, 34, frame.size());
  EXPECT_EQ((now - wrong_by) % 0xFFFF, 0);
  EXPECT_NE(now, 0);
}

TEST(Store, FragmentsPutTogetherAgainHaveARightChecksum) {
  const Bytes whole = sampleNamed("ipv4 udp");  // 13 bytes of UDP: 8 and 5
  const Bytes segment(whole.begin() + 34, whole.end());
  Packet first(
      ethernet(kIpv4Type, ipv4(kUdp, Bytes(segment.begin(), segment.begin() + 8), {}, 0x2000)));
  Packet later(
      ethernet(kIpv4Type, ipv4(kUdp, Bytes(segment.begin() + 8, segment.end()), {}, 0x0001)));
  for (Packet* fragment : {&first, &later}) {
    ASSERT_EQ(fragment->status, ParseStatus::kOk);
    ASSERT_TRUE(fragment->set(FieldId::kIpv4Src, {10, 20, 30, 40}));
    EXPECT_EQ(word(fragment->bytes, 24), plainIpv4Checksum(fragment->bytes, 14));
  }
  ASSERT_TRUE(first.set(FieldId::kL4Sport, {0xBE, 0xEF}));
  EXPECT_FALSE(later.set(FieldId::kL4Sport, {0xBE, 0xEF}));
  const Bytes together = join({first.bytes, Bytes(later.bytes.begin() + 34, later.bytes.end())});
  EXPECT_EQ(word(together, 40), plainL4Checksum(together, 14, kUdp, 34, together.size()));
}

TEST(Store, ANextStopIsNotPartOfTheChecksumOfTheSegment) {
  const Bytes route = {131, 7, 4, 10, 0, 0, 1, 0};
  Packet four(ethernet(kIpv4Type, ipv4(kTcp, tcp(kData), route)));
  setWord(&four.bytes, 58, 0x1234);
  ASSERT_TRUE(four.set(FieldId::kIpv4Dst, {1, 2, 3, 4}));
  EXPECT_EQ(word(four.bytes, 58), 0x1234);
  EXPECT_EQ(word(four.bytes, 24), plainIpv4Checksum(four.bytes, 14));
  ASSERT_TRUE(four.set(FieldId::kIpv4Src, {1, 2, 3, 4}));
  EXPECT_NE(word(four.bytes, 58), 0x1234);

  Packet six(ethernet(kIpv6Type, ipv6(kRouting, routing(kTcp, 1, tcp(kData)))));
  setWord(&six.bytes, 94, 0x1234);
  ASSERT_TRUE(six.set(FieldId::kIpv6Dst, Bytes(16, 3)));
  EXPECT_EQ(word(six.bytes, 94), 0x1234);
  ASSERT_TRUE(six.set(FieldId::kIpv6Src, Bytes(16, 3)));
  EXPECT_NE(word(six.bytes, 94), 0x1234);
}

TEST(Store, AddressesAreNotPartOfTheChecksumOfIcmp) {
  Packet sut(sampleNamed("twice tagged ipv4 icmp"));
  const uint16_t before = word(sut.bytes, 44);
  ASSERT_TRUE(sut.set(FieldId::kIpv4Src, {1, 2, 3, 4}));
  ASSERT_TRUE(sut.set(FieldId::kIpv4Dst, {1, 2, 3, 4}));
  EXPECT_EQ(word(sut.bytes, 44), before);
}

}  // namespace
}  // namespace jxmodel
