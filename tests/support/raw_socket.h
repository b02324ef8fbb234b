// Counterparts of the library that are made of nothing but nanomsg: what they send and check stands
// in the tests, byte by byte.
#pragma once

#include <cstdint>
#include <string>

#include "support/bytes.h"

namespace jextest {

/// One nanomsg socket. Every call is bounded by kPatience and fails the test when that is over.
class RawSocket {
 public:
  explicit RawSocket(int protocol);
  ~RawSocket();
  RawSocket(RawSocket&& other) noexcept;
  RawSocket& operator=(RawSocket&&) = delete;

  int fd() const { return fd_; }
  void bind(const std::string& address);
  void connect(const std::string& address);
  void send(const Bytes& message);
  /// The next message; empty, and the test has failed, if none comes.
  Bytes receive();
  /// The next message if one is there already.
  bool tryReceive(Bytes* message);

 private:
  int fd_;
};

/// The agent's place: pulls requests from the well-known address.
class RawAgent {
 public:
  RawAgent();
  Bytes receive() { return requests_.receive(); }
  bool tryReceive(Bytes* message) { return requests_.tryReceive(message); }
  /// Receives a registration and returns the address in it; the test fails if it is none.
  std::string receiveRegistration();
  /// The agent's end of a Partner's reverse path.
  static RawSocket connectTo(const std::string& address);

 private:
  RawSocket requests_;
};

/// A Partner's place: pushes requests to the agent and listens on a reverse path of its own.
class RawPartner {
 public:
  explicit RawPartner(uint32_t pid);
  uint32_t pid() const { return pid_; }
  const std::string& address() const { return address_; }
  void send(const Bytes& message) { requests_.send(message); }
  void registerWithAgent();
  /// What comes on the reverse path.
  Bytes receive() { return reverse_.receive(); }
  bool tryReceive(Bytes* message) { return reverse_.tryReceive(message); }

 private:
  uint32_t pid_;
  std::string address_;
  RawSocket requests_;
  RawSocket reverse_;
};

}  // namespace jextest
