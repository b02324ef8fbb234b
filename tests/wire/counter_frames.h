// Requests and replies of counters and barriers as raw counterparts write them.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>

#include "support/bytes.h"
#include "wire/limits_ids.h"

namespace jextest {

inline constexpr size_t kCounterFrameSize = 284;  // of both requests
inline constexpr uint32_t kAllPipes = 0xFFFF;

/// Starts (`enable` 1) or stops (0) the counters of one table.
inline Bytes counterConfig(uint32_t pid, uint32_t table_id, uint8_t enable,
                           const std::string& program = "limits") {
  Bytes message = request(5, pid, kCounterFrameSize);
  putU32(message, 16, table_id);
  message[20] = enable;
  putU32(message, 24, kAllPipes);
  std::memcpy(message.data() + 28, program.c_str(), program.size() + 1);
  return message;
}

inline Bytes barrier(uint32_t pid, uint32_t table_id, uint64_t timestamp) {
  Bytes message = request(10, pid, kCounterFrameSize);
  putU32(message, 16, table_id);
  putU64(message, 276, timestamp);
  return message;
}

inline Bytes barrierReply(uint64_t timestamp) {
  Bytes message = {0xFE, 0x00, 0x0C, 0x00};
  putU64(message, 4, timestamp);
  return message;
}

}  // namespace jextest
