// PartnerSocket and the functions beside it, against sockets that are nothing but nanomsg's.
#include <gtest/gtest.h>
#include <nanomsg/nn.h>
#include <nanomsg/pair.h>
#include <nanomsg/pipeline.h>
#include <poll.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <thread>
#include <type_traits>
#include <vector>

#include "JexPartnerLibSocket.h"
#include "support/helper.h"
#include "support/private_world.h"
#include "support/raw_socket.h"
#include "support/stop.h"
#include "support/wait_until.h"
#include "wire/nanomsg_faults.h"

extern "C" void nn_init(void) __attribute__((weak));

namespace jextest {
namespace {

using PartnerLib::PartnerSocket;

constexpr int kAgent = 0;
constexpr int kPartner = 1;
const char kAddress[] = "ipc:///tmp/socket_test";

TEST(PartnerSocket, IsEmptyAfterConstruction) {
  for (const int mode : {kAgent, kPartner}) {
    const PartnerSocket sut(mode);
    EXPECT_EQ(sut.socket_, -1);
    EXPECT_EQ(sut.endpoints[0], -1);
    EXPECT_EQ(sut.endpoints[1], -1);
    EXPECT_EQ(sut.endpoints[2], -1);
    EXPECT_EQ(sut.clientMode, mode);
    EXPECT_EQ(sut.clientThread, nullptr);
  }
}

// Two objects would close the same sockets.
TEST(PartnerSocket, CannotBeCopied) {
  static_assert(!std::is_copy_constructible_v<PartnerSocket>);
  static_assert(!std::is_copy_assignable_v<PartnerSocket>);
  static_assert(!std::is_move_constructible_v<PartnerSocket>);
}

TEST(PartnerSocket, HasItsFieldsInOrder) {
  PartnerSocket sut(kAgent);
  const auto at = [&](const void* field) {
    return static_cast<const char*>(field) - reinterpret_cast<const char*>(&sut);
  };
  EXPECT_EQ(at(&sut.socket_), 0);
  EXPECT_EQ(at(&sut.numFds), 4);
  EXPECT_EQ(at(&sut.pollFds), 8);
  EXPECT_EQ(at(&sut.endpoints), 32);
  EXPECT_EQ(at(&sut.clientMode), 44);
  EXPECT_EQ(at(&sut.clientThread), 48);
}

TEST(PartnerSocket, AgentBindsOnePullSocket) {
  PartnerSocket sut(kAgent);
  ASSERT_TRUE(sut.init(kAddress, false));
  EXPECT_EQ(sut.numFds, 1);
  EXPECT_EQ(sut.pollFds[0].fd, sut.socket_);
  EXPECT_EQ(sut.pollFds[0].events, NN_POLLIN);
  EXPECT_GE(sut.endpoints[0], 0);
  EXPECT_EQ(sut.endpoints[1], -1);
  EXPECT_EQ(sut.endpoints[2], -1);
  EXPECT_EQ(sut.clientThread, nullptr);
  int protocol = 0;
  size_t size = sizeof protocol;
  nn_getsockopt(sut.socket_, NN_SOL_SOCKET, NN_PROTOCOL, &protocol, &size);
  EXPECT_EQ(protocol, NN_PULL);
  sut.shutdown(false);
}

TEST(PartnerSocket, AgentInitIsFalseWhenTheAddressIsTaken) {
  RawSocket other(NN_PULL);
  other.bind(kAddress);
  PartnerSocket sut(kAgent);
  EXPECT_FALSE(sut.init(kAddress, false));
  EXPECT_EQ(sut.getFd(), -1);
}

TEST(PartnerSocket, AgentInitIsFalseWhenThereIsNoSocket) {
  failNanomsg("nn_socket", 1, -1, EMFILE);
  PartnerSocket sut(kAgent);
  testing::internal::CaptureStderr();
  EXPECT_FALSE(sut.init(kAddress, false));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "nothing is printed";
  EXPECT_EQ(sut.getFd(), -1);
}

TEST(PartnerSocket, PartnerInitIsFalseWhenItCannotConnect) {
  PartnerSocket sut(kPartner);
  EXPECT_FALSE(sut.init("nothing://nowhere", false));
  EXPECT_EQ(sut.getFd(), -1);
  EXPECT_EQ(sut.clientThread, nullptr);
}

TEST(PartnerSocket, HasNoDescriptorWithoutAnEndpoint) {
  PartnerSocket sut(kAgent);
  sut.socket_ = nn_socket(AF_SP, NN_PULL);
  ASSERT_GE(sut.socket_, 0);
  EXPECT_EQ(sut.getFd(), -1);
  nn_close(sut.socket_);
}

TEST(PartnerSocket, ReceivesWithoutWaiting) {
  PartnerSocket sut(kAgent);
  ASSERT_TRUE(sut.init(kAddress, false));
  void* buffer = nullptr;
  int count = -7;
  EXPECT_FALSE(sut.dataAvailable());
  EXPECT_FALSE(sut.recv(&buffer, &count));
  EXPECT_FALSE(sut.recvWithTimeout(&buffer, &count, 0));

  RawSocket sender(NN_PUSH);
  sender.connect(kAddress);
  sender.send({1, 2, 3});
  ASSERT_TRUE(waitUntil([&] { return sut.dataAvailable(); }));
  ASSERT_TRUE(sut.recv(&buffer, &count));
  ASSERT_EQ(count, 3);
  EXPECT_EQ(std::memcmp(buffer, "\1\2\3", 3), 0);
  sut.freeBuffer(buffer);
  EXPECT_FALSE(sut.dataAvailable());
  sut.shutdown(false);
}

TEST(PartnerSocket, WaitsForAMessage) {
  PartnerSocket sut(kAgent);
  ASSERT_TRUE(sut.init(kAddress, false));
  RawSocket sender(NN_PUSH);
  sender.connect(kAddress);
  sender.send({4, 5});
  void* buffer = nullptr;
  int count = 0;
  ASSERT_TRUE(waitUntil([&] { return sut.recvWithTimeout(&buffer, &count, 1000); }));
  EXPECT_EQ(count, 2);
  sut.freeBuffer(buffer);
  sut.shutdown(false);
}

TEST(PartnerSocket, AnEmptyMessageCountsAsNothingReceived) {
  PartnerSocket sut(kAgent);
  ASSERT_TRUE(sut.init(kAddress, false));
  RawSocket sender(NN_PUSH);
  sender.connect(kAddress);
  sender.send({});
  ASSERT_TRUE(waitUntil([&] { return sut.dataAvailable(); }));
  void* buffer = nullptr;
  int count = 0;
  EXPECT_FALSE(sut.recv(&buffer, &count));
  sut.shutdown(false);
}

TEST(PartnerSocket, DescriptorIsReadableWhenAMessageIsThere) {
  PartnerSocket sut(kAgent);
  ASSERT_TRUE(sut.init(kAddress, false));
  ASSERT_GE(sut.getFd(), 0);
  pollfd entry{sut.getFd(), POLLIN, 0};
  EXPECT_EQ(poll(&entry, 1, 0), 0);
  RawSocket sender(NN_PUSH);
  sender.connect(kAddress);
  sender.send({1});
  EXPECT_EQ(poll(&entry, 1, 30000), 1);
  sut.shutdown(false);
}

TEST(PartnerSocket, ErrorIsTheTextOfTheLastNanomsgError) {
  PartnerSocket sut(kAgent);
  errno = ETERM;
  EXPECT_EQ(sut.error(), nn_strerror(ETERM));
  errno = EBADF;
  EXPECT_EQ(sut.error(), "Bad file descriptor");
}

TEST(PartnerSocket, ShutdownWithoutTerminateLeavesNanomsgUsable) {
  PartnerSocket sut(kAgent);
  ASSERT_TRUE(sut.init(kAddress, false));
  sut.shutdown(false);
  RawSocket puller(NN_PULL);
  puller.bind(kAddress);  // the address is free again
  RawSocket pusher(NN_PUSH);
  pusher.connect(kAddress);
  pusher.send({8});
  EXPECT_EQ(puller.receive(), Bytes{8});
}

/// Takes a termination back at the end of a test, for the tests behind it in one process.
struct TerminationTakenBack {
  ~TerminationTakenBack() {
    if (&nn_init != nullptr) nn_init();
  }
};

TEST(PartnerSocket, ShutdownWithTerminateEndsNanomsg) {
  const TerminationTakenBack guard;
  PartnerSocket sut(kAgent);
  ASSERT_TRUE(sut.init(kAddress, false));
  sut.shutdown(true);
  EXPECT_EQ(nn_socket(AF_SP, NN_PUSH), -1);
  EXPECT_EQ(nn_errno(), ETERM);
}

TEST(PartnerSocket, ShutdownOfAnEmptyObjectTerminatesOnlyWhenAsked) {
  const TerminationTakenBack guard;
  PartnerSocket first(kAgent);
  first.shutdown(false);
  const int socket = nn_socket(AF_SP, NN_PUSH);
  EXPECT_GE(socket, 0);
  PartnerSocket second(kPartner);
  second.shutdown(true);
  EXPECT_EQ(nn_socket(AF_SP, NN_PUSH), -1);
  EXPECT_EQ(nn_errno(), ETERM);
}

TEST(PartnerSocket, ShutdownClosesTheThirdSocketToo) {
  PartnerSocket sut(kPartner);
  sut.socket_ = nn_socket(AF_SP, NN_PUSH);
  sut.endpoints[0] = nn_connect(sut.socket_, kAddress);
  sut.pollFds[0] = {sut.socket_, NN_POLLOUT, 0};
  sut.pollFds[2].fd = nn_socket(AF_SP, NN_PAIR);
  sut.endpoints[2] = nn_bind(sut.pollFds[2].fd, "ipc:///tmp/third");
  ASSERT_GE(sut.endpoints[2], 0);
  sut.shutdown(false);
  RawSocket other(NN_PAIR);
  other.bind("ipc:///tmp/third");  // free again
}

TEST(SocketReady, IsTrueForASocketWithRoom) {
  RawSocket puller(NN_PULL);
  puller.bind(kAddress);
  RawSocket pusher(NN_PUSH);
  pusher.connect(kAddress);
  errno = 0;
  EXPECT_TRUE(waitUntil([&] {
    errno = 0;
    return PartnerLib::socketReady(pusher.fd());
  }));
  PartnerSocket sut(kPartner);
  sut.socket_ = pusher.fd();
  EXPECT_TRUE(sut.readyToSend());
}

TEST(SocketReady, IsTrueForASocketWithRoomWhateverErrorIsLeftOver) {
  RawSocket puller(NN_PULL);
  puller.bind(kAddress);
  RawSocket pusher(NN_PUSH);
  pusher.connect(kAddress);
  nn_pollfd entry{pusher.fd(), NN_POLLOUT, 0};
  ASSERT_EQ(nn_poll(&entry, 1, 30000), 1);
  errno = EBADF;
  EXPECT_TRUE(PartnerLib::socketReady(pusher.fd()));
}

TEST(SocketReady, IsFalseForOtherErrorsThatAreLeftOver) {
  RawSocket pusher(NN_PUSH);
  for (const int error : {0, EAGAIN, EINTR, ETIMEDOUT, ENOTSUP + 1000}) {
    errno = error;
    EXPECT_FALSE(PartnerLib::socketReady(pusher.fd())) << error;
  }
}

JEX_HELPER(socket_ready_with_old_error) {
  const int socket = nn_socket(AF_SP, NN_PUSH);  // valid, but without a peer
  errno = std::stoi(arguments.at(0));
  PartnerLib::socketReady(socket);
  return 0;
}

JEX_HELPER(data_available_with_old_error) {
  PartnerSocket socket(kAgent);
  if (!socket.init(kAddress, false)) return 3;
  errno = std::stoi(arguments.at(0));
  socket.dataAvailable();
  return 0;
}

class DeadSocketError : public testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(Codes, DeadSocketError,
                         testing::Values(EBADF, EFAULT, EOPNOTSUPP, ETERM, EFSM));

TEST_P(DeadSocketError, StopsSocketReadyEvenWhenLeftOver) {
  Child child = Child::helper("socket_ready_with_old_error", {std::to_string(GetParam())});
  expectStop(child, {std::string("Error: Socket readyToSend failed - remote disconnect/dead") +
                         nn_strerror(GetParam()),
                     "JexPartnerLibSocket", "PartnerLib::socketReady(", "false"});
}

TEST_P(DeadSocketError, StopsDataAvailable) {
  Child child = Child::helper("data_available_with_old_error", {std::to_string(GetParam())});
  expectStop(child, {std::string("Error: Socket dataAvailable failed - remote disconnect/dead ") +
                         nn_strerror(GetParam()),
                     "JexPartnerLibSocket", "dataAvailable(", "false"});
}

JEX_HELPER(data_available_with_harmless_error) {
  PartnerSocket socket(kAgent);
  if (!socket.init(kAddress, false)) return 3;
  errno = EAGAIN;
  return socket.dataAvailable() ? 1 : 42;
}

TEST(PartnerSocket, DataAvailableIsFalseForOtherErrors) {
  Child child = Child::helper("data_available_with_harmless_error");
  EXPECT_EQ(child.waitForExit().code, 42);
}

JEX_HELPER(receive_on_a_closed_socket) {
  PartnerSocket socket(kAgent);
  if (!socket.init(kAddress, false)) return 3;
  nn_close(socket.socket_);
  void* buffer = nullptr;
  int count = 0;
  socket.recvWithTimeout(&buffer, &count, 10);
  return 0;
}

TEST(PartnerSocket, RecvWithTimeoutStopsOnADeadSocket) {
  Child child = Child::helper("receive_on_a_closed_socket");
  expectStop(child,
             {"Error: Socket recvWithTimeout failed - remote disconnect/dead Bad file descriptor",
              "JexPartnerLibSocket", "recvWithTimeout(", "r >= 0"});
}

TEST(SocketSend, SendsOneMessage) {
  RawSocket puller(NN_PULL);
  puller.bind(kAddress);
  RawSocket pusher(NN_PUSH);
  pusher.connect(kAddress);
  errno = 0;
  EXPECT_TRUE(PartnerLib::socketSend(pusher.fd(), "hello", 5));
  EXPECT_EQ(puller.receive(), (Bytes{'h', 'e', 'l', 'l', 'o'}));
}

// Threads may share a socket: whole messages interleave, bytes never.
TEST(SocketSend, KeepsMessagesOfSeveralThreadsWhole) {
  constexpr int kThreads = 4;
  constexpr int kMessages = 500;
  RawSocket puller(NN_PULL);
  puller.bind(kAddress);
  RawSocket pusher(NN_PUSH);
  pusher.connect(kAddress);
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&pusher, i] {
      const Bytes message(100 + static_cast<size_t>(i) * 400, static_cast<uint8_t>(i));
      errno = 0;
      for (int n = 0; n < kMessages; ++n) {
        PartnerLib::socketSend(pusher.fd(), message.data(), message.size());
      }
    });
  }
  int received[kThreads] = {};
  for (int n = 0; n < kThreads * kMessages && !HasFailure(); ++n) {
    const Bytes message = puller.receive();
    if (message.empty() || message[0] >= kThreads) {
      ADD_FAILURE() << "no message of any thread";
      break;
    }
    EXPECT_EQ(message, Bytes(100 + size_t{message[0]} * 400, message[0]));
    ++received[message[0]];
  }
  for (std::thread& thread : threads) thread.join();
  for (const int count : received) EXPECT_EQ(count, kMessages);
}

JEX_HELPER(send_less_than_all) {
  RawSocket puller(NN_PULL);
  puller.bind(kAddress);
  RawSocket pusher(NN_PUSH);
  pusher.connect(kAddress);
  failNanomsg("nn_send", 1, std::stoi(arguments.at(0)), ECONNRESET);
  errno = 0;
  PartnerLib::socketSend(pusher.fd(), "hello", 5);
  return 0;
}

TEST(SocketSend, StopsWhenLessThanTheMessageWasTaken) {
  Child child = Child::helper("send_less_than_all", {"3"});
  expectStop(child, {"Error: Cannot send 5 bytes. Sent: 3", "JexPartnerLibSocket",
                     "PartnerLib::socketSend(", "( size_t )sent == size"});
}

TEST(SocketSend, StopsWhenSendingFails) {
  Child child = Child::helper("send_less_than_all", {"-1"});
  expectStop(child, {"Error: Cannot send 5 bytes. Sent: -1", "JexPartnerLibSocket",
                     "PartnerLib::socketSend(", "( size_t )sent == size"});
}

JEX_HELPER(send_to_nobody) {
  const int socket = nn_socket(AF_SP, NN_PUSH);
  errno = EAGAIN;
  PartnerLib::socketSend(socket, "hello", 5);
  return 0;
}

TEST(SocketSendSlow, StopsAfterItsLastAttempt) {
  Child child = Child::helper("send_to_nobody");
  expectStop(child, {"Error: SOCKET Send ERROR(max retry) Resource temporarily unavailable",
                     "JexPartnerLibSocket", "PartnerLib::socketSend(", "false"});
}

TEST(Registration, IsBuiltForAnyPidAndName) {
  RawSocket puller(NN_PULL);
  puller.bind(kAddress);
  RawSocket pusher(NN_PUSH);
  pusher.connect(kAddress);
  PartnerLib::sendSocketNameToSliceAgent(pusher.fd(), 0x01020304, "ipc:///tmp/name");
  const Bytes message = puller.receive();
  ASSERT_EQ(message.size(), 80u);
  EXPECT_EQ(u32At(message, 0), 4u);
  EXPECT_EQ(u32At(message, 4), 0x01020304u);
  EXPECT_EQ(u64At(message, 8), 80u);
  EXPECT_STREQ(reinterpret_cast<const char*>(message.data() + 16), "ipc:///tmp/name");
}

TEST(Registration, CutsANameThatIsTooLongForItsField) {
  RawSocket puller(NN_PULL);
  puller.bind(kAddress);
  RawSocket pusher(NN_PUSH);
  pusher.connect(kAddress);
  PartnerLib::sendSocketNameToSliceAgent(pusher.fd(), 1, std::string(100, 'x').c_str());
  const Bytes message = puller.receive();
  ASSERT_EQ(message.size(), 80u);
  EXPECT_EQ(message[16 + 62], 'x');
  EXPECT_EQ(message[16 + 63], 0);
}

JEX_HELPER(start_grpc_server) {
  PartnerLib::startgRPCServer();
  return 0;
}

TEST(GrpcServer, StopsWhenItCannotBeStarted) {
  Child child = Child::helper("start_grpc_server", {},
                              {{"JX_MODEL_FAULTS", "jx_rt_grpc_server_run_with_addr:1:status=14"}});
  expectStop(child, {"Error: Cannot spawn gRPC server socket on 50053", "JexPartnerLibSocket",
                     "PartnerLib::startgRPCServer(", "jx_status == JX_SUCCESS"});
}

}  // namespace
}  // namespace jextest
