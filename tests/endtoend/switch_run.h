// A slice agent as a switch, the partner that fills its tables, and the captures that go through
// it, as the tests of packets need them.
#pragma once

#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "endtoend/cli_run.h"
#include "support/child.h"

namespace jextest {

using Bytes = std::vector<uint8_t>;

constexpr int64_t kSecond = 1'000'000'000;

struct Frame {
  int64_t time_ns = 0;
  Bytes bytes;
  size_t length = 0;  // on the wire; a capture may have cut the frame

  bool isCut() const { return bytes.size() < length; }
};

/// Of host 02:00:00:00:00:FROM to an address that is nobody's, of an experimental type.
Bytes frameFrom(uint8_t from);

/// Path of a file of this run.
std::string pathOf(const std::string& name);

/// Time stamp of the first frame that writeCapture writes.
constexpr int64_t kCaptureTime = 1'600'000'000 * kSecond;

/// Writes a capture with one frame a second and returns its path.
std::string writeCapture(const std::string& name, const std::vector<Bytes>& frames);

/// The frames of a capture; none where there is no capture yet.
std::vector<Frame> readCapture(const std::string& path);

/// Sum of `bytes` as the Internet checksum takes it: 0xffff over data with a right checksum.
uint16_t internetSum(const uint8_t* bytes, size_t size, uint32_t start = 0);

/// `--program FILE` in front of `more`.
Words withProgram(const std::string& program, const Words& more = {});

/// The one object that switchctl prints as JSON; the test fails if it does not.
nlohmann::json answerOf(Words arguments);

/// What `switchctl ports` tells about a port; null if there is none.
nlohmann::json portOf(uint32_t number);

/// A ready agent that carries `program`, without heartbeats.
std::unique_ptr<Child> startSwitch(const std::string& program, const Words& more = {});

/// Waits until `shell`, a partner shell that prints JSON, has found its agent.
bool saysReady(const Child& shell);

/// A partner shell.
class ShellProcess {
 public:
  explicit ShellProcess(const std::string& program);

  /// Makes `commands`, all of which have to succeed, and waits until these tables of the agent are
  /// as the partner's own.
  void make(const Words& commands, const Words& tables);

  /// The result of a command; the test fails if that is an error.
  nlohmann::json ask(const std::string& command);

  /// The error of a command; empty, and the test has failed, if there was none.
  std::string refusalOf(const std::string& command);

  /// What a command lists, line by line.
  std::vector<nlohmann::json> list(const std::string& command);

  Child& process() { return shell_; }

 private:
  Child shell_;
};

}  // namespace jextest
