#include "frames.h"

#include <utility>

namespace jexdata {
namespace {

constexpr size_t kLeastFrame = 60;

/// The ones' complement sum of 16-bit words, continued from `sum`.
uint64_t summed(const Bytes& bytes, uint64_t sum) {
  for (size_t i = 0; i < bytes.size(); ++i) sum += bytes[i] * (i % 2 == 0 ? 256U : 1U);
  return sum;
}

uint32_t checksumOf(uint64_t sum) {
  while (sum >> 16 != 0) sum = (sum & 0xFFFF) + (sum >> 16);
  return static_cast<uint32_t>(~sum & 0xFFFF);
}

/// Where the checksum stands; `pseudo` is the sum of the pseudo header.
Bytes withChecksum(uint8_t protocol, uint64_t pseudo, Bytes payload) {
  const size_t at = protocol == kTcp ? 16 : protocol == kUdp ? 6 : 2;
  uint32_t sum = checksumOf(summed(payload, pseudo));
  if (protocol == kUdp && sum == 0) sum = 0xFFFF;  // zero says that there is none
  set16(&payload, at, sum);
  return payload;
}

void putAddress(Bytes* bytes, const Ipv6Address& address) {
  bytes->insert(bytes->end(), address.begin(), address.end());
}

}  // namespace

void put16(Bytes* bytes, uint32_t value) {
  bytes->push_back(static_cast<uint8_t>(value >> 8));
  bytes->push_back(static_cast<uint8_t>(value));
}

void put32(Bytes* bytes, uint32_t value) {
  put16(bytes, value >> 16);
  put16(bytes, value & 0xFFFF);
}

void append(Bytes* bytes, const Bytes& more) {
  bytes->insert(bytes->end(), more.begin(), more.end());
}

void set16(Bytes* bytes, size_t at, uint32_t value) {
  (*bytes)[at] = static_cast<uint8_t>(value >> 8);
  (*bytes)[at + 1] = static_cast<uint8_t>(value);
}

Mac macOf(uint8_t network, uint32_t number) {
  return {2, network, 0, 0, static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number)};
}

Mac multicastMac(uint32_t ipv4) {
  return {0x01,
          0x00,
          0x5e,
          static_cast<uint8_t>(ipv4 >> 16 & 0x7F),
          static_cast<uint8_t>(ipv4 >> 8),
          static_cast<uint8_t>(ipv4)};
}

Mac multicastMac(const Ipv6Address& ipv6) {
  return {0x33, 0x33, ipv6[12], ipv6[13], ipv6[14], ipv6[15]};
}

Ipv6Address ipv6Of(uint64_t network, uint32_t number) {
  Ipv6Address address{};
  for (size_t i = 0; i < 8; ++i) address[i] = static_cast<uint8_t>(network >> (56 - 8 * i));
  for (size_t i = 0; i < 4; ++i) address[12 + i] = static_cast<uint8_t>(number >> (24 - 8 * i));
  return address;
}

Bytes bareFrame(const Mac& dst, const Mac& src, const Tags& tags, uint16_t type,
                const Bytes& payload) {
  Bytes frame(dst.begin(), dst.end());
  frame.insert(frame.end(), src.begin(), src.end());
  for (size_t i = 0; i < tags.size(); ++i) {
    put16(&frame, i + 1 < tags.size() ? kServiceVlanType : kVlanType);
    put16(&frame, tags[i]);
  }
  put16(&frame, type);
  append(&frame, payload);
  return frame;
}

Bytes frameOf(const Mac& dst, const Mac& src, const Tags& tags, uint16_t type,
              const Bytes& payload) {
  Bytes frame = bareFrame(dst, src, tags, type, payload);
  if (frame.size() < kLeastFrame) frame.resize(kLeastFrame);
  return frame;
}

Bytes ipv4Packet(const Ipv4& header, const Bytes& payload) {
  const size_t header_size = 20 + header.options.size();
  Bytes packet{static_cast<uint8_t>(0x40 | header_size / 4), 0};
  put16(&packet, static_cast<uint32_t>(header_size + payload.size()));
  put16(&packet, header.id);
  put16(&packet, header.fragment);
  packet.push_back(header.ttl);
  packet.push_back(header.protocol);
  put16(&packet, 0);
  put32(&packet, header.src);
  put32(&packet, header.dst);
  append(&packet, header.options);
  set16(&packet, 10, checksumOf(summed(packet, 0)));
  append(&packet, payload);
  return packet;
}

Bytes ipv6Packet(const Ipv6& header, const Bytes& payload) {
  Bytes packet{0x60, 0, 0, 0};
  put16(&packet, static_cast<uint32_t>(payload.size()));
  packet.push_back(header.next);
  packet.push_back(header.hop_limit);
  putAddress(&packet, header.src);
  putAddress(&packet, header.dst);
  append(&packet, payload);
  return packet;
}

Bytes udpDatagram(uint16_t sport, uint16_t dport, const Bytes& payload) {
  Bytes datagram;
  put16(&datagram, sport);
  put16(&datagram, dport);
  put16(&datagram, static_cast<uint32_t>(8 + payload.size()));
  put16(&datagram, 0);
  append(&datagram, payload);
  return datagram;
}

Bytes tcpSegment(uint16_t sport, uint16_t dport, uint32_t seq, uint32_t ack, uint8_t flags,
                 const Bytes& payload) {
  Bytes segment;
  put16(&segment, sport);
  put16(&segment, dport);
  put32(&segment, seq);
  put32(&segment, ack);
  const bool syn = (flags & kSyn) != 0;
  segment.push_back(syn ? 0x60 : 0x50);
  segment.push_back(flags);
  put16(&segment, 64240);
  put32(&segment, 0);
  if (syn) append(&segment, {2, 4, 0x05, 0xb4});  // segments of at most 1460 bytes
  append(&segment, payload);
  return segment;
}

Bytes icmpMessage(uint8_t type, uint8_t code, const Bytes& rest) {
  Bytes message{type, code, 0, 0};
  append(&message, rest);
  return message;
}

Bytes sumUp(const Ipv4& header, Bytes payload) {
  if (header.protocol == kIcmp || header.protocol == kIgmp) {
    return withChecksum(header.protocol, 0, std::move(payload));
  }
  Bytes pseudo;
  put32(&pseudo, header.src);
  put32(&pseudo, header.dst);
  put16(&pseudo, header.protocol);
  put16(&pseudo, static_cast<uint32_t>(payload.size()));
  return withChecksum(header.protocol, summed(pseudo, 0), std::move(payload));
}

Bytes sumUp(const Ipv6& header, Bytes payload) {
  Bytes pseudo;
  putAddress(&pseudo, header.src);
  putAddress(&pseudo, header.dst);
  put32(&pseudo, static_cast<uint32_t>(payload.size()));
  put32(&pseudo, header.next);
  return withChecksum(header.next, summed(pseudo, 0), std::move(payload));
}

Bytes arpPacket(uint16_t operation, const Mac& sender, uint32_t sender_ip, const Mac& target,
                uint32_t target_ip) {
  Bytes packet{0, 1, 8, 0, 6, 4};
  put16(&packet, operation);
  packet.insert(packet.end(), sender.begin(), sender.end());
  put32(&packet, sender_ip);
  packet.insert(packet.end(), target.begin(), target.end());
  put32(&packet, target_ip);
  return packet;
}

}  // namespace jexdata
