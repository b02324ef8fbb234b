#include "model/port/offload.h"

#include <algorithm>

#include "model/packet/bytes.h"
#include "model/packet/checksum.h"
#include "model/packet/headers.h"

namespace jxmodel {
namespace {

constexpr uint8_t kFin = 0x01, kPush = 0x08, kCongestionReduced = 0x80;
constexpr size_t kTcpSequence = 4, kTcpOffset = 12, kTcpFlags = 13;
constexpr size_t kUdpHeader = 8, kUdpLength = 4, kUdpChecksum = 6;
constexpr size_t kIpv4Length = 2, kIpv4Id = 4, kIpv4Checksum = 10;
constexpr size_t kIpv6Header = 40, kIpv6Length = 4;

void write32(uint8_t* at, uint32_t value) {
  write16(at, static_cast<uint16_t>(value >> 16));
  write16(at + 2, static_cast<uint16_t>(value));
}

bool finishChecksum(const OffloadHeader& left, PacketBuffer* packet) {
  const size_t start = left.checksum_start;
  const size_t place = start + left.checksum_offset;
  if (place + 2 > packet->size()) return false;
  // The sum of the pseudo header stands there already.
  uint16_t checksum = checksumOf(packet->data() + start, packet->size() - start);
  const bool udp = left.checksum_offset == kUdpChecksum;
  if (udp && checksum == 0) checksum = 0xffff;  // 0 would say that there is none
  write16(packet->data() + place, checksum);
  return true;
}

/// A train of segments, as one frame.
struct Train {
  const uint8_t* frame;
  Headers headers;
  Header transport;     // kTcp or kUdp
  size_t headers_size;  // all headers, which each segment begins with
  size_t payload_size;  // all payloads
  size_t segment_size;  // payload of each segment but the last
};

bool readTrain(const OffloadHeader& left, const uint8_t* frame, size_t size, Train* train) {
  train->frame = frame;
  if (parse(frame, size, &train->headers) != ParseStatus::kOk) return false;
  const Headers& headers = train->headers;
  const uint8_t type = left.train & static_cast<uint8_t>(~kTrainCongestionBit);
  const bool tcp = type == kTrainTcp4 || type == kTrainTcp6;
  if (!tcp && type != kTrainUdp) return false;
  train->transport = tcp ? Header::kTcp : Header::kUdp;
  if (!headers.has(train->transport) || left.segment_size == 0) return false;
  if (headers.source_routed) return false;  // the address that its checksums cover is not there
  const size_t l4 = headers.at(train->transport);
  train->headers_size = l4 + (tcp ? (frame[l4 + kTcpOffset] >> 4) * size_t{4} : kUdpHeader);
  if (train->headers_size >= size) return false;
  train->payload_size = size - train->headers_size;
  train->segment_size = left.segment_size;
  return true;
}

void patchLengths(const Train& train, size_t index, PacketBuffer* segment) {
  uint8_t* const data = segment->data();
  if (train.headers.has(Header::kIpv4)) {
    const size_t ip = train.headers.at(Header::kIpv4);
    write16(data + ip + kIpv4Length, static_cast<uint16_t>(segment->size() - ip));
    write16(data + ip + kIpv4Id, static_cast<uint16_t>(read16(data + ip + kIpv4Id) + index));
  } else {
    const size_t ip = train.headers.at(Header::kIpv6);
    write16(data + ip + kIpv6Length, static_cast<uint16_t>(segment->size() - ip - kIpv6Header));
  }
}

void patchTransport(const Train& train, size_t offset, bool last, PacketBuffer* segment) {
  const size_t start = train.headers.at(train.transport);
  uint8_t* const l4 = segment->data() + start;
  if (train.transport == Header::kUdp) {
    write16(l4 + kUdpLength, static_cast<uint16_t>(segment->size() - start));
    return;
  }
  write32(l4 + kTcpSequence, read32(l4 + kTcpSequence) + static_cast<uint32_t>(offset));
  if (!last) l4[kTcpFlags] &= static_cast<uint8_t>(~(kFin | kPush));
  if (offset != 0) l4[kTcpFlags] &= static_cast<uint8_t>(~kCongestionReduced);
}

void writeChecksums(PacketBuffer* segment) {
  Headers headers;
  if (parse(segment->data(), segment->size(), &headers) != ParseStatus::kOk) return;
  if (const auto checksum = ipv4ChecksumOf(segment->data(), headers)) {
    write16(segment->data() + headers.at(Header::kIpv4) + kIpv4Checksum, *checksum);
  }
  const auto place = l4ChecksumOffset(headers);
  const auto checksum = l4ChecksumOf(segment->data(), headers);
  if (place && checksum) write16(segment->data() + *place, *checksum);
}

/// The segment whose payload begins at `offset` of all payloads.
PacketBuffer cutSegment(const Train& train, size_t offset) {
  const size_t payload = std::min(train.segment_size, train.payload_size - offset);
  PacketBuffer segment(train.headers_size + payload);
  std::memcpy(segment.data(), train.frame, train.headers_size);
  std::memcpy(segment.data() + train.headers_size, train.frame + train.headers_size + offset,
              payload);
  patchLengths(train, offset / train.segment_size, &segment);
  patchTransport(train, offset, offset + payload == train.payload_size, &segment);
  writeChecksums(&segment);
  return segment;
}

}  // namespace

bool finishOffloads(const OffloadHeader& left, const uint8_t* frame, size_t size,
                    const std::function<void(PacketBuffer&&)>& emit) {
  if (left.train != kNoTrain) {
    Train train;
    if (!readTrain(left, frame, size, &train)) return false;
    for (size_t offset = 0; offset < train.payload_size; offset += train.segment_size) {
      emit(cutSegment(train, offset));
    }
    return true;
  }
  PacketBuffer packet(frame, size);
  const bool unfinished = (left.flags & OffloadHeader::kNeedsChecksum) != 0;
  if (unfinished && !finishChecksum(left, &packet)) return false;
  emit(std::move(packet));
  return true;
}

void insertVlanTag(uint16_t tpid, uint16_t tci, PacketBuffer* packet) {
  constexpr size_t kAddresses = 12;
  constexpr size_t kTag = 4;
  uint8_t* const front = packet->prepend(kTag);
  std::memmove(front, front + kTag, kAddresses);
  write16(front + kAddresses, tpid);
  write16(front + kAddresses + 2, tci);
}

}  // namespace jxmodel
