// Hosts for the tests of interface ports, in network namespaces of their own. Nothing outside of
// them is touched.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "model/port/offload.h"
#include "packets.h"

namespace jxmodel::test {

/// Runs `ip` with these arguments in the namespace of the calling thread; fails the test if it
/// fails.
void ip(const std::string& arguments);

/// A machine at the other end of a cable (a veth pair): a thread in a namespace of its own, with
/// the interface `eth0`. The switch's end is called `name`.
class Host {
 public:
  /// `mtu` holds for both ends.
  explicit Host(const std::string& name, int mtu = 1500);
  ~Host();
  /// Runs `job` on the host's thread and waits for its end.
  void run(std::function<void()> job);
  /// Starts `job`; `join` waits for its end.
  void begin(std::function<void()> job);
  void join();

 private:
  struct Shared;
  std::unique_ptr<Shared> shared_;
};

/// A raw socket on the far end of a cable, to put any bytes onto it and to see what comes.
class Tap {
 public:
  explicit Tap(const std::string& interface);
  ~Tap();
  void send(const Bytes& frame, const OffloadHeader& left = {});
  /// The next frame of the type that `frameOf` makes, in time or empty. A tag in front of the type
  /// is skipped for this and comes back in the frame.
  Bytes receive();

 private:
  int fd_;
};

}  // namespace jxmodel::test
