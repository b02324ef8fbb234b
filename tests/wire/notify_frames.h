// Requests and records of idle-time and digest notifications, written byte by byte.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>

#include "support/bytes.h"
#include "wire/limits_ids.h"

namespace jextest {

inline void putText(Bytes& message, size_t offset, const std::string& text) {
  std::memcpy(message.data() + offset, text.c_str(), text.size() + 1);
}

inline std::string textAt(const Bytes& message, size_t offset, size_t size) {
  const char* const text = reinterpret_cast<const char*>(message.data() + offset);
  return std::string(text, strnlen(text, size));
}

/// What a request of type 3 says.
struct IdleRequest {
  uint32_t table = kAllKinds;
  std::string program = "limits";
  uint32_t pipe = 0xFFFF;
  uint32_t interval = 1000;
  uint32_t max_ttl = 5000;
  uint32_t min_ttl = 100;
  uint32_t enable = 1;

  Bytes message(uint32_t pid) const {
    Bytes all = request(3, pid, 296);
    putU32(all, 16, table);
    putText(all, 20, program);
    putU32(all, 276, pipe);
    putU32(all, 280, interval);
    putU32(all, 284, max_ttl);
    putU32(all, 288, min_ttl);
    putU32(all, 292, enable);
    return all;
  }
};

/// What a request of type 8 says.
struct DigestRequest {
  uint32_t learn = kAddresses;
  uint32_t pipe = 0xFFFF;
  std::string program = "limits";
  uint32_t size = kAddressesBits;
  uint32_t enable = 1;

  Bytes message(uint32_t pid) const {
    Bytes all = request(8, pid, 288);
    putU32(all, 16, learn);
    putU32(all, 20, pipe);
    putText(all, 24, program);
    putU32(all, 280, size);
    putU32(all, 284, enable);
    return all;
  }
};

/// A 20-byte report of an aged entry.
Bytes idleRecord(uint32_t table, uint32_t entry, uint64_t time, uint8_t device = 0);

/// A report of a learned entry whose length is right.
Bytes digestRecord(uint32_t learn, uint64_t time, const Bytes& values, uint8_t device = 0);

/// The same with a length of its own.
Bytes digestRecordOfLength(uint16_t length, const Bytes& values);

/// `first`, `first` + 1, ... in `size` bytes.
Bytes countingBytes(size_t size, uint8_t first = 1);

}  // namespace jextest
