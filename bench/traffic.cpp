#include "traffic.h"

#include <filesystem>
#include <random>
#include <stdexcept>

#include "model/port/capture_file.h"

namespace bench {
namespace {

using jxmodel::CaptureReader;
using jxpipelinetest::Prefix;

constexpr size_t kMacBytes = 6;

uint64_t macAt(const uint8_t* bytes) {
  uint64_t mac = 0;
  for (size_t i = 0; i < kMacBytes; ++i) mac = mac << 8 | bytes[i];
  return mac;
}

}  // namespace

Traffic Traffic::captures(const std::string& folder) {
  std::set<std::string> files;
  for (const auto& file : std::filesystem::directory_iterator(folder)) files.insert(file.path());
  Traffic traffic;
  for (const std::string& file : files) {
    std::string error;
    const auto reader = CaptureReader::open(file, &error);
    if (reader == nullptr) throw std::runtime_error(error);
    jxmodel::PacketBuffer packet;
    CaptureReader::Result result;
    while ((result = reader->next(&packet, &error)) == CaptureReader::Result::kPacket) {
      traffic.add(packet.data(), packet.size(), packet.wireLength());
    }
    if (result == CaptureReader::Result::kFailed) throw std::runtime_error(error);
  }
  return traffic;
}

Traffic Traffic::acrossRoutes(const std::vector<Prefix>& routes, size_t count) {
  std::mt19937 random(3);  // the same packets each time
  Traffic traffic;
  while (traffic.frames_.size() < count) {
    const Prefix& route = routes[random() % routes.size()];
    const auto bits = static_cast<uint32_t>(random());
    const uint32_t dst = route.address | (bits & ~jxpipelinetest::maskOf(route.length));
    const auto frame = jxpipelinetest::ipv4Frame({bits, dst, 6, static_cast<uint16_t>(bits), 80});
    traffic.add(frame.data(), frame.size(), frame.size());
  }
  return traffic;
}

void Traffic::add(const uint8_t* data, size_t size, size_t wire_size) {
  frames_.push_back(
      {original_.size(), static_cast<uint32_t>(size), static_cast<uint32_t>(wire_size)});
  original_.insert(original_.end(), data, data + size);
}

std::set<uint64_t> Traffic::macs() const {
  std::set<uint64_t> macs;
  for (const Frame& frame : frames_) {
    if (frame.size < 2 * kMacBytes) continue;
    macs.insert(macAt(original_.data() + frame.offset));
    macs.insert(macAt(original_.data() + frame.offset + kMacBytes));
  }
  return macs;
}

}  // namespace bench
