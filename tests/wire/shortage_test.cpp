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

struct FewDescriptors {
  int left;
  const char* error;
  const char* expression;
};

const FewDescriptors kFewDescriptors[] = {
    {0, "Unable to open Client socket", "( socket_ >= 0 )"},
    {1, "Unable to open Client socket", "( socket_ >= 0 )"},
    {2, "Unable to open Client socket", "( socket_ >= 0 )"},
    {3, "Cannot open socket for reverse path", "( reverse >= 0 )"},
    {4, "Cannot open socket for reverse path", "( reverse >= 0 )"},
};

// nanomsg takes two descriptors for its thread, one for each direction of a socket, one for each
// address.
TEST(Shortage, APartnerWithoutDescriptorsStops) {
  for (const FewDescriptors& row : kFewDescriptors) {
    SCOPED_TRACE(row.left);
    Child child =
        Child::helper("start_with_few_descriptors", {"partner", std::to_string(row.left)});
    expectStop(child, {std::string("Error: ") + row.error, "JexPartnerLibSocket",
                       "PartnerLib::PartnerSocket::init(", row.expression});
  }
}

TEST(Shortage, AnAgentWithoutDescriptorsSaysSo) {
  for (int left = 0; left < 4; ++left) {
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
  leaveDescriptors(4);
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

JEX_HELPER(start_without_a_thread) {
  nn_socket(AF_SP, NN_PUSH);  // with it nanomsg starts its own thread
  leaveNoThread();
  PartnerLib::PartnerSocket sut(1);
  sut.init("ipc:///tmp/Partner0", false);
  return 0;
}

TEST(Shortage, APartnerWithoutAThreadSaysWhy) {
  RawAgent agent;
  Child child = Child::helper("start_without_a_thread");
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

// nanomsg ends the process by itself where it cannot start its thread; its line has the reason.
TEST(Shortage, NanomsgWithoutItsThreadSaysWhy) {
  for (const char* mode : {"0", "1"}) {
    Child child = Child::helper("start_without_any_thread", {mode});
    EXPECT_EQ(child.waitForExit().signal, SIGABRT);
    const std::string text = child.standardError();
    EXPECT_NE(text.find("Resource temporarily unavailable [11]"), std::string::npos) << text;
    EXPECT_EQ(text.find("terminate called"), std::string::npos) << text;
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
