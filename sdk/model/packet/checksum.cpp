#include "model/packet/checksum.h"

#include "model/packet/bytes.h"

namespace jxmodel {
namespace {

constexpr uint8_t kTcpProtocol = 6, kUdpProtocol = 17, kIcmpv6Protocol = 58;

uint8_t protocolOf(const Headers& headers) {
  if (headers.has(Header::kTcp)) return kTcpProtocol;
  return headers.has(Header::kUdp) ? kUdpProtocol : kIcmpv6Protocol;
}

// The addresses, the protocol and the length, which these checksums cover besides the segment.
uint64_t pseudoHeaderSum(const uint8_t* data, const Headers& headers, uint32_t segment_bytes) {
  const uint64_t fixed = uint64_t{segment_bytes} + protocolOf(headers);
  if (headers.has(Header::kIpv4)) return addWords(data + headers.at(Header::kIpv4) + 12, 8, fixed);
  return addWords(data + headers.at(Header::kIpv6) + 8, 32, fixed);
}

uint32_t l4Offset(const Headers& headers) {
  if (headers.has(Header::kL4)) return headers.at(Header::kL4);
  return headers.at(headers.has(Header::kIcmp) ? Header::kIcmp : Header::kIcmpv6);
}

}  // namespace

uint64_t addWords(const uint8_t* data, size_t size, uint64_t sum) {
  for (; size >= 4; data += 4, size -= 4) {
    const uint32_t both = read32(data);
    sum += (both >> 16) + (both & 0xFFFF);
  }
  for (; size >= 2; data += 2, size -= 2) sum += read16(data);
  return size == 0 ? sum : sum + (uint64_t{*data} << 8);
}

uint16_t foldSum(uint64_t sum) {
  while (sum >> 16 != 0) sum = (sum & 0xFFFF) + (sum >> 16);
  return static_cast<uint16_t>(sum);
}

std::optional<uint16_t> ipv4ChecksumOf(const uint8_t* data, const Headers& headers) {
  if (!headers.has(Header::kIpv4)) return std::nullopt;
  const uint8_t* ip = data + headers.at(Header::kIpv4);
  const size_t bytes = (ip[0] & 0x0FU) * size_t{4};
  const uint64_t sum = addWords(ip + 12, bytes - 12, addWords(ip, 10));
  return static_cast<uint16_t>(~foldSum(sum));
}

std::optional<uint32_t> l4ChecksumOffset(const Headers& headers) {
  if (headers.has(Header::kTcp)) return headers.at(Header::kTcp) + 16U;
  if (headers.has(Header::kUdp)) return headers.at(Header::kUdp) + 6U;
  if (headers.has(Header::kIcmp)) return headers.at(Header::kIcmp) + 2U;
  if (headers.has(Header::kIcmpv6)) return headers.at(Header::kIcmpv6) + 2U;
  return std::nullopt;
}

std::optional<uint16_t> l4ChecksumOf(const uint8_t* data, const Headers& headers) {
  const auto place = l4ChecksumOffset(headers);
  if (!place || headers.fragment) return std::nullopt;
  const bool pseudo_header = !headers.has(Header::kIcmp);
  if (pseudo_header && headers.source_routed) return std::nullopt;

  const uint32_t begin = l4Offset(headers);
  const bool udp = headers.has(Header::kUdp);
  const uint32_t bytes = udp ? read16(data + begin + 4) : headers.end - begin;
  uint64_t sum = pseudo_header ? pseudoHeaderSum(data, headers, bytes) : 0;
  sum = addWords(data + begin, *place - begin, sum);
  sum = addWords(data + *place + 2, begin + bytes - *place - 2, sum);
  const auto checksum = static_cast<uint16_t>(~foldSum(sum));
  return udp && checksum == 0 ? 0xFFFF : checksum;  // 0 would say that there is none
}

}  // namespace jxmodel
