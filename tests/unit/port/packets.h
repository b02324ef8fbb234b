// Packets and capture files for the tests of ports.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "model/port/capture_file.h"

namespace jxmodel::test {

using Bytes = std::vector<uint8_t>;

/// A frame of an unused type whose payload is `mark`, again and again.
inline Bytes frameOf(uint8_t mark, size_t size = 60) {
  Bytes frame(size, mark);
  for (size_t i = 0; i < 6; ++i) frame[i] = 0xff;
  const uint8_t rest[] = {0x02, 0, 0, 0, 0, 1, 0x88, 0xb5};
  std::copy(std::begin(rest), std::end(rest), frame.begin() + 6);
  return frame;
}

inline PacketBuffer packetOf(const Bytes& bytes, int64_t time_ns = 0,
                             TimeResolution resolution = TimeResolution::kMicrosecond) {
  PacketBuffer packet(bytes.data(), bytes.size());
  packet.setTime(time_ns, resolution);
  return packet;
}

inline Bytes bytesOf(const PacketBuffer& packet) {
  return Bytes(packet.data(), packet.data() + packet.size());
}

/// A directory of this test alone, removed at its end.
class Folder {
 public:
  Folder() {
    std::string name = (std::filesystem::temp_directory_path() / "port-test-XXXXXX").string();
    path_ = mkdtemp(name.data());
  }
  ~Folder() { std::filesystem::remove_all(path_); }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

inline void writeCapture(const std::string& path, const std::vector<PacketBuffer>& packets) {
  std::string error;
  const auto writer = CaptureWriter::open(path, &error);
  ASSERT_NE(writer, nullptr) << error;
  for (const PacketBuffer& packet : packets) ASSERT_TRUE(writer->write(packet, &error)) << error;
}

inline std::vector<PacketBuffer> readCapture(const std::string& path) {
  std::vector<PacketBuffer> packets;
  std::string error;
  const auto reader = CaptureReader::open(path, &error);
  EXPECT_NE(reader, nullptr) << error;
  if (reader == nullptr) return packets;
  PacketBuffer packet;
  CaptureReader::Result result;
  while ((result = reader->next(&packet, &error)) == CaptureReader::Result::kPacket) {
    packets.push_back(std::move(packet));
  }
  EXPECT_EQ(result, CaptureReader::Result::kEnd) << error;
  return packets;
}

}  // namespace jxmodel::test
