#include "capture_out.h"

#include <pcap/pcap.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

#include "client.h"

namespace switchctl {
namespace {

constexpr int64_t kNanosecondsPerSecond = 1'000'000'000;
constexpr int kLongestFrame = 262144;  // what other tools take for the limit

}  // namespace

struct CaptureOut::Handle {
  pcap_t* format = nullptr;
  pcap_dumper_t* file = nullptr;
  ~Handle() {
    if (file != nullptr) pcap_dump_close(file);
    if (format != nullptr) pcap_close(format);
  }
};

CaptureOut::CaptureOut(const std::string& path) : path_(path), handle_(std::make_unique<Handle>()) {
  handle_->format =
      pcap_open_dead_with_tstamp_precision(DLT_EN10MB, kLongestFrame, PCAP_TSTAMP_PRECISION_NANO);
  if (handle_->format == nullptr) throw CallError("cannot write " + path_ + ": no memory");
  std::FILE* const file = std::fopen(path_.c_str(), "wbe");
  if (file == nullptr) fail();
  handle_->file = pcap_dump_fopen(handle_->format, file);
  if (handle_->file != nullptr) return;
  std::fclose(file);
  throw CallError("cannot write " + path_ + ": " + pcap_geterr(handle_->format));
}

CaptureOut::~CaptureOut() = default;

void CaptureOut::write(const jx::control::v1::CapturedPackets::Packet& packet) {
  pcap_pkthdr header{};
  header.ts.tv_sec = packet.time_ns() / kNanosecondsPerSecond;
  header.ts.tv_usec = packet.time_ns() % kNanosecondsPerSecond;  // nanoseconds in such a file
  header.caplen = static_cast<uint32_t>(packet.data().size());
  header.len = packet.wire_length();
  pcap_dump(reinterpret_cast<u_char*>(handle_->file), &header,
            reinterpret_cast<const u_char*>(packet.data().data()));
  ++packets_;
}

void CaptureOut::flush() {
  if (pcap_dump_flush(handle_->file) != 0) fail();
}

/// With errno set.
void CaptureOut::fail() const {
  throw CallError("cannot write " + path_ + ": " + std::generic_category().message(errno));
}

}  // namespace switchctl
