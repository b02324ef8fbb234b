// The capture file that switchctl writes.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "switch.pb.h"

namespace switchctl {

/// A pcap file with times in nanoseconds, made anew. Throws CallError, saying which file and why,
/// where it cannot be written.
class CaptureOut {
 public:
  explicit CaptureOut(const std::string& path);
  ~CaptureOut();

  void write(const jx::control::v1::CapturedPackets::Packet& packet);
  /// All that was written is in the file.
  void flush();
  uint64_t packets() const { return packets_; }

 private:
  struct Handle;
  [[noreturn]] void fail() const;

  const std::string path_;
  const std::unique_ptr<Handle> handle_;
  uint64_t packets_ = 0;
};

}  // namespace switchctl
