// The registration of a Partner: what it sends of itself, and what the agent's registry makes of it
// while other threads use the registry. This process plays the agent's loop.
#include <gtest/gtest.h>
#include <nanomsg/nn.h>
#include <nanomsg/pair.h>
#include <nanomsg/pipeline.h>
#include <time.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "JexPartnerLib.h"
#include "JexPartnerLibServer.h"
#include "JexPartnerLibSocket.h"
#include "support/processes.h"
#include "support/raw_socket.h"
#include "support/wait_until.h"
#include "wire/nanomsg_calls.h"

namespace jextest {
namespace {

const char kReverse[] = "ipc:///tmp/registration_test";

/// Handles a request as the agent's loop does.
void handle(const void* message, size_t size) {
  PartnerLib::PartnerMessage agent(nullptr);
  EXPECT_TRUE(agent.deSerialize(0, 0, message, size));
}
void handle(const Bytes& message) { handle(message.data(), message.size()); }

/// Registrations of a test, closed with it.
struct Registry {
  ~Registry() {
    for (const auto& [pid, sock] : PartnerLib::pidSocketMap) nn_close(sock);
    PartnerLib::pidSocketMap.clear();
  }
};

// The message ends with the address, and what lies behind it in memory is no part of it.
TEST(Registration, OfAnAddressWithoutAnEndGoesAsFarAsTheMessage) {
  const Registry registry;
  const std::string address = kReverse;
  Bytes memory = request(4, 77, 16 + address.size());
  std::memcpy(memory.data() + 16, address.data(), address.size());
  const size_t size = memory.size();
  append(memory, {'_', 'a', 'n', 'd', '_', 'm', 'o', 'r', 'e', 0});
  RawSocket partner(NN_PAIR);
  partner.bind(kReverse);
  handle(memory.data(), size);
  errno = 0;
  EXPECT_TRUE(PartnerLib::PeriodicHeartbeatUpdate());
  EXPECT_EQ(partner.receive(), (Bytes{255, 0, 0, 0}));
}

// Signals that come while the registration waits for an agent do not lose it.
TEST(Registration, IsSentAgainAfterEverySignal) {
  RawSocket agent(NN_PULL);
  agent.bind("inproc://registration_test");
  RawSocket push(NN_PUSH);
  push.connect("inproc://registration_test");
  int signals = 5;
  NanomsgCalls calls;
  calls.send = [&](int s, const void* buf, size_t len, int flags) {
    if (signals-- > 0) {
      errno = EINTR;
      return -1;
    }
    return realSend(s, buf, len, flags);
  };
  const NanomsgInFront front(&calls);
  PartnerLib::sendSocketNameToSliceAgent(push.fd(), 77, kReverse);
  Bytes message;
  ASSERT_TRUE(waitUntil([&] { return agent.tryReceive(&message); }));
  EXPECT_EQ(message.size(), 80u);
  EXPECT_FALSE(agent.tryReceive(&message)) << "once is enough";
}

std::string timeOfDayAt(time_t offset) {
  const time_t now = time(nullptr) + offset;
  tm fields{};
  gmtime_r(&now, &fields);
  char text[16];
  strftime(text, sizeof text, "%H%M%S", &fields);
  return text;
}

// 9 h 17 min east of Greenwich: no zone of the machine has this time of day.
TEST(Registration, NamesTheTimeOfDayOfThePartnersZone) {
  constexpr time_t kEast = (9 * 60 + 17) * 60;
  RawAgent agent;
  const std::string before = timeOfDayAt(kEast);
  Child partner = startedPartner({}, {{"TZ", "ODD-9:17"}});
  const std::string after = timeOfDayAt(kEast);
  const std::string address = agent.receiveRegistration();
  ASSERT_GE(address.size(), 6u);
  const std::string time_of_day = address.substr(address.size() - 6);
  if (before <= after) {  // not over midnight
    EXPECT_LE(before, time_of_day);
    EXPECT_LE(time_of_day, after);
  }
}

// Start-up captures the tables of every program of the device.
TEST(PartnerPrograms, AreAllCaptured) {
  PartnerOptions options;
  options.programs = {"limits", "l2_switch"};
  RawAgent agent;
  Child partner = startedPartner(options);
  agent.receiveRegistration();
  for (const char* write : {"add exact_direct 1 nop", "add dmac 1 flood"}) {
    EXPECT_EQ(partner.ask(write), "status 0");
    EXPECT_EQ(u32At(agent.receive(), 0), 0u) << write;
  }
}

// A Partner that receives nothing must not block the loop's search for the others.
TEST(Registry, IsFreeWhileAHeartbeatIsSent) {
  const Registry registry;
  handle(registration(77, kReverse));
  std::atomic<bool> sending{false};
  std::atomic<bool> found{false};
  NanomsgCalls calls;
  calls.poll = [&](nn_pollfd* fds, int, int) {
    sending = true;
    waitUntil([&] { return found.load(); });
    fds[0].revents = NN_POLLOUT;
    return 1;
  };
  calls.send = [](int, const void*, size_t size, int) { return static_cast<int>(size); };
  const NanomsgInFront front(&calls);
  std::thread heartbeat([] { PartnerLib::PeriodicHeartbeatUpdate(); });
  EXPECT_TRUE(waitUntil([&] { return sending.load(); }));
  std::thread finder([&] {
    EXPECT_GE(PartnerLib::findSendSocket(77), 0);
    EXPECT_EQ(PartnerLib::findSendSocket(78), -1);
    found = true;
  });
  EXPECT_TRUE(waitUntil([&] { return found.load(); })) << "the registry is locked";
  found = true;
  heartbeat.join();
  finder.join();
}

// The thread sanitizer sees what reads without the lock.
TEST(Registry, GrowsWhileOthersReadIt) {
  constexpr uint32_t kPartners = 100;
  const Registry registry;
  NanomsgCalls calls;  // no message leaves: nobody receives
  calls.poll = [](nn_pollfd* fds, int, int) {
    fds[0].revents = NN_POLLOUT;
    return 1;
  };
  calls.send = [](int, const void*, size_t size, int) { return static_cast<int>(size); };
  const NanomsgInFront front(&calls);
  std::atomic<bool> over{false};
  std::atomic<int> rounds{0};
  std::thread finder([&] {
    while (!over) {
      for (int pid = 0; pid < static_cast<int>(kPartners); ++pid) PartnerLib::findSendSocket(pid);
      ++rounds;
    }
  });
  std::thread heartbeat([&] {
    while (!over) {
      PartnerLib::PeriodicHeartbeatUpdate();
      ++rounds;
    }
  });
  EXPECT_TRUE(waitUntil([&] { return rounds > 2; }));
  for (uint32_t pid = 0; pid < kPartners; ++pid) handle(registration(pid, kReverse));
  over = true;
  finder.join();
  heartbeat.join();
  for (uint32_t pid = 0; pid < kPartners; ++pid) {
    EXPECT_GE(PartnerLib::findSendSocket(static_cast<int>(pid)), 0);
  }
}

}  // namespace
}  // namespace jextest
