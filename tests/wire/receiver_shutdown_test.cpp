// The receive thread of a Partner, and the order in which a Partner shuts down. Agent and Partner
// share this process.
#include <gtest/gtest.h>
#include <nanomsg/nn.h>
#include <nanomsg/pair.h>
#include <nanomsg/pipeline.h>
#include <poll.h>
#include <pthread.h>
#include <time.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "JexPartnerLib.h"
#include "JexPartnerLibServer.h"
#include "JexPartnerLibSocket.h"
#include "support/child.h"
#include "support/helper.h"
#include "support/raw_socket.h"
#include "support/switch_device.h"
#include "support/wait_until.h"
#include "wire/nanomsg_calls.h"
#include "wire/noted_calls.h"

extern "C" void nn_init(void) __attribute__((weak));

namespace jextest {
namespace {

constexpr jx_dev_id_t kVirtual = 1;

std::atomic<bool> cancelled{false};
std::atomic<long> waits{0};        // of the receive thread, for a message
std::atomic<long> waits_ended{0};  // of those, by a message
bool noting = false;

void noteStep(const std::string& step) {
  if (noting) note(step);
}

bool isReceiverPoll(const nn_pollfd* fds, int nfds) {
  return nfds == 2 && fds[1].events != NN_POLLOUT;
}

/// A raw agent and a Partner that has started.
struct InOneProcess {
  InOneProcess() : agent(std::make_unique<RawAgent>()), profile({"limits"}) {
    bringSdkUp();
    PartnerLib::moduleInitDone = true;
    const DeviceView view(kVirtual);
    PartnerLibStartup(view.session(), view.target(), JX_DEV_TYPE_MODEL, profile.get());
    address = agent->receiveRegistration();
  }

  std::unique_ptr<RawAgent> agent;
  Profile profile;
  std::string address;
};

const Bytes kHeartbeat = {255, 0, 0, 0};

JEX_HELPER(shut_down_while_a_ping_finds_no_room) {
  InOneProcess pair;
  RawSocket reverse = RawAgent::connectTo(pair.address);
  std::atomic<bool> retrying{false};
  std::atomic<int> attempts_left{1000};
  NanomsgCalls calls;
  calls.poll = [&](nn_pollfd* fds, int nfds, int timeout) {
    const bool ping = nfds == 1 && fds[0].events == NN_POLLOUT && fds[0].fd != reverse.fd();
    if (!ping) return realPoll(fds, nfds, timeout);
    retrying = true;
    while (!cancelled) std::this_thread::yield();
    if (--attempts_left < 0) _exit(3);
    errno = EAGAIN;
    return 0;
  };
  const NanomsgInFront front(&calls);
  reverse.send(kHeartbeat);
  if (!waitUntil([&] { return retrying.load(); })) return 2;
  PartnerLibShutdown(kVirtual);
  return 0;
}

TEST(ReceiveThread, EndsBetweenTwoAttemptsToSend) {
  Child child = Child::helper("shut_down_while_a_ping_finds_no_room");
  const Exit exit = child.waitForExit();
  EXPECT_EQ(exit.signal, 0) << child.standardError();
  EXPECT_EQ(exit.code, 0) << "3: attempts go on after the thread was cancelled";
}

JEX_HELPER(shut_down_after_a_poll_that_found_nothing) {
  InOneProcess pair;
  std::atomic<int> lies{0};
  NanomsgCalls calls;
  calls.poll = [&](nn_pollfd* fds, int nfds, int timeout) {
    if (!isReceiverPoll(fds, nfds) || lies > 0) return realPoll(fds, nfds, timeout);
    ++lies;
    fds[1].revents = NN_POLLIN;
    return 1;
  };
  const NanomsgInFront front(&calls);
  if (!waitUntil([&] { return lies > 0; })) return 2;
  PartnerLibShutdown(kVirtual);
  return 0;
}

TEST(ReceiveThread, EndsThoughAPollFoundInputThatIsNotThere) {
  Child child = Child::helper("shut_down_after_a_poll_that_found_nothing");
  EXPECT_EQ(child.waitForExit().code, 0) << child.standardError();
}

TEST(ReceiveThread, WaitsAfterEachPollThatFoundNothing) {
  std::atomic<long> polls{0};
  NanomsgCalls calls;
  calls.poll = [&](nn_pollfd* fds, int nfds, int timeout) {
    if (isReceiverPoll(fds, nfds)) ++polls;
    return realPoll(fds, nfds, timeout);
  };
  const NanomsgInFront front(&calls);
  waits = 0;
  InOneProcess pair;
  EXPECT_TRUE(waitUntil([&] { return waits > 10; }));
  const long polled = polls;  // read first: waits may go on meanwhile
  EXPECT_LE(polled, waits + 1);
  PartnerLibShutdown(kVirtual);
  if (&nn_init != nullptr) nn_init();
}

TEST(ReceiveThread, EndsItsWaitWhenAMessageComes) {
  InOneProcess pair;
  RawSocket reverse = RawAgent::connectTo(pair.address);
  const long before = waits_ended;
  // A message that comes between a poll and the wait ends that wait too; any of many will do.
  EXPECT_TRUE(waitUntil([&] {
    reverse.send(kHeartbeat);
    return waits_ended > before;
  }));
  PartnerLibShutdown(kVirtual);
  if (&nn_init != nullptr) nn_init();
}

TEST(ReceiveThread, GivesEveryMessageBack) {
  InOneProcess pair;
  std::mutex mutex;
  std::set<void*> held;
  int received = 0;
  std::atomic<std::thread::id> receiver;
  NanomsgCalls calls;
  calls.poll = [&](nn_pollfd* fds, int nfds, int timeout) {
    if (isReceiverPoll(fds, nfds)) receiver = std::this_thread::get_id();
    return realPoll(fds, nfds, timeout);
  };
  calls.recv = [&](int s, void* buf, size_t len, int flags) {
    const int result = realRecv(s, buf, len, flags);
    if (result >= 0 && std::this_thread::get_id() == receiver.load()) {
      const std::lock_guard<std::mutex> lock(mutex);
      held.insert(*static_cast<void**>(buf));
      ++received;
    }
    return result;
  };
  calls.freemsg = [&](void* message) {
    {
      const std::lock_guard<std::mutex> lock(mutex);
      held.erase(message);
    }
    return realFreemsg(message);
  };
  NanomsgInFront front(&calls);
  RawSocket reverse = RawAgent::connectTo(pair.address);
  ASSERT_TRUE(waitUntil([&] { return receiver.load() != std::thread::id(); }));
  reverse.send({});
  reverse.send(kHeartbeat);
  EXPECT_EQ(pair.agent->receive().size(), 16u);
  PartnerLibShutdown(kVirtual);
  EXPECT_EQ(received, 2);
  EXPECT_TRUE(held.empty());
  if (&nn_init != nullptr) nn_init();
}

// A thread that is cancelled inside nanomsg leaves nanomsg's locks locked.
TEST(ReceiveThread, CannotBeCancelledInsideNanomsg) {
  InOneProcess pair;
  std::atomic<int> calls_made{0};
  std::atomic<int> cancellable{0};
  const auto lookAtState = [&] {
    int state = 0;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
    if (state != PTHREAD_CANCEL_DISABLE) ++cancellable;
    pthread_setcancelstate(state, nullptr);
    ++calls_made;
  };
  NanomsgCalls calls;
  calls.poll = [&](nn_pollfd* fds, int nfds, int timeout) {
    if (isReceiverPoll(fds, nfds)) lookAtState();
    return realPoll(fds, nfds, timeout);
  };
  {
    const NanomsgInFront front(&calls);
    EXPECT_TRUE(waitUntil([&] { return calls_made > 10; }));
    PartnerLibShutdown(kVirtual);
  }
  EXPECT_EQ(cancellable, 0);
  if (&nn_init != nullptr) nn_init();
}

TEST(SocketFields, APartnerPollsItsTwoSockets) {
  InOneProcess pair;
  const PartnerLib::PartnerSocket& socket = *PartnerLib::pSocket;
  EXPECT_EQ(socket.numFds, 2);
  EXPECT_EQ(socket.pollFds[0].fd, socket.socket_);
  EXPECT_EQ(socket.pollFds[0].events, NN_POLLOUT);
  EXPECT_NE(socket.pollFds[1].fd, socket.socket_);
  EXPECT_EQ(socket.pollFds[1].events, NN_POLLIN | NN_POLLOUT);
  EXPECT_GE(socket.endpoints[0], 0);
  EXPECT_GE(socket.endpoints[1], 0);
  EXPECT_EQ(socket.endpoints[2], -1);
  PartnerLibShutdown(kVirtual);
  if (&nn_init != nullptr) nn_init();
}

JEX_HELPER(loop_that_answers_three_pings) {
  const SwitchDevice device(DeviceKind::kPhysical, 0, {"limits"});
  constexpr int kWait = 20;
  std::mutex mutex;
  std::set<void*> held;
  int received = 0;
  bool waited = false;
  bool waited_otherwise = false;
  NanomsgCalls calls;
  calls.poll = [&](nn_pollfd* fds, int nfds, int timeout) {
    {
      const std::lock_guard<std::mutex> lock(mutex);
      if (timeout == kWait) waited = true;
      if (timeout > 0 && timeout != kWait) waited_otherwise = true;
    }
    return realPoll(fds, nfds, timeout);
  };
  calls.recv = [&](int s, void* buf, size_t len, int flags) {
    const int result = realRecv(s, buf, len, flags);
    const std::lock_guard<std::mutex> lock(mutex);
    if (result > 0) ++received;
    if (result >= 0) held.insert(*static_cast<void**>(buf));
    return result;
  };
  calls.freemsg = [&](void* message) {
    {
      const std::lock_guard<std::mutex> lock(mutex);
      held.erase(message);
    }
    return realFreemsg(message);
  };
  const NanomsgInFront front(&calls);
  std::thread([&] {
    PartnerLibServerStartup(device.view().session().cHandle(), 0, kWait);
  }).detach();
  RawSocket partner(NN_PUSH);
  partner.connect("ipc:///tmp/Partner0");
  for (int i = 0; i < 3; ++i) partner.send(request(9, 77));
  const bool given_back = waitUntil([&] {
    const std::lock_guard<std::mutex> lock(mutex);
    return received == 3 && held.empty();
  });
  const std::lock_guard<std::mutex> lock(mutex);
  _exit(!given_back ? 3 : !waited ? 4 : waited_otherwise ? 5 : 0);
}

TEST(AgentLoop, WaitsAsItsHostSaysAndGivesEveryRequestBack) {
  Child child = Child::helper("loop_that_answers_three_pings");
  EXPECT_EQ(child.waitForExit().code, 0) << "3: a request is not given back; 4, 5: another wait\n"
                                         << child.standardError();
}

// While the device is removed, the whole Partner still works. Then the thread ends, queued messages
// have one second to leave, and the sockets are closed.
TEST(PartnerShutdown, TakesItsStepsInOrder) {
  InOneProcess pair;
  taken();
  noting = true;
  PartnerLibShutdown(kVirtual);
  noting = false;
  EXPECT_EQ(taken(), (Calls{"remove the device", "cancel the thread", "pause 1 s",
                            "shut the reverse path down", "close it", "shut requests down",
                            "close them", "terminate"}));
  if (&nn_init != nullptr) nn_init();
}

}  // namespace
}  // namespace jextest

using jextest::noteStep;
using PartnerLib::pSocket;

extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier): the linker gives these names
jx_status_t __real_jx_device_remove(jx_dev_id_t dev_id);
__attribute__((visibility("default"))) jx_status_t __wrap_jx_device_remove(jx_dev_id_t dev_id) {
  const bool works = pSocket != nullptr && pSocket->clientThread != nullptr &&
                     PartnerLib::pMessage != nullptr && !jextest::cancelled;
  noteStep(works ? "remove the device" : "remove the device too late");
  return __real_jx_device_remove(dev_id);
}

int __real_pthread_cancel(pthread_t thread);
__attribute__((visibility("default"))) int __wrap_pthread_cancel(pthread_t thread) {
  noteStep("cancel the thread");
  const int result = __real_pthread_cancel(thread);
  jextest::cancelled = true;
  return result;
}

int __real_poll(pollfd* fds, nfds_t nfds, int timeout);
__attribute__((visibility("default"))) int __wrap_poll(pollfd* fds, nfds_t nfds, int timeout) {
  const bool wait = nfds == 1 && fds[0].events == POLLIN && timeout == 100;
  if (wait) ++jextest::waits;
  const int ready = __real_poll(fds, nfds, timeout);
  if (wait && ready == 1) ++jextest::waits_ended;
  return ready;
}

unsigned __real_sleep(unsigned seconds);
__attribute__((visibility("default"))) unsigned __wrap_sleep(unsigned seconds) {
  noteStep("pause " + std::to_string(seconds) + " s");
  return __real_sleep(seconds);
}

int __real_nanosleep(const timespec* time, timespec* rest);
__attribute__((visibility("default"))) int __wrap_nanosleep(const timespec* time, timespec* rest) {
  if (time->tv_sec > 0) noteStep("pause " + std::to_string(time->tv_sec) + " s");
  return __real_nanosleep(time, rest);
}

int __real_nn_shutdown(int s, int how);
__attribute__((visibility("default"))) int __wrap_nn_shutdown(int s, int how) {
  const bool requests = pSocket != nullptr && s == pSocket->socket_;
  noteStep(requests ? "shut requests down" : "shut the reverse path down");
  return __real_nn_shutdown(s, how);
}

int __real_nn_close(int s);
__attribute__((visibility("default"))) int __wrap_nn_close(int s) {
  const bool requests = pSocket != nullptr && s == pSocket->socket_;
  noteStep(requests ? "close them" : "close it");
  return __real_nn_close(s);
}

void __real_nn_term();
__attribute__((visibility("default"))) void __wrap_nn_term() {
  noteStep("terminate");
  __real_nn_term();
}
// NOLINTEND(bugprone-reserved-identifier)

}  // extern "C"
