// Work that hosts leave to the network adapter, done here instead: a frame that comes straight from
// a host's stack (over a veth pair, say) may lack its checksum, and may be a whole train of TCP or
// UDP segments in one frame. The switch sees what would have been on a wire.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

#include "model/port/packet_buffer.h"

namespace jxmodel {

/// What is left to do for a frame, in the layout in which the kernel puts it in front of each one
/// (PACKET_VNET_HDR), in the byte order of this machine. linux/virtio_net.h, which has it too, is
/// not C++.
struct OffloadHeader {
  static constexpr uint8_t kNeedsChecksum = 1;  // in flags

  uint8_t flags;
  uint8_t train;             // what kind of segments the frame is a train of
  uint16_t headers_size;     // a hint only
  uint16_t segment_size;     // payload bytes of each segment but the last
  uint16_t checksum_start;   // where the bytes begin that the missing checksum covers
  uint16_t checksum_offset;  // where it belongs, from there
};
static_assert(sizeof(OffloadHeader) == 10);

inline constexpr uint8_t kNoTrain = 0;
inline constexpr uint8_t kTrainTcp4 = 1;
inline constexpr uint8_t kTrainTcp6 = 4;
inline constexpr uint8_t kTrainUdp = 5;
inline constexpr uint8_t kTrainCongestionBit = 0x80;  // its first segment has CWR set

/// Does what `left` says is left to do for the frame, and calls `emit` with each packet that
/// results; their times are for the caller to set. False, without a call, if it is something that
/// cannot be done or does not fit to the frame.
bool finishOffloads(const OffloadHeader& left, const uint8_t* frame, size_t size,
                    const std::function<void(PacketBuffer&&)>& emit);

/// Puts a VLAN tag back that the kernel took out of a frame of at least 12 bytes.
void insertVlanTag(uint16_t tpid, uint16_t tci, PacketBuffer* packet);

}  // namespace jxmodel
