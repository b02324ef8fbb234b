// The fields of packets by the names that programs use, read and rewritten in place. A rewritten
// packet keeps its layout: no header is added or removed, and checksums stay as right as they were.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "model/packet/headers.h"

namespace jxmodel {

enum class FieldId : uint8_t {
  kEthernetDst,
  kEthernetSrc,
  kEthernetType,
  kVlanPcp,
  kVlanDei,
  kVlanVid,
  kVlanType,
  kVlan1Pcp,
  kVlan1Dei,
  kVlan1Vid,
  kVlan1Type,
  kArpOp,
  kArpSha,
  kArpSpa,
  kArpTha,
  kArpTpa,
  kIpv4Dscp,
  kIpv4Ecn,
  kIpv4Length,
  kIpv4Id,
  kIpv4Ttl,
  kIpv4Protocol,
  kIpv4Src,
  kIpv4Dst,
  kIpv6TrafficClass,
  kIpv6FlowLabel,
  kIpv6Length,
  kIpv6NextHeader,
  kIpv6HopLimit,
  kIpv6Src,
  kIpv6Dst,
  kL4Sport,
  kL4Dport,
  kTcpFlags,
  kIcmpType,
  kIcmpCode,
  kIcmpv6Type,
  kIcmpv6Code,
  kMetaIngressPort,
  kMetaEgressPort,
  kMetaPacketLength,
};

/// A packet on its way through the switch. Owns nothing.
struct PacketView {
  uint8_t* data = nullptr;
  uint32_t size = 0;
  Headers headers;            // what parse() made of these bytes
  uint16_t ingress_port = 0;  // 9 bits
  uint16_t egress_port = 0;   // 9 bits
};

/// Fields are numbered from 0: FieldId i for every i below.
size_t fieldCount();
/// "ipv4.dst": the name to show, also where a field was found by another one.
std::string_view fieldName(FieldId field);
/// The field of a name, empty if no packet has one: then it is metadata of the program.
std::optional<FieldId> findField(std::string_view name);
/// Bits.
uint32_t fieldWidth(FieldId field);
Header fieldHeader(FieldId field);
/// False for the fields that say how a packet is laid out (types, lengths, protocols) and for what
/// is so already when a packet comes in (its port and its length).
bool fieldWritable(FieldId field);

/// Largest value of a field, in bytes.
inline constexpr size_t kMaxFieldBytes = 16;

/// Writes the value to `value`: (width + 7) / 8 bytes in network order, unused high bits 0. All 0
/// where the packet does not have the header.
void load(FieldId field, const PacketView& packet, uint8_t* value);

/// Sets the field to `value`, of the form above (unused high bits are ignored), and corrects the
/// checksums of IPv4, TCP, UDP, ICMP and ICMPv6 that cover it. A UDP checksum of 0, which means
/// none, stays 0. Returns false, and nothing is changed, where the packet does not have the header
/// or the field is not writable.
bool store(FieldId field, PacketView& packet, const uint8_t* value);

}  // namespace jxmodel
