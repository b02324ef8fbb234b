// What the library builds on that nanomsg's manual does not promise. A failure here says that the
// messaging library of this machine behaves differently, not that ours is wrong.
#include <gtest/gtest.h>
#include <nanomsg/nn.h>
#include <nanomsg/pair.h>
#include <nanomsg/pipeline.h>
#include <poll.h>

#include <cerrno>
#include <vector>

#include "support/raw_socket.h"
#include "support/wait_until.h"

extern "C" void nn_init(void) __attribute__((weak));

namespace jextest {
namespace {

constexpr short kSentinel = 0x1550;  // no poll flag
const char kAddress[] = "ipc:///tmp/facts";

TEST(NanomsgFacts, PollLeavesReventsAloneWhenNothingIsReady) {
  RawSocket socket(NN_PULL);
  socket.bind(kAddress);
  nn_pollfd entry{socket.fd(), NN_POLLIN, kSentinel};
  EXPECT_EQ(nn_poll(&entry, 1, 0), 0);
  EXPECT_EQ(entry.revents, kSentinel);
}

TEST(NanomsgFacts, PollLeavesReventsAloneWhenItFails) {
  nn_pollfd entry{4711, NN_POLLIN, kSentinel};
  EXPECT_EQ(nn_poll(&entry, 1, 0), -1);
  EXPECT_EQ(nn_errno(), EBADF);
  EXPECT_EQ(entry.revents, kSentinel);
}

TEST(NanomsgFacts, NoSocketAfterTermUntilInitTakesItBack) {
  nn_close(nn_socket(AF_SP, NN_PUSH));  // a library that was never used cannot be ended
  nn_term();
  EXPECT_EQ(nn_socket(AF_SP, NN_PUSH), -1);
  EXPECT_EQ(nn_errno(), ETERM);
  ASSERT_NE(&nn_init, nullptr) << "nn_init is not exported here";
  nn_init();
  const int socket = nn_socket(AF_SP, NN_PUSH);
  EXPECT_GE(socket, 0);
  nn_close(socket);
}

TEST(NanomsgFacts, WhatIsQueuedWhenASocketClosesIsDropped) {
  RawSocket puller(NN_PULL);
  puller.bind(kAddress);
  const Bytes message(36, 7);
  int sent = 0;
  {
    RawSocket pusher(NN_PUSH);
    pusher.connect(kAddress);
    nn_pollfd entry{pusher.fd(), NN_POLLOUT, 0};
    ASSERT_EQ(nn_poll(&entry, 1, 10000), 1);
    // Nobody receives: fill every buffer on the way.
    while (nn_send(pusher.fd(), message.data(), message.size(), NN_DONTWAIT) >= 0) ++sent;
    EXPECT_EQ(nn_errno(), EAGAIN);
  }
  // A marker of another sender, repeated until one arrives: what comes before it is all there is.
  RawSocket marker(NN_PUSH);
  marker.connect(kAddress);
  marker.send(Bytes(1, 9));
  int received = 0;
  while (puller.receive().size() != 1) {
    ++received;
    ASSERT_FALSE(HasFailure());
  }
  EXPECT_LT(received, sent);
}

TEST(NanomsgFacts, FewMessagesFitWithoutAReceiver) {
  RawSocket puller(NN_PULL);
  puller.bind(kAddress);
  RawSocket pusher(NN_PUSH);
  pusher.connect(kAddress);
  const Bytes message(36, 7);
  int fitting = 0;
  nn_pollfd entry{pusher.fd(), NN_POLLOUT, 0};
  ASSERT_EQ(nn_poll(&entry, 1, 10000), 1);
  while (fitting < 100000 &&
         nn_send(pusher.fd(), message.data(), message.size(), NN_DONTWAIT) > 0) {
    ++fitting;
  }
  EXPECT_GT(fitting, 0);
  EXPECT_LT(fitting, 100000) << "a sender never sees that its receiver stands still";
}

int receiveDescriptor(const RawSocket& socket) {
  int fd = -1;
  size_t size = sizeof fd;
  EXPECT_EQ(nn_getsockopt(socket.fd(), NN_SOL_SOCKET, NN_RCVFD, &fd, &size), 0);
  return fd;
}

bool readable(int fd, int timeout_ms) {
  pollfd entry{fd, POLLIN, 0};
  return poll(&entry, 1, timeout_ms) == 1 && (entry.revents & POLLIN) != 0;
}

constexpr int kAMinuteMs = 60000;  // the watchdog of a hang

TEST(NanomsgFacts, TheReceiveDescriptorIsReadableWhileAMessageWaits) {
  RawSocket receiver(NN_PAIR);
  receiver.bind(kAddress);
  const int fd = receiveDescriptor(receiver);
  EXPECT_FALSE(readable(fd, 0));
  RawSocket sender(NN_PAIR);
  sender.connect(kAddress);
  sender.send(Bytes(8, 1));
  sender.send(Bytes(8, 2));
  for (const uint8_t expected : {uint8_t{1}, uint8_t{2}}) {
    ASSERT_TRUE(readable(fd, kAMinuteMs));
    EXPECT_TRUE(readable(fd, 0)) << "it stays readable until the message is taken";
    EXPECT_EQ(receiver.receive(), Bytes(8, expected));
  }
  EXPECT_FALSE(readable(fd, 0));
}

TEST(NanomsgFacts, TheReceiveDescriptorSurvivesAPeerThatClosesInMidStream) {
  RawSocket receiver(NN_PAIR);
  receiver.bind(kAddress);
  const int fd = receiveDescriptor(receiver);
  for (int round = 0; round < 20; ++round) {
    RawSocket sender(NN_PAIR);
    sender.connect(kAddress);
    sender.send(Bytes(2048, 1));
    ASSERT_TRUE(readable(fd, kAMinuteMs));
    for (int i = 0; i < 50; ++i) {
      nn_send(sender.fd(), Bytes(2048, 2).data(), 2048, NN_DONTWAIT);
    }
  }
  // What the closed peers left is taken as the library takes it: a poll, then a bounded receive.
  const int bound_ms = 100;
  nn_setsockopt(receiver.fd(), NN_SOL_SOCKET, NN_RCVTIMEO, &bound_ms, sizeof bound_ms);
  RawSocket last(NN_PAIR);
  last.connect(kAddress);
  last.send(Bytes(1, 9));
  for (;;) {
    ASSERT_TRUE(readable(fd, kAMinuteMs)) << "a message waits and the descriptor does not say so";
    void* message = nullptr;
    const int bytes = nn_recv(receiver.fd(), &message, NN_MSG, 0);
    if (bytes < 0) continue;  // promised by a peer that has closed
    nn_freemsg(message);
    if (bytes == 1) break;
  }
}

}  // namespace
}  // namespace jextest
