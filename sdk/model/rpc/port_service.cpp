// The calls of the control service about ports and packets.
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "model/device/device.h"
#include "model/port/capture_file.h"
#include "model/rpc/physical_device.h"
#include "model/rpc/service.h"
#include "model/switch/switch.h"

namespace jxmodel::control {
namespace {

namespace pb = jx::control::v1;
using grpc::StatusCode;

/// A capture is kept in memory while it is read.
constexpr uint64_t kMaxCaptureBytes = uint64_t{1} << 30;
constexpr size_t kPacketsPerBurst = 256;
constexpr size_t kBytesPerMessage = 1 << 20;

grpc::Status noPort(uint32_t port) {
  return {StatusCode::NOT_FOUND, "there is no port " + std::to_string(port)};
}

pb::Port::Input inputOf(InputState state) {
  switch (state) {
    case InputState::kNone:
      return pb::Port::INPUT_NONE;
    case InputState::kReading:
      return pb::Port::INPUT_READING;
    case InputState::kExhausted:
      return pb::Port::INPUT_EXHAUSTED;
    case InputState::kFailed:
      return pb::Port::INPUT_FAILED;
  }
  return pb::Port::INPUT_NONE;
}

void describe(const PhysicalDevice& place, const PortStatus& status, pb::Port* port) {
  port->set_device(place.device->id());
  port->set_number(status.spec.number);
  port->set_spec(toString(status.spec));
  port->set_enabled(status.enabled);
  port->set_carrier(status.carrier);
  port->set_input(inputOf(status.input));
  port->set_error(status.error);
  const PortCounters& counters = status.counters;
  port->set_packets_in(counters.packets_in);
  port->set_bytes_in(counters.bytes_in);
  port->set_packets_out(counters.packets_out);
  port->set_bytes_out(counters.bytes_out);
  port->set_dropped_in(counters.dropped_in);
  port->set_dropped_out(counters.dropped_out);
  port->set_receive_errors(counters.receive_errors);
  port->set_send_errors(counters.send_errors);
}

/// The state of an attached port.
grpc::Status describe(const PhysicalDevice& place, uint32_t number, pb::Port* port) {
  const std::optional<PortStatus> status = place.packets->ports().status(number);
  if (!status) return noPort(number);
  describe(place, *status, port);
  return grpc::Status::OK;
}

void addReason(const char* reason, uint64_t packets, pb::PacketCounts* out) {
  if (packets == 0) return;
  pb::PacketCounts::Reason* const added = out->add_drop_reasons();
  added->set_reason(reason);
  added->set_packets(packets);
}

void describe(const Switch& from, pb::PacketCounts* out) {
  const PipelineCounts counts = from.pipeline().counts();
  if (const Program* const program = from.pipeline().program()) out->set_program(program->name);
  out->set_received(counts.received);
  out->set_received_bytes(counts.received_bytes);
  out->set_forwarded(counts.forwarded);
  out->set_flooded(counts.flooded);
  out->set_dropped(counts.received - counts.forwarded - counts.flooded);
  for (size_t i = 0; i < kDropReasonCount; ++i) {
    const auto reason = static_cast<DropReason>(i);
    if (reason != DropReason::kMalformed) addReason(reasonOf(reason), counts.dropped[i], out);
  }
  for (size_t i = 0; i < kParseStatusCount; ++i) {
    addReason(reasonOf(static_cast<ParseStatus>(i)), counts.malformed[i], out);
  }
  out->set_sent_nowhere(from.sentNowhere());
  out->set_bad_counter_indices(counts.bad_counter_indices);
  for (const PipelineCounts::Happened& happened : counts.happened) {
    pb::PacketCounts::Happened* const added = out->add_happened();
    added->set_what(happened.what);
    added->set_times(happened.times);
  }
}

/// A capture that comes over the wire, kept in a file without a name.
class Upload {
 public:
  Upload() : fd_(memfd_create("capture", MFD_CLOEXEC)) {}
  ~Upload() {
    if (fd_ >= 0) close(fd_);
  }
  Upload(const Upload&) = delete;
  Upload& operator=(const Upload&) = delete;

  /// Takes the whole stream, whose first message it leaves in *first.
  template <typename Stream>
  grpc::Status receive(Stream* stream, pb::CaptureUpload* first) {
    if (!stream->Read(first)) return {StatusCode::INVALID_ARGUMENT, "an upload without a message"};
    if (first->port() >= kMaxPorts) {
      return {StatusCode::INVALID_ARGUMENT, "port numbers end at " + std::to_string(kMaxPorts - 1)};
    }
    grpc::Status status = append(first->data());
    for (pb::CaptureUpload next; status.ok() && stream->Read(&next);) status = append(next.data());
    return status;
  }

  /// Null, with *status saying why, if it is no capture.
  std::unique_ptr<CaptureReader> open(grpc::Status* status) const {
    std::string error;
    auto reader = CaptureReader::open(path(), &error);
    if (reader == nullptr) *status = broken(error);
    return reader;
  }

  /// What the reader says, without the file's name, which means nothing to the caller.
  grpc::Status broken(std::string reason) const {
    const size_t name = reason.find(path());
    if (name != std::string::npos) reason.replace(name, path().size(), "upload");
    return {StatusCode::INVALID_ARGUMENT, reason};
  }

 private:
  std::string path() const { return "/proc/self/fd/" + std::to_string(fd_); }

  grpc::Status append(const std::string& data) {
    size_ += data.size();
    if (size_ > kMaxCaptureBytes) {
      return {StatusCode::RESOURCE_EXHAUSTED, "the capture has more than " +
                                                  std::to_string(kMaxCaptureBytes >> 20) +
                                                  " MiB; attach it as a port instead"};
    }
    for (size_t done = 0; done < data.size();) {
      const ssize_t written = write(fd_, data.data() + done, data.size() - done);
      if (written < 0 && errno == EINTR) continue;
      if (written < 0) return {StatusCode::INTERNAL, std::string("capture: ") + strerror(errno)};
      done += static_cast<size_t>(written);
    }
    return grpc::Status::OK;
  }

  const int fd_;
  uint64_t size_ = 0;
};

void describe(const Tap::Seen& seen, pb::CapturedPackets::Packet* out) {
  const PacketBuffer& packet = seen.packet;
  out->set_time_ns(packet.timeNs());
  out->set_wire_length(static_cast<uint32_t>(packet.wireLength()));
  out->set_data(packet.data(), packet.size());
  out->set_leaving(seen.leaving);
}

TapDirection directionOf(pb::CaptureRequest::Direction direction) {
  switch (direction) {
    case pb::CaptureRequest::DIRECTION_IN:
      return TapDirection::kIn;
    case pb::CaptureRequest::DIRECTION_OUT:
      return TapDirection::kOut;
    default:
      return TapDirection::kBoth;
  }
}

/// Sends packets in messages that no client finds too long; at most *left of them.
bool sendPackets(const Tap::Harvest& harvest, uint64_t* left,
                 grpc::ServerWriter<pb::CapturedPackets>* writer) {
  pb::CapturedPackets message;
  size_t bytes = 0;
  const auto flush = [&] {
    message.set_lost(harvest.lost);
    const bool sent = writer->Write(message);
    message.clear_packets();
    bytes = 0;
    return sent;
  };
  for (const Tap::Seen& seen : harvest.packets) {
    if (*left == 0) break;
    --*left;
    describe(seen, message.add_packets());
    bytes += seen.packet.size();
    if (bytes >= kBytesPerMessage && !flush()) return false;
  }
  return message.packets_size() == 0 || flush();
}

}  // namespace

grpc::Status SwitchService::AddPort(grpc::ServerContext* /*context*/,
                                    const pb::AddPortRequest* request, pb::Port* reply) {
  PhysicalDevice place;
  grpc::Status found = find(*request, &place);
  if (!found.ok()) return found;
  PortSpec spec;
  std::string error;
  if (!parsePortSpec(request->spec(), &spec, &error)) return {StatusCode::INVALID_ARGUMENT, error};
  const bool taken = place.packets->ports().status(spec.number).has_value();
  if (!place.packets->ports().attach(spec, &error)) {
    return {taken ? StatusCode::ALREADY_EXISTS : StatusCode::FAILED_PRECONDITION, error};
  }
  return describe(place, spec.number, reply);
}

grpc::Status SwitchService::DeletePort(grpc::ServerContext* /*context*/,
                                       const pb::PortRequest* request, pb::Port* reply) {
  PhysicalDevice place;
  grpc::Status found = find(*request, &place);
  if (found.ok()) found = describe(place, request->port(), reply);
  if (!found.ok()) return found;
  return place.packets->ports().detach(request->port()) ? grpc::Status::OK
                                                        : noPort(request->port());
}

grpc::Status SwitchService::ListPorts(grpc::ServerContext* /*context*/,
                                      const pb::ListPortsRequest* request,
                                      pb::ListPortsReply* reply) {
  PhysicalDevice place;
  grpc::Status found = find(*request, &place);
  if (!found.ok()) return found;
  for (const PortStatus& status : place.packets->ports().list()) {
    describe(place, status, reply->add_ports());
  }
  describe(*place.packets, reply->mutable_packets());
  return grpc::Status::OK;
}

grpc::Status SwitchService::SetPort(grpc::ServerContext* /*context*/,
                                    const pb::SetPortRequest* request, pb::Port* reply) {
  PhysicalDevice place;
  grpc::Status found = find(*request, &place);
  if (!found.ok()) return found;
  if (!place.packets->ports().setEnabled(request->port(), request->enabled())) {
    return noPort(request->port());
  }
  return describe(place, request->port(), reply);
}

grpc::Status SwitchService::Inject(grpc::ServerContext* context,
                                   grpc::ServerReader<pb::CaptureUpload>* upload,
                                   pb::InjectReply* reply) {
  Upload capture;
  pb::CaptureUpload first;
  PhysicalDevice place;
  grpc::Status status = capture.receive(upload, &first);
  if (status.ok()) status = find(first, &place);
  if (!status.ok()) return status;
  const std::unique_ptr<CaptureReader> reader = capture.open(&status);
  if (reader == nullptr) return status;

  auto result = CaptureReader::Result::kPacket;
  std::string error;
  while (result == CaptureReader::Result::kPacket && !context->IsCancelled()) {
    std::vector<PacketBuffer> burst;
    for (PacketBuffer packet; burst.size() < kPacketsPerBurst;) {
      result = reader->next(&packet, &error);
      if (result != CaptureReader::Result::kPacket) break;
      reply->set_packets(reply->packets() + 1);
      reply->set_bytes(reply->bytes() + packet.wireLength());
      burst.push_back(std::move(packet));
    }
    if (!place.packets->inject(first.port(), std::move(burst))) return gone(place);
  }
  if (result != CaptureReader::Result::kFailed) return grpc::Status::OK;
  return capture.broken(error + " (" + std::to_string(reply->packets()) + " packets injected)");
}

grpc::Status SwitchService::Trace(
    grpc::ServerContext* /*context*/,
    grpc::ServerReaderWriter<pb::TracedPacket, pb::CaptureUpload>* stream) {
  Upload capture;
  pb::CaptureUpload first;
  PhysicalDevice place;
  grpc::Status status = capture.receive(stream, &first);
  if (status.ok()) status = find(first, &place);
  if (!status.ok()) return status;
  const std::unique_ptr<CaptureReader> reader = capture.open(&status);
  if (reader == nullptr) return status;

  std::string error;
  pb::TracedPacket traced;
  for (PacketBuffer packet;;) {
    const CaptureReader::Result result = reader->next(&packet, &error);
    if (result == CaptureReader::Result::kEnd) return grpc::Status::OK;
    if (result == CaptureReader::Result::kFailed) return capture.broken(error);
    traced.set_number(traced.number() + 1);
    traced.set_time_ns(packet.timeNs());
    traced.set_length(static_cast<uint32_t>(packet.wireLength()));
    const jxmodel::Trace trace = place.packets->trace(first.port(), std::move(packet));
    traced.set_text(trace.text());
    traced.set_json(trace.json());
    if (!stream->Write(traced)) return grpc::Status::CANCELLED;
  }
}

grpc::Status SwitchService::Capture(grpc::ServerContext* context, const pb::CaptureRequest* request,
                                    grpc::ServerWriter<pb::CapturedPackets>* writer) {
  PhysicalDevice place;
  grpc::Status found = find(*request, &place);
  if (!found.ok()) return found;
  if (!place.packets->ports().status(request->port())) return noPort(request->port());

  const Seats::Seat seat = captures_.take();
  if (seat == nullptr) return captures_.refusal("captures");
  const auto tap = place.packets->openTap(request->port(), directionOf(request->direction()));
  uint64_t left = request->count() == 0 ? UINT64_MAX : request->count();
  bool going = writer->Write({});  // the capture has begun
  bool ended = false;
  while (going && left > 0 && !ended && !context->IsCancelled()) {
    const Tap::Harvest harvest = tap->take(std::chrono::milliseconds(100));
    ended = harvest.ended;
    going = sendPackets(harvest, &left, writer);
  }
  place.packets->closeTap(tap);
  if (left == 0) return grpc::Status::OK;
  return ended ? gone(place) : grpc::Status::CANCELLED;
}

}  // namespace jxmodel::control
