// Keys as words of 8 bytes, the last one filled up with zeros: packets are masked and hashed a word
// at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace jxmodel {

constexpr size_t wordsOf(size_t bytes) { return (bytes + 7) / 8; }

/// 1 to 7 bytes as a word: its first ones, zeros behind them. Without a call for a copy of a length
/// that is not known: the first and the last bytes are read together, those in both come twice.
inline uint64_t shortWord(const uint8_t* bytes, size_t count) {
  if (count >= 4) {
    uint32_t first = 0, last = 0;
    std::memcpy(&first, bytes, sizeof first);
    std::memcpy(&last, bytes + count - sizeof last, sizeof last);
    return first | uint64_t{last} << 8 * (count - sizeof last);
  }
  if (count == 1) return *bytes;
  uint16_t first = 0, last = 0;
  std::memcpy(&first, bytes, sizeof first);
  std::memcpy(&last, bytes + count - sizeof last, sizeof last);
  return first | uint64_t{last} << 8 * (count - sizeof last);
}

/// Whether bytes are the same, word by word: for few bytes, where a call costs more.
inline bool sameBytes(const uint8_t* one, const uint8_t* other, size_t count) {
  for (; count >= sizeof(uint64_t); count -= sizeof(uint64_t)) {
    uint64_t words[2];
    std::memcpy(&words[0], one, sizeof(uint64_t));
    std::memcpy(&words[1], other, sizeof(uint64_t));
    if (words[0] != words[1]) return false;
    one += sizeof(uint64_t);
    other += sizeof(uint64_t);
  }
  return count == 0 || shortWord(one, count) == shortWord(other, count);
}

/// The hash that slots are found by, word by word. All bits of a word reach all bits of the value:
/// a multiplication carries them up, a shift brings them down for the next.
class WordHash {
 public:
  void add(uint64_t word) {
    state_ = (state_ ^ word) * 0x9E37'79B9'7F4A'7C15;
    state_ ^= state_ >> 32;
  }
  uint32_t value() const { return static_cast<uint32_t>((state_ * 0xD6E8'FEB8'6659'FD93) >> 32); }

 private:
  uint64_t state_ = 0x2545'F491'4F6C'DD1D;  // not 0: leading zero words count
};

/// Writes the words under their mask and returns their hash.
inline uint32_t maskAndHash(const uint64_t* words, const uint64_t* mask, size_t count,
                            uint64_t* masked) {
  WordHash hash;
  for (size_t i = 0; i < count; ++i) {
    masked[i] = words[i] & mask[i];
    hash.add(masked[i]);
  }
  return hash.value();
}

/// The hash of the words that the bytes make.
inline uint32_t slotHashOf(const uint8_t* bytes, size_t count) {
  WordHash hash;
  uint64_t word = 0;
  for (; count >= sizeof word; bytes += sizeof word, count -= sizeof word) {
    std::memcpy(&word, bytes, sizeof word);
    hash.add(word);
  }
  if (count != 0) hash.add(shortWord(bytes, count));
  return hash.value();
}

}  // namespace jxmodel
