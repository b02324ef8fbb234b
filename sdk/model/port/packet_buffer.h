// The bytes of one packet on its way through the switch.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <utility>

namespace jxmodel {

constexpr int64_t kNsPerSecond = 1'000'000'000;

/// What the time stamp of a packet was measured in.
enum class TimeResolution : uint8_t { kMicrosecond, kNanosecond };

/// Owns the bytes. There is room in front of them, so that a tag or a header can be put there
/// without moving the packet. Moves are cheap; a copy has to be asked for (`copy`).
class PacketBuffer {
 public:
  static constexpr size_t kHeadroom = 64;

  PacketBuffer() = default;
  /// `size` bytes, not initialised.
  explicit PacketBuffer(size_t size)
      : bytes_(new uint8_t[kHeadroom + size]), size_(size), wire_length_(size) {}
  PacketBuffer(const uint8_t* data, size_t size) : PacketBuffer(size) {
    if (size != 0) std::memcpy(this->data(), data, size);
  }
  PacketBuffer(PacketBuffer&& other) noexcept { *this = std::move(other); }
  PacketBuffer& operator=(PacketBuffer&& other) noexcept {
    bytes_ = std::move(other.bytes_);
    start_ = std::exchange(other.start_, kHeadroom);
    size_ = std::exchange(other.size_, 0);
    wire_length_ = std::exchange(other.wire_length_, 0);
    time_ns_ = other.time_ns_;
    resolution_ = other.resolution_;
    return *this;
  }

  PacketBuffer copy() const {
    PacketBuffer made(data(), size_);
    made.wire_length_ = wire_length_;
    made.setTime(time_ns_, resolution_);
    return made;
  }

  uint8_t* data() { return bytes_.get() + start_; }
  const uint8_t* data() const { return bytes_.get() + start_; }
  size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }

  /// The length that the packet has on the wire; more than `size` if a capture cut it short.
  size_t wireLength() const { return wire_length_; }
  void setWireLength(size_t length) { wire_length_ = std::max(length, size_); }

  /// Nanoseconds since 1970.
  int64_t timeNs() const { return time_ns_; }
  TimeResolution resolution() const { return resolution_; }
  void setTime(int64_t time_ns, TimeResolution resolution) {
    time_ns_ = time_ns;
    resolution_ = resolution;
  }

  size_t headroom() const { return start_; }
  /// Makes the packet `count` bytes longer at its front and returns the new front, not initialised.
  /// Needs `count` bytes of headroom.
  uint8_t* prepend(size_t count) {
    start_ -= count;
    size_ += count;
    wire_length_ += count;
    return data();
  }
  /// Takes the first `count` bytes away; they become headroom.
  void trimFront(size_t count) {
    start_ += count;
    size_ -= count;
    wire_length_ -= count;
  }
  /// Leaves the first `size` bytes, if there are more.
  void trimBack(size_t size) {
    size_ = std::min(size_, size);
    wire_length_ = size_;
  }

 private:
  std::unique_ptr<uint8_t[]> bytes_;
  size_t start_ = kHeadroom;
  size_t size_ = 0;
  size_t wire_length_ = 0;
  int64_t time_ns_ = 0;
  TimeResolution resolution_ = TimeResolution::kNanosecond;
};

}  // namespace jxmodel
