// Messages as bytes, read and written at offsets that the tests give as numbers: the counterparts
// of a wire test share no record with the library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace jextest {

using Bytes = std::vector<uint8_t>;

template <typename Integer>
Integer integerAt(const Bytes& message, size_t offset) {
  Integer value{};
  if (offset + sizeof value <= message.size()) {
    std::memcpy(&value, message.data() + offset, sizeof value);
  }
  return value;
}
inline uint32_t u32At(const Bytes& message, size_t offset) {
  return integerAt<uint32_t>(message, offset);
}
inline uint64_t u64At(const Bytes& message, size_t offset) {
  return integerAt<uint64_t>(message, offset);
}

/// Writes `value` at `offset`; the message grows if it has to.
template <typename Integer>
void put(Bytes& message, size_t offset, Integer value) {
  if (message.size() < offset + sizeof value) message.resize(offset + sizeof value);
  std::memcpy(message.data() + offset, &value, sizeof value);
}
inline void putU32(Bytes& message, size_t offset, uint32_t value) { put(message, offset, value); }
inline void putU64(Bytes& message, size_t offset, uint64_t value) { put(message, offset, value); }

inline void append(Bytes& message, const Bytes& tail) {
  message.insert(message.end(), tail.begin(), tail.end());
}

inline Bytes bytesFrom(const Bytes& message, size_t offset) {
  if (offset >= message.size()) return {};
  return Bytes(message.begin() + static_cast<std::ptrdiff_t>(offset), message.end());
}

/// A request of `size` bytes whose frame says so: type at 0, pid at 4, length at 8.
inline Bytes request(uint32_t type, uint32_t pid, size_t size = 16) {
  Bytes message(size);
  putU32(message, 0, type);
  putU32(message, 4, pid);
  putU64(message, 8, size);
  return message;
}

/// An 80-byte registration of `address` for `pid`.
inline Bytes registration(uint32_t pid, const std::string& address) {
  Bytes message = request(4, pid, 80);
  std::memcpy(message.data() + 16, address.c_str(), address.size() + 1);
  return message;
}

}  // namespace jextest
