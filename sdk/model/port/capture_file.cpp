#include "model/port/capture_file.h"

#include <pcap/pcap.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <limits>
#include <optional>

namespace jxmodel {
namespace {

constexpr int kLongestPacket = 262'144;  // what libpcap itself takes for the longest

std::string systemError() { return std::strerror(errno); }

// --- the resolution of a file, which libpcap scales away

using Word = std::array<uint8_t, 4>;

std::optional<uint32_t> readWord(std::FILE* file, bool swapped) {
  Word word;
  if (std::fread(word.data(), word.size(), 1, file) != 1) return std::nullopt;
  if (swapped) std::reverse(word.begin(), word.end());
  uint32_t value;
  std::memcpy(&value, word.data(), sizeof value);
  return value;
}

constexpr uint32_t kPcapNanoseconds = 0xa1b23c4d;
constexpr uint32_t kPcapNanosecondsSwapped = 0x4d3cb2a1;
constexpr uint32_t kPcapng = 0x0a0d0d0a;
constexpr uint32_t kPcapngOrder = 0x1a2b3c4d;
constexpr uint32_t kPcapngInterface = 1, kPcapngOldPacket = 2, kPcapngSimplePacket = 3,
                   kPcapngPacket = 6;
constexpr uint16_t kOptionResolution = 9;

/// Whether an interface description (the bytes behind its fixed part) says that times are finer
/// than microseconds.
bool finerThanMicroseconds(const uint8_t* options, size_t size, bool swapped) {
  const auto half = [swapped](const uint8_t* at) {
    uint16_t value;
    std::memcpy(&value, at, sizeof value);
    return swapped ? static_cast<uint16_t>(value << 8 | value >> 8) : value;
  };
  for (size_t at = 0; at + 4 <= size;) {
    const uint16_t code = half(options + at);
    const size_t length = half(options + at + 2);
    if (code == 0 || at + 4 + length > size) return false;
    if (code == kOptionResolution && length >= 1) {
      const uint8_t exponent = options[at + 4] & 0x7f;
      const bool of_two = (options[at + 4] & 0x80) != 0;
      return exponent > (of_two ? 19 : 6);  // 2^-19 s is the last one above a microsecond
    }
    at += 4 + (length + 3) / 4 * 4;
  }
  return false;
}

bool isPacket(uint32_t block_type) {
  return block_type == kPcapngOldPacket || block_type == kPcapngSimplePacket ||
         block_type == kPcapngPacket;
}

/// Walks over the blocks up to the first packet; `file` stands behind the first word. A file that
/// is broken here is refused by libpcap afterwards, with a better reason. Interfaces that are
/// described further on are told by the times of their packets.
TimeResolution pcapngResolution(std::FILE* file) {
  readWord(file, false);  // length of the section header, known once the byte order is
  const std::optional<uint32_t> order = readWord(file, false);
  if (!order) return TimeResolution::kMicrosecond;
  const bool swapped = *order != kPcapngOrder;
  std::fseek(file, 4, SEEK_SET);
  uint32_t type = kPcapng;
  for (long start = 0; !isPacket(type);) {
    const std::optional<uint32_t> length = readWord(file, swapped);
    if (!length || *length < 12 || *length > (1U << 20)) break;
    if (type == kPcapngInterface && *length > 20) {
      std::string options(*length - 20, '\0');
      std::fseek(file, 8, SEEK_CUR);  // link type and snap length
      if (std::fread(options.data(), options.size(), 1, file) != 1) break;
      if (finerThanMicroseconds(reinterpret_cast<const uint8_t*>(options.data()), options.size(),
                                swapped)) {
        return TimeResolution::kNanosecond;
      }
    }
    start += static_cast<long>(*length);
    if (std::fseek(file, start, SEEK_SET) != 0) break;
    const std::optional<uint32_t> next = readWord(file, swapped);
    if (!next) break;
    type = *next;
  }
  return TimeResolution::kMicrosecond;
}

/// Nanoseconds since 1970, at most as many as fit. Only in a file of the old form are there times
/// below 0: libpcap takes its 32 bits, which last until 2106, for a number with a sign.
int64_t timeOf(const timeval& stamp) {
  constexpr int64_t kLast = std::numeric_limits<int64_t>::max();
  int64_t second = stamp.tv_sec;
  if (second < 0) second &= 0xFFFFFFFF;
  if (second >= kLast / kNsPerSecond) return kLast;
  // The second member holds nanoseconds, as asked for when the file was opened.
  return second * kNsPerSecond + std::clamp<int64_t>(stamp.tv_usec, 0, kNsPerSecond - 1);
}

/// Leaves `file` at its start.
TimeResolution findResolution(std::FILE* file) {
  TimeResolution found = TimeResolution::kMicrosecond;
  const uint32_t magic = readWord(file, false).value_or(0);  // 0: no capture file
  if (magic == kPcapNanoseconds || magic == kPcapNanosecondsSwapped) {
    found = TimeResolution::kNanosecond;
  } else if (magic == kPcapng) {
    found = pcapngResolution(file);
  }
  std::rewind(file);
  return found;
}

}  // namespace

// --- reading

struct CaptureReader::Handle {
  pcap_t* pcap;
  explicit Handle(pcap_t* opened) : pcap(opened) {}
  ~Handle() { pcap_close(pcap); }  // closes the file too
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
};

CaptureReader::CaptureReader(std::string path, TimeResolution resolution,
                             std::unique_ptr<Handle> handle)
    : path_(std::move(path)), resolution_(resolution), handle_(std::move(handle)) {}

CaptureReader::~CaptureReader() = default;

std::unique_ptr<CaptureReader> CaptureReader::open(const std::string& path, std::string* error) {
  const auto refuse = [&](const std::string& reason) {
    *error = "cannot read capture file `" + path + "`: " + reason;
    return nullptr;
  };
  if (!std::filesystem::exists(path)) return refuse("it does not exist");
  if (!std::filesystem::is_regular_file(path)) return refuse("it is not a regular file");
  std::FILE* const file = std::fopen(path.c_str(), "rbe");
  if (file == nullptr) return refuse(systemError());
  const TimeResolution resolution = findResolution(file);
  char reason[PCAP_ERRBUF_SIZE] = "";
  pcap_t* const pcap =
      pcap_fopen_offline_with_tstamp_precision(file, PCAP_TSTAMP_PRECISION_NANO, reason);
  if (pcap == nullptr) {
    std::fclose(file);
    return refuse(reason);
  }
  auto handle = std::make_unique<Handle>(pcap);
  if (const int link = pcap_datalink(pcap); link != DLT_EN10MB) {
    const char* const name = pcap_datalink_val_to_name(link);
    return refuse("its packets are of link type " +
                  (name != nullptr ? std::string(name) : std::to_string(link)) +
                  ", ports take Ethernet only");
  }
  return std::unique_ptr<CaptureReader>(new CaptureReader(path, resolution, std::move(handle)));
}

CaptureReader::Result CaptureReader::next(PacketBuffer* packet, std::string* error) {
  pcap_pkthdr* header = nullptr;
  const u_char* data = nullptr;
  if (last_ == Result::kPacket) {
    const int result = pcap_next_ex(handle_->pcap, &header, &data);
    if (result == PCAP_ERROR_BREAK) {
      last_ = Result::kEnd;
    } else if (result != 1) {
      last_ = Result::kFailed;
      failure_ = "cannot read capture file `" + path_ + "`: " + pcap_geterr(handle_->pcap);
    }
  }
  if (last_ == Result::kFailed) *error = failure_;
  if (last_ != Result::kPacket) return last_;
  *packet = PacketBuffer(data, header->caplen);
  packet->setWireLength(header->len);
  const int64_t time = timeOf(header->ts);
  packet->setTime(time, time % 1000 != 0 ? TimeResolution::kNanosecond : resolution_);
  return Result::kPacket;
}

// --- writing

struct CaptureWriter::Handle {
  pcap_t* pcap;
  pcap_dumper_t* dumper;
  Handle(pcap_t* opened, pcap_dumper_t* to) : pcap(opened), dumper(to) {}
  ~Handle() {
    if (dumper != nullptr) pcap_dump_close(dumper);
    pcap_close(pcap);
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  /// False, with errno set, if it cannot be written.
  bool write(const PacketBuffer& packet, TimeResolution resolution) {
    const int64_t time = std::max<int64_t>(packet.timeNs(), 0);
    const int64_t second = time / kNsPerSecond;
    const int64_t rest = time % kNsPerSecond;
    pcap_pkthdr header{};
    header.ts.tv_sec = second;
    header.ts.tv_usec = resolution == TimeResolution::kNanosecond ? rest : rest / 1000;
    header.caplen = static_cast<bpf_u_int32>(packet.size());
    header.len = static_cast<bpf_u_int32>(packet.wireLength());
    pcap_dump(reinterpret_cast<u_char*>(dumper), &header, packet.data());
    return std::ferror(pcap_dump_file(dumper)) == 0;
  }
  bool flush() { return pcap_dump_flush(dumper) == 0; }
};

CaptureWriter::CaptureWriter(std::string path, TimeResolution resolution,
                             std::unique_ptr<Handle> handle)
    : path_(std::move(path)), resolution_(resolution), handle_(std::move(handle)) {}

CaptureWriter::~CaptureWriter() = default;

std::unique_ptr<CaptureWriter::Handle> CaptureWriter::create(const std::string& path,
                                                             TimeResolution resolution,
                                                             std::string* error) {
  const auto precision = resolution == TimeResolution::kNanosecond ? PCAP_TSTAMP_PRECISION_NANO
                                                                   : PCAP_TSTAMP_PRECISION_MICRO;
  const auto refuse = [&](const std::string& reason) {
    *error = "cannot write capture file `" + path + "`: " + reason;
    return nullptr;
  };
  // Who writes to a pipe waits for who reads it, and a port must not.
  std::error_code ignored;
  if (std::filesystem::is_fifo(path, ignored)) return refuse("it is a pipe");
  std::FILE* const file = std::fopen(path.c_str(), "wbe");
  if (file == nullptr) return refuse(systemError());
  auto handle = std::make_unique<Handle>(
      pcap_open_dead_with_tstamp_precision(DLT_EN10MB, kLongestPacket, precision), nullptr);
  handle->dumper = pcap_dump_fopen(handle->pcap, file);
  if (handle->dumper != nullptr) return handle;
  std::fclose(file);
  return refuse(pcap_geterr(handle->pcap));
}

std::unique_ptr<CaptureWriter> CaptureWriter::open(const std::string& path, std::string* error) {
  // What is written to a device (/dev/null, say) cannot be changed afterwards.
  std::error_code ignored;
  const bool changeable =
      !std::filesystem::exists(path, ignored) || std::filesystem::is_regular_file(path, ignored);
  const TimeResolution resolution =
      changeable ? TimeResolution::kMicrosecond : TimeResolution::kNanosecond;
  auto handle = create(path, resolution, error);
  if (handle == nullptr) return nullptr;
  std::unique_ptr<CaptureWriter> writer(new CaptureWriter(path, resolution, std::move(handle)));
  if (!writer->flush(error)) return nullptr;  // without packets too it is a capture file
  return writer;
}

bool CaptureWriter::write(const PacketBuffer& packet, std::string* error) {
  const bool finer = packet.resolution() > resolution_;
  if (finer && !changeToNanoseconds(error)) return false;
  return handle_->write(packet, resolution_) || fail(error);
}

bool CaptureWriter::flush(std::string* error) { return handle_->flush() || fail(error); }

/// Of all failures the first one says why: later ones only meet what it left. With errno set.
bool CaptureWriter::fail(std::string* error) {
  if (failure_.empty()) failure_ = "cannot write capture file `" + path_ + "`: " + systemError();
  *error = failure_;
  return false;
}

/// Writes what is there once more beside the file, then puts that in its place. At most once.
bool CaptureWriter::changeToNanoseconds(std::string* error) {
  if (!flush(error)) return false;
  const std::string beside = path_ + ".nanoseconds";
  const auto reader = CaptureReader::open(path_, error);
  if (reader == nullptr) return false;
  auto finer = create(beside, TimeResolution::kNanosecond, error);
  if (finer == nullptr) return false;
  bool written = true;
  PacketBuffer packet;
  auto result = CaptureReader::Result::kPacket;
  while (written && (result = reader->next(&packet, error)) == CaptureReader::Result::kPacket) {
    written = finer->write(packet, TimeResolution::kNanosecond);
  }
  // Nothing takes the place of the file that is not all there.
  const bool whole = written && result == CaptureReader::Result::kEnd;
  if (!whole || !finer->flush() || std::rename(beside.c_str(), path_.c_str()) != 0) {
    if (result != CaptureReader::Result::kFailed) fail(error);
    std::remove(beside.c_str());
    return false;
  }
  handle_ = std::move(finer);
  resolution_ = TimeResolution::kNanosecond;
  return true;
}

}  // namespace jxmodel
