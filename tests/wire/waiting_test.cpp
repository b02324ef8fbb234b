// A receive thread whose ping finds no room: what it does until there is some.
#include <gtest/gtest.h>
#include <nanomsg/nn.h>
#include <nanomsg/pair.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "JexPartnerLib.h"
#include "JexPartnerLibServer.h"
#include "JexPartnerLibSocket.h"
#include "support/helper.h"
#include "support/raw_socket.h"
#include "support/stop.h"
#include "support/switch_device.h"
#include "support/wait_until.h"
#include "support/write_command.h"
#include "wire/call_hooks.h"

namespace jextest {
namespace {

using PartnerLib::pSocket;

const Bytes kHeartbeat = {255, 0, 0, 0};
const Bytes kFilling(36, 0);
const char kFirstMessageType = 9;  // a ping

Bytes reply(uint64_t timestamp) {
  Bytes record = {254, 0, 12, 0};
  putU64(record, 4, timestamp);
  return record;
}

bool isPause(const timespec* wanted) { return wanted->tv_sec == 0 && wanted->tv_nsec == 0; }

/// Attempts take so long that their number is not used up while a test waits for something.
void slowAttemptsDown() {
  callHooks().pause = [](const timespec* wanted, timespec* left) {
    const timespec longer = {0, kSanitized ? 3000000 : 1000000};
    return realPause(isPause(wanted) ? &longer : wanted, left);
  };
}

/// Sends until nothing has gone for a while. Nobody receives, so what is full stays full.
int fillRequestPipe() {
  constexpr int kRefusals = 100;
  int sent = 0;
  for (int refused = 0; refused < kRefusals;) {
    if (nn_send(pSocket->socket_, kFilling.data(), kFilling.size(), NN_DONTWAIT) >= 0) {
      refused = 0;
      ++sent;
    } else {
      ++refused;
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  }
  return sent;
}

/// A Partner: "fill" fills its request pipe and says how many messages that took, "answered N"
/// waits until the reply to barrier N has been handled.
JEX_HELPER(partner_with_a_full_pipe) {
  slowAttemptsDown();
  Profile profile({"limits"});
  const DeviceView view(1);
  PartnerLibStartup(view.session(), view.target(), JX_DEV_TYPE_MODEL, profile.get());
  std::cout << "started" << std::endl;
  for (std::string line; std::getline(std::cin, line);) {
    const std::vector<std::string> words = wordsOf(line);
    if (words.at(0) == "fill") {
      std::cout << fillRequestPipe() << std::endl;
    } else {
      const bool answered =
          waitUntil([&] { return PartnerBarrierGetLastComplete() == std::stoull(words.at(1)); });
      std::cout << (answered ? "yes" : "no") << std::endl;
    }
  }
  _exit(0);
}

/// The agent takes no request until its reply has been taken, as an agent does whose loop waits in
/// that reply.
TEST(Waiting, AReplyIsTakenWhileAPingFindsNoRoom) {
  RawAgent agent;
  Child partner = Child::helper("partner_with_a_full_pipe");
  RawSocket reverse = RawAgent::connectTo(agent.receiveRegistration());
  ASSERT_EQ(partner.readLine(), "started") << partner.standardError();
  const int filling = std::stoi(partner.ask("fill"));
  constexpr int kHeartbeats = 3;
  for (int i = 0; i < kHeartbeats; ++i) reverse.send(kHeartbeat);
  reverse.send(reply(77));
  ASSERT_EQ(partner.ask("answered 77"), "yes") << partner.standardError();
  for (int i = 0; i < filling; ++i) ASSERT_EQ(agent.receive(), kFilling) << i;
  // One ping per heartbeat, and none more before the one that answers a heartbeat from now.
  for (int i = 0; i < kHeartbeats; ++i) {
    const Bytes ping = agent.receive();
    ASSERT_EQ(ping.size(), 16u);
    EXPECT_EQ(ping[0], kFirstMessageType);
  }
  reverse.send(reply(78));
  EXPECT_EQ(partner.ask("answered 78"), "yes");
  Bytes more;
  EXPECT_FALSE(agent.tryReceive(&more)) << "a ping too many";
  partner.closeInput();
  EXPECT_EQ(partner.waitForExit().code, 0) << partner.standardError();
}

/// A Partner's socket in this process, against a raw agent. The hooks have to be set before.
class HookedPartner {
 public:
  HookedPartner() {
    pSocket = &sut_;  // a heartbeat may come before the rest is done
    EXPECT_TRUE(sut_.init("ipc:///tmp/Partner0", false));
  }
  ~HookedPartner() {
    sut_.shutdown(false);
    pSocket = nullptr;
  }

 private:
  PartnerLib::PartnerSocket sut_{1};
};

/// The receive thread is the one that polls two sockets.
thread_local bool is_receive_thread = false;

bool isReceivePoll(const nn_pollfd* fds, int count) {
  if (count != 2 || fds[1].events != (NN_POLLIN | NN_POLLOUT)) return false;
  is_receive_thread = true;
  return true;
}

/// Finds no room for pings `refusals` times, and notes what the receive thread calls from its first
/// message on.
class Noted {
 public:
  explicit Noted(int refusals) : left_(refusals) {
    callHooks().poll = [this](nn_pollfd* fds, int count, int timeout) {
      return poll(fds, count, timeout);
    };
    callHooks().send = [this](int sock, const void* buffer, size_t size, int flags) {
      if (is_receive_thread) note(flags == 0 ? "send" : "send without waiting");
      return realSend(sock, buffer, size, flags);
    };
    callHooks().receive = [this](int sock, void* buffer, size_t size, int flags) {
      const int count = realReceive(sock, buffer, size, flags);
      if (is_receive_thread && (begun_ || count > 0)) {
        begun_ = true;
        note(std::string(flags == 0 ? "take" : "look") + (count > 0 ? "" : " in vain"));
      }
      return count;
    };
    callHooks().pause = [this](const timespec* wanted, timespec* left) {
      if (is_receive_thread) note(isPause(wanted) ? "pause" : "sleep");
      return realPause(wanted, left);
    };
  }
  ~Noted() { callHooks() = {}; }
  Noted(const Noted&) = delete;
  Noted& operator=(const Noted&) = delete;

  std::vector<std::string> calls() {
    const std::lock_guard lock(mutex_);
    return calls_;
  }

 private:
  int poll(nn_pollfd* fds, int count, int timeout) {
    if (isReceivePoll(fds, count) || !is_receive_thread) return realPoll(fds, count, timeout);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(fds[0].events, NN_POLLOUT);
    EXPECT_EQ(timeout, 0);
    if (left_ > 0) {
      --left_;
      note("no room");
      return 0;
    }
    const int result = realPoll(fds, count, timeout);
    note(result > 0 ? "room" : "no room");
    return result;
  }
  void note(const std::string& call) {
    const std::lock_guard lock(mutex_);
    calls_.push_back(call);
  }

  int left_;
  bool begun_ = false;
  std::mutex mutex_;  // of the calls
  std::vector<std::string> calls_;
};

TEST(Waiting, EachAttemptIsTheSameAsThatOfOtherThreads) {
  RawAgent agent;
  Noted noted(2);
  const HookedPartner partner;
  RawSocket reverse = RawAgent::connectTo(agent.receiveRegistration());
  reverse.send(kHeartbeat);
  EXPECT_EQ(agent.receive()[0], kFirstMessageType);
  std::vector<std::string> calls = noted.calls();
  calls.resize(9);  // what comes after the ping depends on what comes in
  EXPECT_EQ(calls, (std::vector<std::string>{"take", "no room", "pause", "look in vain", "no room",
                                             "pause", "look in vain", "room", "send"}));
}

/// What a message that comes between two attempts leaves behind is no error of the send.
JEX_HELPER(partner_without_room) {
  static std::atomic<int> attempts{0};
  callHooks().poll = [](nn_pollfd* fds, int count, int timeout) {
    if (isReceivePoll(fds, count) || !is_receive_thread) return realPoll(fds, count, timeout);
    ++attempts;
    errno = EBUSY;
    return 0;
  };
  callHooks().pause = [](const timespec* wanted, timespec* left) {
    return isPause(wanted) ? 0 : realPause(wanted, left);
  };
  std::signal(SIGABRT, [](int) {
    const std::string line = std::to_string(attempts) + "\n";
    const ssize_t written = write(STDOUT_FILENO, line.data(), line.size());
    static_cast<void>(written);
  });
  const HookedPartner partner;
  while (std::cin.get() >= 0) {
  }
  _exit(0);
}

TEST(Waiting, APingStopsAfterItsLastAttemptWhateverArrives) {
  RawAgent agent;
  Child partner = Child::helper("partner_without_room");
  RawSocket reverse = RawAgent::connectTo(agent.receiveRegistration());
  reverse.send(kHeartbeat);
  const Bytes other = reply(1);
  while (!partner.ended()) {
    nn_send(reverse.fd(), other.data(), other.size(), NN_DONTWAIT);
  }
  EXPECT_EQ(partner.readLine(), "100000");
  expectStop(partner, {"Error: SOCKET Send ERROR(max retry) Device or resource busy",
                       "JexPartnerLibSocket", "PartnerLib::socketSend(", "false"});
}

// Shutting down ends a thread whose ping waits, with pings owed behind it.
TEST(Waiting, AShutDownDoesNotWaitForPings) {
  RawAgent agent;
  std::atomic<int> refused{0};
  callHooks().poll = [&refused](nn_pollfd* fds, int count, int timeout) {
    if (isReceivePoll(fds, count) || !is_receive_thread) return realPoll(fds, count, timeout);
    ++refused;
    return 0;
  };
  slowAttemptsDown();
  {
    const HookedPartner partner;
    RawSocket reverse = RawAgent::connectTo(agent.receiveRegistration());
    for (int i = 0; i < 10; ++i) reverse.send(kHeartbeat);
    EXPECT_TRUE(waitUntil([&] { return refused > 5; }));
  }
  callHooks() = {};
}

}  // namespace
}  // namespace jextest
