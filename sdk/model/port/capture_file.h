// Capture files: reading pcap and pcapng, writing pcap.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "model/port/packet_buffer.h"

namespace jxmodel {

/// Reads the packets of a file in the order in which they stand there. One thread.
class CaptureReader {
 public:
  /// Null, with *error saying file and reason, if it is no capture of Ethernet packets.
  static std::unique_ptr<CaptureReader> open(const std::string& path, std::string* error);
  ~CaptureReader();

  enum class Result : uint8_t { kPacket, kEnd, kFailed };
  /// Fills *packet, or says that none is left, or fills *error with file and reason. After kEnd and
  /// kFailed the answer stays the same.
  Result next(PacketBuffer* packet, std::string* error);

  TimeResolution resolution() const { return resolution_; }

 private:
  struct Handle;
  CaptureReader(std::string path, TimeResolution resolution, std::unique_ptr<Handle> handle);

  const std::string path_;
  const TimeResolution resolution_;
  const std::unique_ptr<Handle> handle_;
  Result last_ = Result::kPacket;
  std::string failure_;
};

/// Writes packets with their times. The file starts in microseconds, which every tool reads, and
/// changes to nanoseconds with the first packet whose resolution asks for it: times are never
/// rounded. One thread.
class CaptureWriter {
 public:
  /// Makes the file, or empties it. Null, with *error saying file and reason, if that fails, or if
  /// it is a pipe.
  static std::unique_ptr<CaptureWriter> open(const std::string& path, std::string* error);
  /// Closes the file.
  ~CaptureWriter();

  /// False, with *error filled, if the packet could not be written (the disk is full, say).
  bool write(const PacketBuffer& packet, std::string* error);
  /// Everything written is in the file and can be read by others.
  bool flush(std::string* error);

 private:
  struct Handle;
  CaptureWriter(std::string path, TimeResolution resolution, std::unique_ptr<Handle> handle);
  static std::unique_ptr<Handle> create(const std::string& path, TimeResolution resolution,
                                        std::string* error);
  bool changeToNanoseconds(std::string* error);
  bool fail(std::string* error);

  const std::string path_;
  TimeResolution resolution_;
  std::unique_ptr<Handle> handle_;
  std::string failure_;
};

}  // namespace jxmodel
