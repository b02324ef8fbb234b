// Digests at full speed from an agent to a Partner, both of them processes with the library: none
// is lost, none comes twice, each digest keeps its order, and the memory comes back.
#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "JexPartnerLib.h"
#include "support/helper.h"
#include "support/switch_device.h"
#include "support/wait_until.h"
#include "support/write_command.h"
#include "wire/new_hooks.h"
#include "wire/notify_processes.h"
#include "wire/notify_programs.h"

namespace jextest {
namespace {

constexpr uint32_t kDigests = 2;
constexpr uint64_t kEach = kSanitized ? 25000 : 500000;
constexpr std::chrono::minutes kFloodPatience{8};

/// Bytes that are allocated; not known under a sanitizer, whose heap is another.
uint64_t allocatedBytes() {
  if (kSanitized) return 0;
  malloc_trim(0);
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

/// What one consumer found wrong, and how much it found.
struct Found {
  uint64_t count = 0;
  std::string wrong;
};

/// Which digests have come; shared by all consumers.
class Arrivals {
 public:
  Arrivals() : seen_(kDigests * kEach) {}
  uint64_t count() const { return count_; }
  /// False if it has come before.
  bool note(uint32_t digest, uint64_t number) {
    ++count_;
    return seen_[digest * kEach + number - 1].fetch_add(1) == 0;
  }

 private:
  std::vector<std::atomic<uint8_t>> seen_;
  std::atomic<uint64_t> count_{0};
};

/// Takes digests until all have come, or none came for too long.
class Consumer {
 public:
  Consumer(void* queue, Arrivals* arrivals) : queue_(queue), arrivals_(arrivals) {}

  Found run() {
    const auto deadline = std::chrono::steady_clock::now() + kFloodPatience;
    while (arrivals_->count() < kDigests * kEach && found_.wrong.empty()) {
      if (std::chrono::steady_clock::now() > deadline) found_.wrong = "lost";
      void* values[256];
      const size_t count = PartnerNotificationQueueTryDequeue(queue_, values, 256);
      for (size_t i = 0; i < count; ++i) look(values[i]);
      PartnerNotificationQueueValuesFree(values, count);
      if (count == 0) sched_yield();
    }
    return found_;
  }

 private:
  void look(const void* value) {
    PartnerDigestNotify head;
    uint64_t number = 0;
    std::memcpy(&head, value, sizeof head);
    std::memcpy(&number, static_cast<const uint8_t*>(value) + sizeof head, sizeof number);
    number = __builtin_bswap64(number);
    const uint32_t digest = head.learnId - manyDigest(1);
    if (head.type != 1 || head.valueSize != 8 || digest >= kDigests || number == 0 ||
        number > kEach) {
      found_.wrong = "not what was sent";
      return;
    }
    if (!arrivals_->note(digest, number)) found_.wrong = "came twice";
    if (number <= last_[digest]) found_.wrong = "out of order";
    last_[digest] = number;
    ++found_.count;
  }

  void* queue_;
  Arrivals* arrivals_;
  Found found_;
  uint64_t last_[kDigests] = {};
};

class FloodedPartner {
 public:
  explicit FloodedPartner(const std::string& program) : view_(1), profile_({program}) {}

  void start() {
    PartnerLibStartup(view_.session(), view_.target(), JX_DEV_TYPE_MODEL, profile_.get());
    std::cout << "started" << std::endl;
  }

  void enroll() {
    arrays_before_ = livingArrays();
    bytes_before_ = allocatedBytes();
    PartnerNotificationQueueCreate("flood", 1024, &queue_);
    for (uint32_t n = 1; n <= kDigests; ++n) {
      PartnerRegisterDigestNotification("many", ("d" + std::to_string(n)).c_str(), view_.target(),
                                        view_.session().cHandle(), queue_);
    }
    std::cout << "registered" << std::endl;
  }

  void consume(int consumers, std::chrono::milliseconds pause) {
    std::this_thread::sleep_for(pause);  // the application looks elsewhere: what comes has to wait
    Arrivals arrivals;
    std::vector<Found> found(static_cast<size_t>(consumers));
    std::vector<std::thread> threads;
    for (Found& own : found) {
      threads.emplace_back([&] { own = Consumer(queue_, &arrivals).run(); });
    }
    for (std::thread& thread : threads) thread.join();
    std::string result = std::to_string(arrivals.count());
    for (const Found& own : found) {
      if (!own.wrong.empty()) result += " " + own.wrong;
    }
    std::cout << result << std::endl;
  }

  void withdraw() {
    for (uint32_t n = 1; n <= kDigests; ++n) {
      PartnerDeregisterDigestNotification("many", ("d" + std::to_string(n)).c_str(),
                                          view_.target());
    }
    void* value = nullptr;
    const size_t more = PartnerNotificationQueueTryDequeue(queue_, &value, 1);
    PartnerNotificationQueueDestroy(queue_);
    const uint64_t bytes = allocatedBytes();
    std::cout << more << " " << livingArrays() - arrays_before_ << " "
              << (bytes > bytes_before_ ? bytes - bytes_before_ : 0) << std::endl;
  }

 private:
  DeviceView view_;
  Profile profile_;
  void* queue_ = nullptr;
  long arrays_before_ = 0;
  uint64_t bytes_before_ = 0;
};

JEX_HELPER(flooded_partner) {
  FloodedPartner partner(arguments.at(0));
  for (std::string line; std::getline(std::cin, line);) {
    const auto words = wordsOf(line);
    if (line == "start") partner.start();
    if (line == "register") partner.enroll();
    if (line == "deregister") partner.withdraw();
    if (words.at(0) == "consume") {
      partner.consume(std::stoi(words.at(1)), std::chrono::milliseconds(std::stoi(words.at(2))));
    }
  }
  _exit(0);
}

/// An answer that may take as long as a flood does.
std::string patientAnswer(Child& child) {
  const auto deadline = std::chrono::steady_clock::now() + kFloodPatience;
  std::string line = "<silence>";
  while (line == "<silence>" && std::chrono::steady_clock::now() < deadline) {
    line = child.readLine();
  }
  return line;
}

struct Flood {
  const char* name;
  int consumers;
  int pause_ms;
};

class NotifyFloodSlow : public testing::TestWithParam<Flood> {};
INSTANTIATE_TEST_SUITE_P(Consumers, NotifyFloodSlow,
                         testing::Values(Flood{"One", 1, 0}, Flood{"OneThatPauses", 1, 5000},
                                         Flood{"Two", 2, 0}),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_P(NotifyFloodSlow, ReachesTheApplicationWhole) {
  const std::string program = manyProgram(kDigests, 0);
  Child agent = startNotifyAgent({program});
  Child partner = Child::helper("flooded_partner", {program});
  ASSERT_EQ(partner.ask("start"), "started") << partner.standardError();
  ASSERT_EQ(partner.ask("register"), "registered") << partner.standardError();
  const std::string n = std::to_string(kEach);
  const auto begin = std::chrono::steady_clock::now();
  agent.say("flood many " + n + " d1 d2");
  partner.say("consume " + std::to_string(GetParam().consumers) + " " +
              std::to_string(GetParam().pause_ms));
  EXPECT_EQ(patientAnswer(agent), "0") << agent.standardError();
  EXPECT_EQ(patientAnswer(partner), std::to_string(kDigests * kEach)) << partner.standardError();
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
  std::cout << kDigests * kEach << " digests in " << taken.count() << " s" << std::endl;

  const std::vector<std::string> left = wordsOf(partner.ask("deregister"));
  ASSERT_EQ(left.size(), 3u) << partner.standardError();
  EXPECT_EQ(left[0], "0") << "more than was sent";
  EXPECT_EQ(left[1], "0") << "arrays that nobody freed";
  // A million lost buffers are 40 MB and more; the arenas of threads keep a little.
  EXPECT_LT(std::stoull(left[2]), 4u << 20);
  EXPECT_EQ(agent.ask("settled"), "0");
  EXPECT_EQ(agent.ask("counts many d1"), n + " 0");
  EXPECT_EQ(agent.ask("counts many d2"), n + " 0");
}

}  // namespace
}  // namespace jextest
