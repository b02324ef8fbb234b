#include "unit/pipeline/frame.h"

#include "model/packet/checksum.h"

namespace jxpipelinetest {
namespace {

void append(Bytes* to, uint64_t value, size_t bytes) {
  for (size_t i = bytes; i-- > 0;) to->push_back(static_cast<uint8_t>(value >> (8 * i)));
}

void set16(Bytes* frame, size_t at, uint16_t value) {
  (*frame)[at] = static_cast<uint8_t>(value >> 8);
  (*frame)[at + 1] = static_cast<uint8_t>(value);
}

Bytes ethernet(uint16_t type) {
  Bytes frame;
  append(&frame, 0x020000000001, 6);
  append(&frame, 0x020000000002, 6);
  append(&frame, type, 2);
  return frame;
}

void appendIpv4(Bytes* frame, const Flow& flow, uint8_t ttl) {
  const size_t l4_bytes = flow.protocol == 6 ? 20 : 8;
  append(frame, 0x4500, 2);
  append(frame, 20 + l4_bytes, 2);
  append(frame, 0x0001, 2);
  append(frame, 0x4000, 2);
  append(frame, ttl, 1);
  append(frame, flow.protocol, 1);
  append(frame, 0, 2);
  append(frame, flow.src, 4);
  append(frame, flow.dst, 4);
  append(frame, flow.sport, 2);
  append(frame, flow.dport, 2);
  if (flow.protocol != 6) return append(frame, 0x00080000, 4);
  append(frame, 0, 8);
  append(frame, 0x5010, 2);
  append(frame, 0xFFFF, 2);
  append(frame, 0, 4);
}

Bytes withChecksums(Bytes frame) {
  jxmodel::Headers headers;
  jxmodel::parse(frame.data(), frame.size(), &headers);
  if (const auto sum = jxmodel::ipv4ChecksumOf(frame.data(), headers)) {
    set16(&frame, headers.at(jxmodel::Header::kIpv4) + size_t{10}, *sum);
  }
  const auto at = jxmodel::l4ChecksumOffset(headers);
  const auto sum = jxmodel::l4ChecksumOf(frame.data(), headers);
  if (at && sum) set16(&frame, *at, *sum);
  return frame;
}

}  // namespace

Bytes ipv4Frame(const Flow& flow, uint8_t ttl) {
  Bytes frame = ethernet(0x0800);
  appendIpv4(&frame, flow, ttl);
  return withChecksums(std::move(frame));
}

Bytes taggedFrame(const Flow& flow, uint16_t vid) {
  Bytes frame = ethernet(0x8100);
  append(&frame, vid, 2);
  append(&frame, 0x0800, 2);
  appendIpv4(&frame, flow, 64);
  return withChecksums(std::move(frame));
}

Bytes otherFrame() {
  Bytes frame = ethernet(0x88B5);
  frame.resize(60);
  return frame;
}

uint64_t numberAt(const Bytes& frame, size_t offset, size_t bytes) {
  uint64_t value = 0;
  for (size_t i = 0; i < bytes; ++i) value = value << 8 | frame.at(offset + i);
  return value;
}

}  // namespace jxpipelinetest
