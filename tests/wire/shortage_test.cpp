// Start-ups and messages for which there is no thread, no descriptor or no memory.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <nanomsg/nn.h>
#include <nanomsg/pipeline.h>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <iostream>
#include <string>
#include <thread>

#include "JexPartnerLib.h"
#include "JexPartnerLibDigest.h"
#include "JexPartnerLibServer.h"
#include "JexPartnerLibSocket.h"
#include "support/child.h"
#include "support/helper.h"
#include "support/raw_socket.h"
#include "support/stop.h"
#include "support/switch_device.h"
#include "support/wait_until.h"
#include "wire/notify_frames.h"
#include "wire/notify_processes.h"

namespace jextest {
namespace {

/// Leaves the process `count` descriptors that it can open.
void leaveDescriptors(rlim_t count) {
  rlim_t limit = 0;
  for (rlim_t left = count; left > 0 || fcntl(static_cast<int>(limit), F_GETFD) >= 0; ++limit) {
    if (fcntl(static_cast<int>(limit), F_GETFD) < 0) --left;
  }
  rlimit limits{};
  getrlimit(RLIMIT_NOFILE, &limits);
  limits.rlim_cur = limit;
  if (setrlimit(RLIMIT_NOFILE, &limits) != 0) _exit(3);
}

JEX_HELPER(start_with_few_descriptors) {
  PartnerLib::PartnerSocket sut(arguments.at(0) == "partner" ? 1 : 0);
  leaveDescriptors(std::stoul(arguments.at(1)));
  _exit(sut.init("ipc:///tmp/shortage_test", false) ? 1 : 42);
}

// nanomsg takes two descriptors for its thread, one for each direction of a socket, one for each
// address that is bound, one for each connection.
constexpr int kPartnerDescriptors = 8;
constexpr int kAgentDescriptors = 4;

TEST(Shortage, APartnerWithoutDescriptorsStops) {
  for (int left = 0; left < kPartnerDescriptors; ++left) {
    SCOPED_TRACE(left);
    Child child = Child::helper("start_with_few_descriptors", {"partner", std::to_string(left)});
    expectStop(child, {"Error: Unable to open Client socket", "JexPartnerLibSocket",
                       "PartnerLib::PartnerSocket::init(", "( socket_ >= 0 )"});
  }
}

JEX_HELPER(partner_at_its_bound) {
  PartnerLib::PartnerSocket sut(1);
  PartnerLib::pSocket = &sut;
  leaveDescriptors(kPartnerDescriptors);
  if (!sut.init("ipc:///tmp/Partner0", false)) return 3;
  std::cin.get();
  _exit(0);
}

// Both paths work: a heartbeat comes, and its answer goes.
TEST(Shortage, APartnerWithJustEnoughDescriptorsWorks) {
  if (kSanitized) GTEST_SKIP() << "a sanitizer's checks open descriptors of their own";
  RawAgent agent;
  Child child = Child::helper("partner_at_its_bound");
  RawSocket reverse = RawAgent::connectTo(agent.receiveRegistration());
  reverse.send({255, 0, 0, 0});
  const Bytes ping = agent.receive();
  ASSERT_EQ(ping.size(), 16u) << child.standardError();
  EXPECT_EQ(u32At(ping, 0), 9u);
  child.closeInput();
  EXPECT_EQ(child.waitForExit().code, 0) << child.standardError();
}

TEST(Shortage, AnAgentWithoutDescriptorsSaysSo) {
  for (int left = 0; left < kAgentDescriptors; ++left) {
    SCOPED_TRACE(left);
    Child child = Child::helper("start_with_few_descriptors", {"agent", std::to_string(left)});
    EXPECT_EQ(child.waitForExit().code, 42);
    EXPECT_EQ(child.standardError(), "");
  }
}

/// Serves with no descriptor left for a connection; any input raises the bound.
JEX_HELPER(agent_at_its_bound) {
  rlimit limits{};
  getrlimit(RLIMIT_NOFILE, &limits);
  PartnerLib::PartnerSocket sut(0);
  leaveDescriptors(kAgentDescriptors);
  if (!sut.init("ipc:///tmp/Partner0", false)) return 3;
  std::cout << "serves" << std::endl;
  std::thread([limits] {
    std::cin.get();
    setrlimit(RLIMIT_NOFILE, &limits);
  }).detach();
  void* buffer = nullptr;
  int count = 0;
  while (!sut.recvWithTimeout(&buffer, &count, 20)) {
  }
  _exit(count);
}

// Who connects waits until there is a descriptor; nobody is ended.
TEST(Shortage, AConnectionThatFindsNoDescriptorIsMadeLater) {
  Child agent = Child::helper("agent_at_its_bound");
  ASSERT_EQ(agent.readLine(), "serves") << agent.standardError();
  RawSocket pusher(NN_PUSH);
  pusher.connect("ipc:///tmp/Partner0");
  std::thread sender([&pusher] { pusher.send(Bytes(42, 1)); });
  agent.say("more");
  EXPECT_EQ(agent.waitForExit().code, 42) << agent.standardError();
  sender.join();
}

/// An agent with this many descriptors for its sockets and connections.
JEX_HELPER(serve_with_few_descriptors) {
  const SwitchDevice device(DeviceKind::kPhysical, 0, {"limits"});
  leaveDescriptors(std::stoul(arguments.at(0)));
  PartnerLibServerStartup(device.view().session().cHandle(), 0, 20);
  return 1;
}

// Four to serve and one for the connection that brings the registration: none for the way back.
TEST(Shortage, AnAgentWithoutASocketForAReversePathGoesOn) {
  if (kSanitized) GTEST_SKIP() << "a sanitizer opens descriptors to check an object's type";
  Child agent = Child::helper("serve_with_few_descriptors", {"5"});
  RawPartner partner(31337);
  partner.registerWithAgent();
  partner.send(request(9, partner.pid(), 16));
  partner.send(request(7, partner.pid(), 16));
  expectStop(agent, {"Error: Deserialize from socket unsupported for msg Type: 7",
                     "JexPartnerLibServer", "PartnerLib::PartnerMessage::deSerialize(", "false"});
}

/// No thread can be made from now on: its stack would not fit into the address space.
void leaveNoThread() {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, size_t{1} << 47);
  if (pthread_setattr_default_np(&attributes) != 0) _exit(3);
}

/// Called before the partner connects: nanomsg's thread runs, the receive thread does not yet.
void (*before_connect)() = nullptr;

JEX_HELPER(start_without_a_receive_thread) {
  before_connect = leaveNoThread;
  PartnerLib::PartnerSocket sut(1);
  sut.init("ipc:///tmp/Partner0", false);
  return 0;
}

TEST(Shortage, APartnerWithoutAReceiveThreadSaysWhy) {
  RawAgent agent;
  Child child = Child::helper("start_without_a_receive_thread");
  expectStop(child, {"Error: Cannot start the receive thread: Resource temporarily unavailable",
                     "JexPartnerLibSocket", "PartnerLib::PartnerSocket::init(",
                     "clientThread != nullptr"});
}

JEX_HELPER(start_without_any_thread) {
  leaveNoThread();
  PartnerLib::PartnerSocket sut(std::stoi(arguments.at(0)));
  sut.init("ipc:///tmp/Partner0", false);
  return 0;
}

// nanomsg itself would end the process without an Error line.
TEST(Shortage, NanomsgWithoutItsThreadSaysWhy) {
  for (const char* mode : {"0", "1"}) {
    Child child = Child::helper("start_without_any_thread", {mode});
    expectStop(child, {"Error: Cannot start a thread: Resource temporarily unavailable",
                       "JexPartnerLibSocket", "PartnerLib::PartnerSocket::init(", "error == 0"});
  }
}

TEST(Shortage, AReceiveThreadWithoutMemorySaysWhy) {
  constexpr uint16_t kLength = 54321;
  NotifyPair pair;
  pair.registerDigest();
  ASSERT_EQ(pair.partner.ask("no-memory-from " + std::to_string(kLength)), "done");
  pair.reverse.send(digestRecordOfLength(kLength, {1, 2, 3}));
  expectStop(pair.partner,
             {"Error: Cannot handle a message from SliceAgent: Cannot allocate memory",
              "JexPartnerLibSocket", "clientThreadFunc(", "false"});
}

TEST(Shortage, AnAgentWithoutMemorySaysWhy) {
  NotifyAgentPair pair;
  constexpr size_t kSize = sizeof(PartnerLib::DigestNotifyCookieStruct);
  ASSERT_EQ(pair.agent.ask("no-memory-from " + std::to_string(kSize)), "done");
  pair.partner.send(DigestRequest{}.message(pair.partner.pid()));
  expectStop(pair.agent, {"Error: Cannot handle a request: Cannot allocate memory",
                          "JexPartnerLibServer", "PartnerLibServerSetup(", "false"});
}

}  // namespace
}  // namespace jextest

extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier): the linker gives these names
int __real_nn_connect(int s, const char* address);
__attribute__((visibility("default"))) int __wrap_nn_connect(int s, const char* address) {
  if (jextest::before_connect != nullptr) jextest::before_connect();
  return __real_nn_connect(s, address);
}
// NOLINTEND(bugprone-reserved-identifier)

}  // extern "C"
