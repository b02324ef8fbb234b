#include "recording.h"

#include <algorithm>
#include <utility>

namespace jexdata {
namespace {

constexpr int64_t kCaptureBegin = 1'767'225'600'000'000'000;
constexpr uint32_t kEthernetLink = 1;
constexpr uint32_t kSnapLength = 262144;

/// Little-endian, whatever the machine is.
void add16(std::string* file, uint32_t value) {
  file->push_back(static_cast<char>(value & 0xFF));
  file->push_back(static_cast<char>(value >> 8 & 0xFF));
}

void add32(std::string* file, uint64_t value) {
  add16(file, static_cast<uint32_t>(value & 0xFFFF));
  add16(file, static_cast<uint32_t>(value >> 16 & 0xFFFF));
}

void addBytes(std::string* file, const Bytes& bytes) { file->append(bytes.begin(), bytes.end()); }

std::string pcapFile(const std::vector<Recording::Packet>& packets, bool nanoseconds) {
  std::string file;
  add32(&file, nanoseconds ? 0xa1b23c4d : 0xa1b2c3d4);
  add16(&file, 2);  // version 2.4
  add16(&file, 4);
  add32(&file, 0);
  add32(&file, 0);
  add32(&file, kSnapLength);
  add32(&file, kEthernetLink);
  for (const Recording::Packet& packet : packets) {
    const auto time = static_cast<uint64_t>(packet.time_ns);
    add32(&file, time / 1'000'000'000);
    add32(&file, time % 1'000'000'000 / (nanoseconds ? 1 : 1000));
    add32(&file, packet.bytes.size());
    add32(&file, packet.wire_size);
    addBytes(&file, packet.bytes);
  }
  return file;
}

/// A block: its type, its length before and after the content, the content padded to 32 bits.
void addBlock(std::string* file, uint32_t type, std::string content) {
  while (content.size() % 4 != 0) content.push_back('\0');
  const size_t size = content.size() + 12;
  add32(file, type);
  add32(file, size);
  *file += content;
  add32(file, size);
}

std::string pcapngFile(const std::vector<Recording::Packet>& packets) {
  std::string file, section, interface;
  add32(&section, 0x1A2B3C4D);  // byte order
  add16(&section, 1);           // version 1.0
  add16(&section, 0);
  add32(&section, 0xFFFFFFFF);  // the section's length is not given
  add32(&section, 0xFFFFFFFF);
  addBlock(&file, 0x0A0D0D0A, section);
  add16(&interface, kEthernetLink);
  add16(&interface, 0);
  add32(&interface, kSnapLength);
  add16(&interface, 9);  // option: resolution of times
  add16(&interface, 1);
  add32(&interface, 9);  // 10^-9 s, and padding
  add32(&interface, 0);  // end of options
  addBlock(&file, 1, interface);
  for (const Recording::Packet& packet : packets) {
    const auto time = static_cast<uint64_t>(packet.time_ns);
    std::string block;
    add32(&block, 0);  // interface
    add32(&block, time >> 32);
    add32(&block, time & 0xFFFFFFFF);
    add32(&block, packet.bytes.size());
    add32(&block, packet.wire_size);
    addBytes(&block, packet.bytes);
    addBlock(&file, 6, block);
  }
  return file;
}

}  // namespace

void Recording::add(int64_t time_ns, Bytes frame, const std::string& kind) {
  const auto size = static_cast<uint32_t>(frame.size());
  packets_.push_back({kCaptureBegin + time_ns, std::move(frame), size, kind, false});
}

void Recording::addRefused(int64_t time_ns, Bytes frame, const std::string& reason) {
  add(time_ns, std::move(frame), reason);
  packets_.back().refused = true;
}

void Recording::addCut(int64_t time_ns, Bytes frame, size_t kept) {
  addRefused(time_ns, std::move(frame), kCut);
  packets_.back().bytes.resize(kept);
}

void Recording::sort() {
  std::stable_sort(packets_.begin(), packets_.end(),
                   [](const Packet& a, const Packet& b) { return a.time_ns < b.time_ns; });
}

std::string Recording::file(Format format) const {
  if (format == Format::kPcapng) return pcapngFile(packets_);
  return pcapFile(packets_, format == Format::kPcapNanoseconds);
}

}  // namespace jexdata
