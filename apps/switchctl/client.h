// The control service as switchctl uses it: calls that return or throw.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "switch.pb.h"

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
  uint64_t count(const std::string& table, const Place& place);
  /// Hands over the entries chunk by chunk, as they arrive.
  void entries(const std::string& table, const Place& place,
               const std::function<void(const jx::control::v1::EntryChunk&)>& consumer);

 private:
  struct Stubs;

  const std::string target_;
  const std::unique_ptr<Stubs> stubs_;
};

}  // namespace switchctl
