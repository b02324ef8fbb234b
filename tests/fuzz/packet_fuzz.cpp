// Parses any bytes as a frame. Where they are a whole one, changes every field that it has and sets
// it back: nothing else may change, and a checksum that was right stays right.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>

#include "model/packet/bytes.h"
#include "model/packet/checksum.h"
#include "model/packet/fields.h"
#include "model/packet/headers.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace jxmodel {
namespace {

void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "packet_fuzz: does not hold: %s\n", what);
  std::abort();
}

bool sameSum(uint16_t left, uint16_t right) { return left % 0xFFFF == right % 0xFFFF; }

bool isIpv4ChecksumRight(const PacketView& packet) {
  const auto right = ipv4ChecksumOf(packet.data, packet.headers);
  return !right || sameSum(*right, read16(packet.data + packet.headers.at(Header::kIpv4) + 10));
}

bool isL4ChecksumRight(const PacketView& packet) {
  const auto right = l4ChecksumOf(packet.data, packet.headers);
  return !right || sameSum(*right, read16(packet.data + *l4ChecksumOffset(packet.headers)));
}

// A UDP datagram that came without a checksum has to leave without.
bool lacksL4Checksum(const PacketView& packet) {
  return packet.headers.has(Header::kUdp) &&
         read16(packet.data + *l4ChecksumOffset(packet.headers)) == 0;
}

void checkHeaders(const Headers& headers, size_t size) {
  require(headers.payload <= headers.end, "payload begins within the datagram");
  require(headers.end <= size, "the datagram ends within the frame");
  for (size_t i = 0; i < kHeaderCount; ++i) {
    const auto header = static_cast<Header>(i);
    if (header == Header::kMeta || !headers.has(header)) continue;
    require(headers.at(header) < headers.payload, "headers lie in front of the payload");
  }
}

void invertField(FieldId field, PacketView* packet) {
  uint8_t value[kMaxFieldBytes], back[kMaxFieldBytes];
  const size_t bytes = (fieldWidth(field) + 7) / 8;
  load(field, *packet, value);
  for (size_t i = 0; i < bytes; ++i) value[i] = static_cast<uint8_t>(~value[i]);
  if (!store(field, *packet, value)) return;
  load(field, *packet, back);
  const uint32_t used = fieldWidth(field) % 8;
  if (used != 0) value[0] &= static_cast<uint8_t>((1U << used) - 1);
  require(std::equal(value, value + bytes, back), "a field has the value that it was set to");
}

// Checksums have two forms of 0: compare them by what they mean, in checkFields.
void clearChecksums(PacketView* packet) {
  const Headers& headers = packet->headers;
  if (headers.has(Header::kIpv4)) write16(packet->data + headers.at(Header::kIpv4) + 10, 0);
  if (const auto place = l4ChecksumOffset(headers)) write16(packet->data + *place, 0);
}

void checkFields(PacketView packet, PacketView original) {
  const bool ipv4_right = isIpv4ChecksumRight(packet);
  const bool l4_right = isL4ChecksumRight(packet);
  const bool l4_lacking = lacksL4Checksum(packet);
  for (int turn = 0; turn < 2; ++turn) {
    for (size_t i = 0; i < fieldCount(); ++i) invertField(static_cast<FieldId>(i), &packet);
    require(isIpv4ChecksumRight(packet) == ipv4_right, "IPv4 checksum is as right as before");
    require(lacksL4Checksum(packet) == l4_lacking, "a UDP checksum is there as before");
    require(l4_lacking || isL4ChecksumRight(packet) == l4_right,
            "checksum of the segment is as right as before");
  }
  clearChecksums(&packet);
  clearChecksums(&original);
  require(std::equal(packet.data, packet.data + packet.size, original.data),
          "inverting twice changes nothing");
}

std::unique_ptr<uint8_t[]> copyOf(const uint8_t* data, size_t size) {
  std::unique_ptr<uint8_t[]> copy(new uint8_t[size]);
  std::copy(data, data + size, copy.get());
  return copy;
}

void check(const uint8_t* data, size_t size) {
  // On the heap, in blocks of just this size: a sanitizer sees each access behind the end.
  const auto bytes = copyOf(data, size);
  PacketView packet;
  packet.data = bytes.get();
  packet.size = static_cast<uint32_t>(size);
  const ParseStatus status = parse(packet.data, packet.size, &packet.headers);
  checkHeaders(packet.headers, size);
  require(std::equal(data, data + size, packet.data), "parsing changes nothing");
  if (status != ParseStatus::kOk) return;

  const auto untouched = copyOf(data, size);
  PacketView original = packet;
  original.data = untouched.get();
  checkFields(packet, original);
}

}  // namespace
}  // namespace jxmodel

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  jxmodel::check(data, size);
  return 0;
}
