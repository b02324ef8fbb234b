// Sends and receives never wait without a bound, whatever nanomsg says of a socket; and the bounds
// are those given.
#include <gtest/gtest.h>
#include <nanomsg/nn.h>
#include <nanomsg/pair.h>
#include <nanomsg/pipeline.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>
#include <thread>

#include "JexPartnerLib.h"
#include "JexPartnerLibServer.h"
#include "JexPartnerLibSocket.h"
#include "support/child.h"
#include "support/helper.h"
#include "support/raw_socket.h"
#include "support/wait_until.h"
#include "wire/nanomsg_calls.h"

extern "C" void nn_init(void) __attribute__((weak));

namespace jextest {
namespace {

using PartnerLib::PartnerSocket;

const char kAddress[] = "ipc:///tmp/send_bounds_test";
const char kReverse[] = "ipc:///tmp/send_bounds_reverse";

std::atomic<long> pauses{0};

/// nanomsg says of one socket that it has room, and it has none.
struct RoomThatIsNotThere {
  explicit RoomThatIsNotThere(int socket) {
    calls.poll = [this, socket](nn_pollfd* fds, int nfds, int timeout) {
      if (nfds != 1 || fds[0].fd != socket || fds[0].events != NN_POLLOUT) {
        return realPoll(fds, nfds, timeout);
      }
      ++attempts;
      fds[0].revents = NN_POLLOUT;
      return 1;
    };
  }
  std::atomic<int> attempts{0};
  NanomsgCalls calls;
};

/// Sends on `socket`. No peer connects before three attempts have been made.
void expectSecondAttempt(int socket, const std::function<void()>& let_it_connect) {
  RoomThatIsNotThere room(socket);
  const NanomsgInFront front(&room.calls);
  std::thread sender([socket] {
    errno = 0;
    EXPECT_TRUE(PartnerLib::socketSend(socket, "hello", 5));
  });
  EXPECT_TRUE(waitUntil([&] { return room.attempts >= 3; }))
      << "the send waits inside nanomsg without a bound";
  let_it_connect();
  sender.join();
}

TEST(SendBounds, AnAgentsSendReturnsFromNanomsg) {
  PartnerLib::PartnerMessage agent(nullptr);
  const Bytes message = registration(77, kReverse);
  ASSERT_TRUE(agent.deSerialize(0, 0, message.data(), message.size()));
  RawSocket partner(NN_PAIR);
  expectSecondAttempt(PartnerLib::findSendSocket(77), [&] { partner.bind(kReverse); });
  EXPECT_EQ(partner.receive(), (Bytes{'h', 'e', 'l', 'l', 'o'}));
  PartnerLib::pidSocketMap.clear();
}

TEST(SendBounds, APartnersSendReturnsFromNanomsg) {
  auto agent = std::make_unique<RawSocket>(NN_PULL);
  agent->bind(kAddress);
  PartnerSocket sut(1);
  ASSERT_TRUE(sut.init(kAddress, false));
  EXPECT_EQ(agent->receive().size(), 80u);
  agent.reset();
  // Until the connection is known to be gone there is room.
  errno = 0;
  ASSERT_TRUE(waitUntil([&] {
    nn_pollfd entry{sut.socket_, NN_POLLOUT, 0};
    return realPoll(&entry, 1, 0) == 0;
  }));
  expectSecondAttempt(sut.socket_, [&] {
    agent = std::make_unique<RawSocket>(NN_PULL);
    agent->bind(kAddress);
  });
  EXPECT_EQ(agent->receive(), (Bytes{'h', 'e', 'l', 'l', 'o'}));
  sut.shutdown(false);
}

TEST(SendBounds, ASendThatTimedOutIsTriedAgain) {
  RawSocket puller(NN_PULL);
  puller.bind(kAddress);
  RawSocket pusher(NN_PUSH);
  pusher.connect(kAddress);
  int time_outs = 3;
  NanomsgCalls calls;
  calls.send = [&](int s, const void* buf, size_t len, int flags) {
    if (time_outs-- > 0) {
      errno = ETIMEDOUT;
      return -1;
    }
    return realSend(s, buf, len, flags);
  };
  const NanomsgInFront front(&calls);
  errno = 0;
  EXPECT_TRUE(PartnerLib::socketSend(pusher.fd(), "hello", 5));
  EXPECT_EQ(puller.receive(), (Bytes{'h', 'e', 'l', 'l', 'o'}));
  EXPECT_EQ(time_outs, -1) << "sent once";
}

long attempts = 0;

/// Ends the helper below in the place of abort().
void reportAttempts(int) {
  const std::string line = std::to_string(attempts) + " " + std::to_string(pauses) + "\n";
  _exit(write(STDOUT_FILENO, line.data(), line.size()) > 0 ? 0 : 1);
}

JEX_HELPER(send_without_room) {
  NanomsgCalls calls;
  calls.poll = [](nn_pollfd*, int, int) {
    ++attempts;
    errno = EAGAIN;
    return 0;
  };
  const NanomsgInFront front(&calls);
  signal(SIGABRT, reportAttempts);
  PartnerLib::socketSend(0, "hello", 5);
  return 1;
}

// The sender yields once after each attempt, also after the last.
TEST(SendBounds, AHundredThousandAttemptsAreMade) {
  Child child = Child::helper("send_without_room");
  EXPECT_EQ(child.readLine(), "100000 100000");
  EXPECT_EQ(child.waitForExit().code, 0) << child.standardError();
}

/// nanomsg says that input is there, and there is none.
struct InputThatIsNotThere {
  explicit InputThatIsNotThere(bool also_without_wait) {
    calls.poll = [this, also_without_wait](nn_pollfd* fds, int nfds, int timeout) {
      polls += 1;
      if (timeout == 0 && !also_without_wait) return realPoll(fds, nfds, timeout);
      fds[0].revents = NN_POLLIN;
      return 1;
    };
    calls.recv = [this](int s, void* buf, size_t len, int flags) {
      receives += 1;
      return realRecv(s, buf, len, flags);
    };
  }
  int polls = 0;
  int receives = 0;
  NanomsgCalls calls;
};

JEX_HELPER(receive_what_is_not_there) {
  PartnerSocket socket(0);
  if (!socket.init(kAddress, false)) return 2;
  InputThatIsNotThere input(true);
  const NanomsgInFront front(&input.calls);
  void* buffer = nullptr;
  int count = 0;
  const bool received = socket.recv(&buffer, &count) || socket.recvWithTimeout(&buffer, &count, 10);
  return !received && input.receives == 2 ? 0 : 1;
}

TEST(ReceiveBounds, AReceiveReturnsWhenThereIsNothingAfterAll) {
  Child child = Child::helper("receive_what_is_not_there");
  EXPECT_EQ(child.waitForExit().code, 0) << child.standardError();
}

TEST(ReceiveBounds, InputIsAskedForASecondTimeBeforeItIsReceived) {
  PartnerSocket sut(0);
  ASSERT_TRUE(sut.init(kAddress, false));
  InputThatIsNotThere input(false);
  const NanomsgInFront front(&input.calls);
  void* buffer = nullptr;
  int count = 0;
  errno = 0;
  EXPECT_FALSE(sut.recvWithTimeout(&buffer, &count, 10));
  EXPECT_EQ(input.polls, 2);
  EXPECT_EQ(input.receives, 0) << "the second answer counts";
  sut.shutdown(false);
}

// An empty message counts as none, and its buffer is freed.
TEST(ReceiveBounds, AnEmptyMessageIsFreed) {
  PartnerSocket sut(0);
  ASSERT_TRUE(sut.init(kAddress, false));
  RawSocket sender(NN_PUSH);
  sender.connect(kAddress);
  sender.send({});
  ASSERT_TRUE(waitUntil([&] { return sut.dataAvailable(); }));
  void* received = nullptr;
  void* freed = nullptr;
  NanomsgCalls calls;
  calls.recv = [&](int s, void* buf, size_t len, int flags) {
    const int result = realRecv(s, buf, len, flags);
    received = *static_cast<void**>(buf);
    return result;
  };
  calls.freemsg = [&](void* message) {
    freed = message;
    return realFreemsg(message);
  };
  const NanomsgInFront front(&calls);
  void* buffer = nullptr;
  int count = 0;
  EXPECT_FALSE(sut.recv(&buffer, &count));
  EXPECT_NE(received, nullptr);
  EXPECT_EQ(freed, received);
  sut.shutdown(false);
}

bool isOpen(int socket) {
  int protocol = 0;
  size_t size = sizeof protocol;
  return nn_getsockopt(socket, NN_SOL_SOCKET, NN_PROTOCOL, &protocol, &size) == 0;
}

TEST(SocketFields, ASocketThatCannotBeBoundOrConnectedIsClosed) {
  PartnerSocket agent(0);
  EXPECT_FALSE(agent.init("nothing://nowhere", false));
  EXPECT_GE(agent.socket_, 0);
  EXPECT_FALSE(isOpen(agent.socket_));
  PartnerSocket partner(1);
  EXPECT_FALSE(partner.init("nothing://nowhere", false));
  EXPECT_GE(partner.socket_, 0);
  EXPECT_FALSE(isOpen(partner.socket_));
}

// The error that nn_term leaves would make the next socket look dead.
TEST(Termination, LeavesNoErrorBehind) {
  PartnerSocket sut(0);
  ASSERT_TRUE(sut.init(kAddress, false));
  errno = EAGAIN;
  sut.shutdown(true);
  EXPECT_EQ(errno, EAGAIN);
  PartnerSocket empty(0);
  errno = 0;
  empty.shutdown(true);
  EXPECT_EQ(errno, 0);
  if (&nn_init != nullptr) nn_init();
}

}  // namespace
}  // namespace jextest

extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier): the linker gives these names
int __real_nanosleep(const timespec* time, timespec* rest);
__attribute__((visibility("default"))) int __wrap_nanosleep(const timespec* time, timespec* rest) {
  if (time->tv_sec == 0 && time->tv_nsec == 0) {
    ++jextest::pauses;
    return 0;
  }
  return __real_nanosleep(time, rest);
}
// NOLINTEND(bugprone-reserved-identifier)

}  // extern "C"
