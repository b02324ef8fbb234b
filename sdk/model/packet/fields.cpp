#include "model/packet/fields.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "model/packet/bytes.h"
#include "model/packet/checksum.h"

namespace jxmodel {
namespace {

// Which checksums cover a field.
enum class Cover : uint8_t {
  kNothing,
  kIpv4Header,
  kIpv4Address,  // the IPv4 header's, and those that take in the pseudo header
  kIpv6Address,  // those that take in the pseudo header
  kL4,
};

// NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding): in the order in which people read it
struct Row {
  FieldId id;
  std::string_view name;
  Header header;
  uint8_t offset;  // bytes from the begin of the header to the first that has bits of the field
  uint8_t width;   // bits
  uint8_t shift;   // bits between the end of the field and the end of its last byte
  bool writable;
  Cover cover;

  constexpr uint32_t valueBytes() const { return (width + 7U) / 8; }
  constexpr uint32_t spanBytes() const { return (width + shift + 7U) / 8; }
  constexpr bool wholeBytes() const { return width % 8 == 0 && shift == 0; }
};

constexpr bool kFixed = false, kWritable = true;

constexpr Row kRows[] = {
    {FieldId::kEthernetDst, "ethernet.dst", Header::kEthernet, 0, 48, 0, kWritable,
     Cover::kNothing},
    {FieldId::kEthernetSrc, "ethernet.src", Header::kEthernet, 6, 48, 0, kWritable,
     Cover::kNothing},
    {FieldId::kEthernetType, "ethernet.type", Header::kEthernet, 12, 16, 0, kFixed,
     Cover::kNothing},
    {FieldId::kVlanPcp, "vlan.pcp", Header::kVlan, 0, 3, 5, kWritable, Cover::kNothing},
    {FieldId::kVlanDei, "vlan.dei", Header::kVlan, 0, 1, 4, kWritable, Cover::kNothing},
    {FieldId::kVlanVid, "vlan.vid", Header::kVlan, 0, 12, 0, kWritable, Cover::kNothing},
    {FieldId::kVlanType, "vlan.type", Header::kVlan, 2, 16, 0, kFixed, Cover::kNothing},
    {FieldId::kVlan1Pcp, "vlan1.pcp", Header::kVlan1, 0, 3, 5, kWritable, Cover::kNothing},
    {FieldId::kVlan1Dei, "vlan1.dei", Header::kVlan1, 0, 1, 4, kWritable, Cover::kNothing},
    {FieldId::kVlan1Vid, "vlan1.vid", Header::kVlan1, 0, 12, 0, kWritable, Cover::kNothing},
    {FieldId::kVlan1Type, "vlan1.type", Header::kVlan1, 2, 16, 0, kFixed, Cover::kNothing},
    {FieldId::kArpOp, "arp.op", Header::kArp, 6, 16, 0, kWritable, Cover::kNothing},
    {FieldId::kArpSha, "arp.sha", Header::kArp, 8, 48, 0, kWritable, Cover::kNothing},
    {FieldId::kArpSpa, "arp.spa", Header::kArp, 14, 32, 0, kWritable, Cover::kNothing},
    {FieldId::kArpTha, "arp.tha", Header::kArp, 18, 48, 0, kWritable, Cover::kNothing},
    {FieldId::kArpTpa, "arp.tpa", Header::kArp, 24, 32, 0, kWritable, Cover::kNothing},
    {FieldId::kIpv4Dscp, "ipv4.dscp", Header::kIpv4, 1, 6, 2, kWritable, Cover::kIpv4Header},
    {FieldId::kIpv4Ecn, "ipv4.ecn", Header::kIpv4, 1, 2, 0, kWritable, Cover::kIpv4Header},
    {FieldId::kIpv4Length, "ipv4.length", Header::kIpv4, 2, 16, 0, kFixed, Cover::kIpv4Header},
    {FieldId::kIpv4Id, "ipv4.id", Header::kIpv4, 4, 16, 0, kWritable, Cover::kIpv4Header},
    {FieldId::kIpv4Ttl, "ipv4.ttl", Header::kIpv4, 8, 8, 0, kWritable, Cover::kIpv4Header},
    {FieldId::kIpv4Protocol, "ipv4.protocol", Header::kIpv4, 9, 8, 0, kFixed, Cover::kIpv4Header},
    {FieldId::kIpv4Src, "ipv4.src", Header::kIpv4, 12, 32, 0, kWritable, Cover::kIpv4Address},
    {FieldId::kIpv4Dst, "ipv4.dst", Header::kIpv4, 16, 32, 0, kWritable, Cover::kIpv4Address},
    {FieldId::kIpv6TrafficClass, "ipv6.traffic_class", Header::kIpv6, 0, 8, 4, kWritable,
     Cover::kNothing},
    {FieldId::kIpv6FlowLabel, "ipv6.flow_label", Header::kIpv6, 1, 20, 0, kWritable,
     Cover::kNothing},
    {FieldId::kIpv6Length, "ipv6.length", Header::kIpv6, 4, 16, 0, kFixed, Cover::kNothing},
    {FieldId::kIpv6NextHeader, "ipv6.next_header", Header::kIpv6, 6, 8, 0, kFixed, Cover::kNothing},
    {FieldId::kIpv6HopLimit, "ipv6.hop_limit", Header::kIpv6, 7, 8, 0, kWritable, Cover::kNothing},
    {FieldId::kIpv6Src, "ipv6.src", Header::kIpv6, 8, 128, 0, kWritable, Cover::kIpv6Address},
    {FieldId::kIpv6Dst, "ipv6.dst", Header::kIpv6, 24, 128, 0, kWritable, Cover::kIpv6Address},
    {FieldId::kL4Sport, "l4.sport", Header::kL4, 0, 16, 0, kWritable, Cover::kL4},
    {FieldId::kL4Dport, "l4.dport", Header::kL4, 2, 16, 0, kWritable, Cover::kL4},
    {FieldId::kTcpFlags, "tcp.flags", Header::kTcp, 13, 8, 0, kWritable, Cover::kL4},
    {FieldId::kIcmpType, "icmp.type", Header::kIcmp, 0, 8, 0, kWritable, Cover::kL4},
    {FieldId::kIcmpCode, "icmp.code", Header::kIcmp, 1, 8, 0, kWritable, Cover::kL4},
    {FieldId::kIcmpv6Type, "icmpv6.type", Header::kIcmpv6, 0, 8, 0, kWritable, Cover::kL4},
    {FieldId::kIcmpv6Code, "icmpv6.code", Header::kIcmpv6, 1, 8, 0, kWritable, Cover::kL4},
    {FieldId::kMetaIngressPort, "meta.ingress_port", Header::kMeta, 0, 9, 0, kFixed,
     Cover::kNothing},
    {FieldId::kMetaEgressPort, "meta.egress_port", Header::kMeta, 0, 9, 0, kWritable,
     Cover::kNothing},
    {FieldId::kMetaPacketLength, "meta.packet_length", Header::kMeta, 0, 16, 0, kFixed,
     Cover::kNothing},
};
static_assert(std::size(kRows) == static_cast<size_t>(FieldId::kMetaPacketLength) + 1);

constexpr bool rowsAreInOrderOfIds() {
  for (size_t i = 0; i < std::size(kRows); ++i) {
    if (kRows[i].id != static_cast<FieldId>(i)) return false;
    if (kRows[i].valueBytes() > kMaxFieldBytes) return false;
    if (!kRows[i].wholeBytes() && kRows[i].spanBytes() > 3) return false;
  }
  return true;
}
static_assert(rowsAreInOrderOfIds());

// Other names in use for the same fields.
struct Alias {
  std::string_view name;
  FieldId id;
};
constexpr Alias kAliases[] = {{"vlan.id", FieldId::kVlanVid}, {"vlan1.id", FieldId::kVlan1Vid}};

const Row& rowOf(FieldId field) { return kRows[static_cast<size_t>(field)]; }

// Copies of the lengths that fields have, so that each is a few instructions and not a call.
void copyBytes(uint8_t* to, const uint8_t* from, uint32_t bytes) {
  switch (bytes) {
    case 1:
      *to = *from;
      return;
    case 2:
      std::memcpy(to, from, 2);
      return;
    case 4:
      std::memcpy(to, from, 4);
      return;
    case 6:
      std::memcpy(to, from, 6);
      return;
    default:
      std::memcpy(to, from, bytes);
  }
}

uint32_t readBytes(const uint8_t* at, uint32_t bytes) {
  uint32_t word = 0;
  for (uint32_t i = 0; i < bytes; ++i) word = word << 8 | at[i];
  return word;
}

void writeBytes(uint8_t* at, uint32_t bytes, uint32_t word) {
  for (uint32_t i = bytes; i > 0; --i, word >>= 8) at[i - 1] = static_cast<uint8_t>(word);
}

uint32_t maskOf(const Row& row) { return (1U << row.width) - 1; }

void writeField(const Row& row, uint8_t* at, const uint8_t* value) {
  if (row.wholeBytes()) return copyBytes(at, value, row.valueBytes());
  const uint32_t mask = maskOf(row) << row.shift;
  const uint32_t bits = readBytes(value, row.valueBytes()) << row.shift;
  const uint32_t others = readBytes(at, row.spanBytes()) & ~mask;
  writeBytes(at, row.spanBytes(), others | (bits & mask));
}

uint16_t metaValue(FieldId field, const PacketView& packet) {
  if (field == FieldId::kMetaIngressPort) return packet.ingress_port & 0x1FF;
  if (field == FieldId::kMetaEgressPort) return packet.egress_port & 0x1FF;
  return static_cast<uint16_t>(std::min<uint32_t>(packet.size, 0xFFFF));
}

void adjustAt(uint8_t* checksum, uint64_t before, uint64_t after) {
  write16(checksum, adjustChecksum(read16(checksum), before, after));
}

void adjustL4(PacketView& packet, uint64_t before, uint64_t after) {
  const auto place = l4ChecksumOffset(packet.headers);
  if (!place) return;
  uint8_t* checksum = packet.data + *place;
  if (!packet.headers.has(Header::kUdp)) return adjustAt(checksum, before, after);
  if (read16(checksum) == 0) return;  // sent without
  adjustAt(checksum, before, after);
  if (read16(checksum) == 0) write16(checksum, 0xFFFF);
}

// The addresses are part of the checksums of TCP, UDP and ICMPv6, but not of ICMP; the destination
// is not where others follow it.
bool inPseudoHeader(const Row& row, const Headers& headers) {
  if (headers.has(Header::kIcmp)) return false;
  const bool destination = row.id == FieldId::kIpv4Dst || row.id == FieldId::kIpv6Dst;
  return !(destination && headers.source_routed);
}

void adjustChecksums(const Row& row, PacketView& packet, uint64_t before, uint64_t after) {
  if (row.header == Header::kIpv4) {
    adjustAt(packet.data + packet.headers.at(Header::kIpv4) + 10, before, after);
  }
  const bool address = row.cover == Cover::kIpv4Address || row.cover == Cover::kIpv6Address;
  if (row.cover == Cover::kL4 || (address && inPseudoHeader(row, packet.headers))) {
    adjustL4(packet, before, after);
  }
}

}  // namespace

size_t fieldCount() { return std::size(kRows); }

std::string_view fieldName(FieldId field) { return rowOf(field).name; }

std::optional<FieldId> findField(std::string_view name) {
  for (const Row& row : kRows) {
    if (row.name == name) return row.id;
  }
  for (const Alias& alias : kAliases) {
    if (alias.name == name) return alias.id;
  }
  return std::nullopt;
}

uint32_t fieldWidth(FieldId field) { return rowOf(field).width; }

Header fieldHeader(FieldId field) { return rowOf(field).header; }

bool fieldWritable(FieldId field) { return rowOf(field).writable; }

void load(FieldId field, const PacketView& packet, uint8_t* value) {
  const Row& row = rowOf(field);
  if (!packet.headers.has(row.header)) {
    std::memset(value, 0, row.valueBytes());
    return;
  }
  if (row.header == Header::kMeta) return write16(value, metaValue(field, packet));
  const uint8_t* at = packet.data + packet.headers.at(row.header) + row.offset;
  if (row.wholeBytes()) return copyBytes(value, at, row.valueBytes());
  writeBytes(value, row.valueBytes(), readBytes(at, row.spanBytes()) >> row.shift & maskOf(row));
}

bool store(FieldId field, PacketView& packet, const uint8_t* value) {
  const Row& row = rowOf(field);
  if (!row.writable || !packet.headers.has(row.header)) return false;
  if (row.header == Header::kMeta) {
    packet.egress_port = read16(value) & 0x1FF;
    return true;
  }
  uint8_t* header = packet.data + packet.headers.at(row.header);
  if (row.cover == Cover::kNothing) {
    writeField(row, header + row.offset, value);
    return true;
  }
  // Checksums count words from the begin of the header: take the words that the field touches.
  const uint32_t first = row.offset & ~1U;
  const uint32_t bytes = ((row.offset + row.spanBytes() + 1) & ~1U) - first;
  const uint64_t before = addWords(header + first, bytes);
  writeField(row, header + row.offset, value);
  const uint64_t after = addWords(header + first, bytes);
  if (before != after) adjustChecksums(row, packet, before, after);
  return true;
}

}  // namespace jxmodel
