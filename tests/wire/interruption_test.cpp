// Signals whose handlers an application installs without SA_RESTART: they break calls off, and
// nothing else.
#include <dirent.h>
#include <gtest/gtest.h>
#include <nanomsg/nn.h>
#include <nanomsg/pair.h>
#include <nanomsg/pipeline.h>
#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <iostream>
#include <string>
#include <thread>

#include "JexPartnerLib.h"
#include "JexPartnerLibSocket.h"
#include "support/helper.h"
#include "support/raw_socket.h"
#include "support/stop.h"
#include "support/switch_device.h"
#include "support/table_writer.h"
#include "support/wait_until.h"
#include "wire/call_hooks.h"

namespace jextest {
namespace {

const char kPipe[] = "ipc:///tmp/interruption_test";

void handleWithoutRestart(int number) {
  struct sigaction action = {};
  action.sa_handler = [](int) {};
  sigaction(number, &action, nullptr);
}

/// Sends a signal to one thread over and over until its object goes.
class Disturbance {
 public:
  explicit Disturbance(pthread_t thread) {
    handleWithoutRestart(SIGUSR1);
    disturber_ = std::thread([this, thread] {
      while (!over_) {
        pthread_kill(thread, SIGUSR1);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
    });
  }
  ~Disturbance() {
    over_ = true;
    disturber_.join();
  }

 private:
  std::atomic<bool> over_{false};
  std::thread disturber_;
};

TEST(Interruption, ASendThatIsBrokenOffIsTriedAgain) {
  RawSocket puller(NN_PULL);
  puller.bind(kPipe);
  RawSocket pusher(NN_PUSH);
  pusher.connect(kPipe);
  // The poll promises room, as when another thread takes what there was. So sends wait as soon as
  // the pipe is full, and are broken off.
  std::atomic<int> broken_off{0};
  callHooks().poll = [&](nn_pollfd* fds, int count, int timeout) {
    if (fds[0].fd != pusher.fd() || broken_off > 2) return realPoll(fds, count, timeout);
    fds[0].revents = NN_POLLOUT;
    return 1;
  };
  callHooks().send = [&](int sock, const void* buffer, size_t size, int flags) {
    const int result = realSend(sock, buffer, size, flags);
    if (sock == pusher.fd() && result < 0 && nn_errno() == EINTR) ++broken_off;
    return result;
  };
  callHooks().pause = [](const timespec*, timespec*) {
    const timespec longer = {0, 1000000};  // so that attempts do not run out
    return realPause(&longer, nullptr);
  };
  uint32_t sent = 0;
  std::atomic<bool> done{false};
  std::thread sender([&] {
    errno = 0;
    while (broken_off <= 2) {
      const uint32_t number = sent + 1;
      EXPECT_TRUE(PartnerLib::socketSend(pusher.fd(), &number, sizeof number));
      sent = number;
    }
    done = true;
  });
  uint32_t received = 0;
  {
    const Disturbance disturbance(sender.native_handle());
    EXPECT_TRUE(waitUntil([&] { return broken_off > 2; }));
    for (Bytes message; !HasFailure() && !(done && received == sent);) {
      if (!puller.tryReceive(&message)) continue;
      EXPECT_EQ(u32At(message, 0), ++received) << "each message arrives once";
    }
  }
  sender.join();
  callHooks() = {};
}

JEX_HELPER(send_that_is_always_broken_off) {
  static std::atomic<int> sends{0};
  callHooks().poll = [](nn_pollfd* fds, int, int) {
    fds[0].revents = NN_POLLOUT;
    return 1;
  };
  callHooks().send = [](int, const void*, size_t, int) {
    ++sends;
    errno = EINTR;
    return -1;
  };
  callHooks().pause = [](const timespec*, timespec*) { return 0; };
  signal(SIGABRT, [](int) {
    const std::string line = std::to_string(sends) + "\n";
    const ssize_t written = write(STDOUT_FILENO, line.data(), line.size());
    static_cast<void>(written);
  });
  PartnerLib::socketSend(0, "hello", 5);
  return 0;
}

TEST(Interruption, ASendThatIsAlwaysBrokenOffStopsAfterItsLastAttempt) {
  Child child = Child::helper("send_that_is_always_broken_off");
  EXPECT_EQ(child.readLine(), "100000");
  expectStop(child, {"Error: SOCKET Send ERROR(max retry) Interrupted system call",
                     "JexPartnerLibSocket", "PartnerLib::socketSend(", "false"});
}

TEST(Interruption, TheShutDownGoesOnUntilItsSecondHasPassed) {
  PartnerLib::PartnerSocket sut(1);
  sut.socket_ = nn_socket(AF_SP, NN_PUSH);
  sut.endpoints[0] = nn_connect(sut.socket_, kPipe);
  ASSERT_GE(sut.endpoints[0], 0);
  const auto before = std::chrono::steady_clock::now();
  {
    const Disturbance disturbance(pthread_self());
    sut.shutdown(false);
  }
  EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::seconds(1));
}

/// A Partner that says "broken off" when three sends have been.
JEX_HELPER(disturbed_registration) {
  static std::atomic<int> broken_off{0};
  callHooks().send = [](int sock, const void* buffer, size_t size, int flags) {
    const int result = realSend(sock, buffer, size, flags);
    if (result < 0 && nn_errno() == EINTR && ++broken_off == 3) {
      std::cout << "broken off" << std::endl;
      errno = EINTR;
    }
    return result;
  };
  const Disturbance disturbance(pthread_self());
  PartnerLib::PartnerSocket sut(1);
  sut.init("ipc:///tmp/Partner0", false);
  std::cout << "registered" << std::endl;
  std::cin.get();  // what is queued when a process ends is dropped
  _exit(0);
}

TEST(Interruption, ARegistrationWaitsOnForAnAgent) {
  Child partner = Child::helper("disturbed_registration");
  ASSERT_EQ(partner.readLine(), "broken off") << partner.standardError();
  RawAgent agent;
  const std::string prefix = "ipc:///tmp/Partner_" + std::to_string(partner.pid()) + "_";
  EXPECT_EQ(agent.receiveRegistration().substr(0, prefix.size()), prefix);
  EXPECT_EQ(partner.readLine(), "registered") << partner.standardError();
}

JEX_HELPER(disturbed_agent) {
  PartnerLib::PartnerSocket sut(0);
  if (!sut.init(kPipe, false)) return 3;
  const Disturbance disturbance(pthread_self());
  void* buffer = nullptr;
  int count = 0;
  for (;;) sut.recvWithTimeout(&buffer, &count, 1000);
}

// Hosts block signals on the thread of the loop.
TEST(Interruption, ASignalStopsTheLoopOfAnAgent) {
  Child agent = Child::helper("disturbed_agent");
  expectStop(agent,
             {"Error: Socket recvWithTimeout failed - remote disconnect/dead Interrupted system "
              "call",
              "JexPartnerLibSocket", "recvWithTimeout(", "r >= 0"});
}

/// Sends SIGUSR1 to every thread of the process but its own, over and over, for the process's life.
void disturbAllThreads() {
  handleWithoutRestart(SIGUSR1);
  std::thread([] {
    const auto own = static_cast<long>(syscall(SYS_gettid));
    const pid_t pid = getpid();
    for (;;) {
      DIR* const tasks = opendir("/proc/self/task");
      while (const dirent* const task = readdir(tasks)) {
        const long id = strtol(task->d_name, nullptr, 10);
        if (id > 0 && id != own) syscall(SYS_tgkill, pid, id, SIGUSR1);
      }
      closedir(tasks);
      std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
  }).detach();
}

constexpr uint32_t kDisturbedWriters = 3;
constexpr uint32_t kDisturbedWrites = 2000;

JEX_HELPER(disturbed_partner) {
  disturbAllThreads();
  Profile profile({"limits"});
  const DeviceView view(1);
  PartnerLibStartup(view.session(), view.target(), JX_DEV_TYPE_MODEL, profile.get());
  std::vector<std::thread> writers;
  for (uint32_t owner = 0; owner < kDisturbedWriters; ++owner) {
    writers.emplace_back([&view, owner] {
      const TableWriter writer(view, owner);
      must(writer.add("exact_direct", owner, "small", 1), "add");
      for (uint32_t i = 1; i < kDisturbedWrites; ++i) {
        must(writer.modify("exact_direct", owner, "small", i), "modify");
      }
    });
  }
  for (std::thread& writer : writers) writer.join();
  std::cout << "written" << std::endl;
  std::string line;
  std::getline(std::cin, line);
  PartnerLibShutdown(1);
  std::cout << "done" << std::endl;
  _exit(0);
}

TEST(Interruption, NoPathOfAPartnerIsEndedByASignal) {
  RawAgent agent;
  Child partner = Child::helper("disturbed_partner");
  RawSocket reverse = RawAgent::connectTo(agent.receiveRegistration());
  uint32_t updates = 0;
  uint32_t pings = 0;
  for (uint32_t i = 0; i < kDisturbedWriters * kDisturbedWrites; ++i) {
    if (i % 20 == 0) reverse.send({255, 0, 0, 0});
    const Bytes message = agent.receive();
    ASSERT_GE(message.size(), 16u) << partner.standardError();
    ++(message[0] == 9 ? pings : updates);
  }
  while (updates < kDisturbedWriters * kDisturbedWrites) {
    const Bytes message = agent.receive();
    ASSERT_GE(message.size(), 16u) << partner.standardError();
    ++(message[0] == 9 ? pings : updates);
  }
  EXPECT_EQ(partner.readLine(), "written") << partner.standardError();
  EXPECT_EQ(partner.ask("end"), "done") << partner.standardError();
  const Exit exit = partner.waitForExit();
  EXPECT_EQ(exit.signal, 0) << partner.standardError();
  EXPECT_EQ(exit.code, 0);
}

}  // namespace
}  // namespace jextest
