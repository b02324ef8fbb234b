#include <cstring>

#include "model/machine/machine_run.h"

namespace jxmodel {

/// Of all headers that would leave now.
uint32_t MachineRun::bytesOfHeaders() const {
  uint32_t bytes = 0;
  for (const uint32_t header : machine_.machine.deparser) {
    if (state_.valid[header] != 0) bytes += state_.bytesOfHeader(layout_, header);
  }
  return bytes;
}

/// The headers, then what the parser left. The frame is used up: where there is room, headers are
/// written in front of the payload, which stays where it is.
PacketBuffer MachineRun::deparse(uint32_t max_bytes) {
  const uint32_t bytes = bytesOfHeaders();
  PacketBuffer packet = std::move(frame_);
  packet.trimFront(facts_.payload);
  if (bytes <= packet.headroom()) {
    packet.prepend(bytes);
  } else {
    PacketBuffer longer(bytes + packet.size());
    if (!packet.empty()) std::memcpy(longer.data() + bytes, packet.data(), packet.size());
    longer.setTime(packet.timeNs(), packet.resolution());
    packet = std::move(longer);
  }
  uint8_t* at = packet.data();
  for (const uint32_t header : machine_.machine.deparser) {
    if (state_.valid[header] == 0) continue;
    machine_.plans[header].write(state_, at);
    at += state_.bytesOfHeader(layout_, header);
  }
  packet.trimBack(max_bytes);
  return packet;
}

}  // namespace jxmodel
