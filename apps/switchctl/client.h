// The control service as switchctl uses it: calls that return or throw.
#pragma once

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "switch.pb.h"

namespace grpc {
class ClientContext;
}
namespace google::protobuf {
class MessageLite;
}

namespace switchctl {

/// A call that failed: a line for the person, saying what, where and why.
class CallError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Which device and program are meant; left out where there is no choice, or all are.
struct Place {
  std::optional<int32_t> device;
  std::optional<std::string> program;
};

/// Talks to one server. Every method blocks, and throws CallError when the call fails; a server
/// that cannot be reached is given up after a few seconds.
class Client {
 public:
  /// `target` is "host:port". Nothing is sent before the first call.
  explicit Client(std::string target);
  ~Client();

  /// "SERVING", or what else the server says about itself.
  std::string health();
  std::vector<jx::control::v1::Program> programs(const Place& place);
  std::vector<jx::control::v1::Table> tables(const Place& place);
  std::vector<jx::control::v1::Digest> digests(const Place& place);
  uint64_t count(const std::string& table, const Place& place);
  /// Hands over the entries chunk by chunk, as they arrive.
  void entries(const std::string& table, const Place& place,
               const std::function<void(const jx::control::v1::EntryChunk&)>& consumer);

  /// A call of the service Settings by its name. Throws stf::Error where the service refuses.
  void settings(const char* method, const google::protobuf::MessageLite& request,
                google::protobuf::MessageLite* reply);

  // --- ports and packets; of `place` only the device counts
  jx::control::v1::Port addPort(const std::string& spec, const Place& place);
  jx::control::v1::Port deletePort(uint32_t port, const Place& place);
  jx::control::v1::Port setPort(uint32_t port, bool enabled, const Place& place);
  jx::control::v1::ListPortsReply ports(const Place& place);
  /// Sends a capture file, whose packets come in at the port.
  jx::control::v1::InjectReply inject(uint32_t port, const std::string& file, const Place& place);
  /// Sends a capture file and hands over what became of each packet.
  void trace(uint32_t port, const std::string& file, const Place& place,
             const std::function<void(const jx::control::v1::TracedPacket&)>& consumer);
  /// The same for one packet.
  void tracePacket(uint32_t port, const std::string& bytes, const Place& place,
                   const std::function<void(const jx::control::v1::TracedPacket&)>& consumer);
  /// Hands over what passes at a port: first a message without packets, when the capture has begun.
  /// Ends after `count` packets (0: never), or when `stop` is called.
  void capture(const jx::control::v1::CaptureRequest& request,
               const std::function<void(const jx::control::v1::CapturedPackets&)>& consumer);
  /// Hands over what happens on a device: first a message without events, when watching has begun.
  /// Ends after `count` events (0: never), or when `stop` is called.
  void watch(const jx::control::v1::WatchRequest& request,
             const std::function<void(const jx::control::v1::WatchedEvents&)>& consumer);
  /// Ends the capture or watch that runs, or the one that begins next. By any thread.
  void stop();

 private:
  struct Stubs;

  void traceCapture(std::istream* capture, const std::string& name, uint32_t port,
                    const Place& place,
                    const std::function<void(const jx::control::v1::TracedPacket&)>& consumer);
  template <typename Message, typename Open>
  void readUntilStopped(Open open, const std::function<void(const Message&)>& consumer);
  void setStream(grpc::ClientContext* stream);
  bool stopped();

  const std::string target_;
  const std::unique_ptr<Stubs> stubs_;
  std::mutex stream_mutex_;                // guards all below
  grpc::ClientContext* stream_ = nullptr;  // of the capture or watch that runs
  bool stopped_ = false;
};

}  // namespace switchctl
