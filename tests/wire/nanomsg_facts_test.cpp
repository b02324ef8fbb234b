// What the library builds on that nanomsg's manual does not promise. A failure here says that the
// messaging library of this machine behaves differently, not that ours is wrong.
#include <gtest/gtest.h>
#include <nanomsg/nn.h>
#include <nanomsg/pair.h>
#include <nanomsg/pipeline.h>

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

}  // namespace
}  // namespace jextest
