// A capture in the making: packets with their times, and what is known of each because it was made
// that way.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "frames.h"

namespace jexdata {

/// A parser's reason for a frame that the capture has not kept whole.
inline constexpr const char* kCut = "frame was cut by the capture";

enum class Format : uint8_t { kPcapMicroseconds, kPcapNanoseconds, kPcapng };

class Recording {
 public:
  struct Packet {
    int64_t time_ns = 0;  // since 1970
    Bytes bytes;
    uint32_t wire_size = 0;
    std::string kind;      // "ipv4 tcp", "arp", "other", ...: the outermost headers
    bool refused = false;  // kind is the reason then for which no switch can forward the frame
  };

  /// Times are nanoseconds since the capture's begin.
  void add(int64_t time_ns, Bytes frame, const std::string& kind);
  void addRefused(int64_t time_ns, Bytes frame, const std::string& reason);
  /// The capture keeps the first `kept` bytes.
  void addCut(int64_t time_ns, Bytes frame, size_t kept);

  /// Brings the packets into the order of their times.
  void sort();
  std::vector<Packet>& packets() { return packets_; }
  const std::vector<Packet>& packets() const { return packets_; }

  /// The content of a capture file.
  std::string file(Format format) const;

 private:
  std::vector<Packet> packets_;
};

}  // namespace jexdata
