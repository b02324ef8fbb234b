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

/// Makes the frame the headers, then what the parser left. Where there is room, headers are written
/// in front of the payload, which stays where it is.
void MachineRun::deparse(uint32_t max_bytes) {
  const uint32_t bytes = bytesOfHeaders();
  frame_.trimFront(facts_.payload);
  if (bytes <= frame_.headroom()) {
    frame_.prepend(bytes);
  } else {
    PacketBuffer longer(bytes + frame_.size());
    if (!frame_.empty()) std::memcpy(longer.data() + bytes, frame_.data(), frame_.size());
    longer.setTime(frame_.timeNs(), frame_.resolution());
    frame_ = std::move(longer);
  }
  uint8_t* at = frame_.data();
  for (const uint32_t header : machine_.machine.deparser) {
    if (state_.valid[header] == 0) continue;
    machine_.plans[header].write(state_, at);
    at += state_.bytesOfHeader(layout_, header);
  }
  frame_.trimBack(max_bytes);
}

}  // namespace jxmodel
