// Agent and partner with everything that waits for something at once: threads that write, digests
// and expiries without a pause, barriers one by one, heartbeats, notifications that are armed and
// disarmed, counters that are started and stopped, further partners that register. Nobody may come
// to wait for ever.
//
// JEX_TOGETHER_SECONDS says how long; scripts/soak.sh --together takes minutes.
#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <iterator>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "JexPartnerLib.h"
#include "JexPartnerLibClient.h"
#include "jxmodel/notify.h"
#include "support/child.h"
#include "support/helper.h"
#include "support/raw_socket.h"
#include "support/switch_device.h"
#include "support/table_writer.h"
#include "support/wait_until.h"

namespace jextest {
namespace {

using Clock = std::chrono::steady_clock;

// Counter starts copy all of it.
const char kSwitch[PARTNER_PROGRAM_NAME_BYTES] = "l2_switch";
constexpr jx_dev_id_t kChip = 0;
constexpr jx_dev_id_t kSlice = 1;
constexpr uint32_t kAgeing = 50;  // entries of smac

/// Threads that each repeat a step until all of them end.
class Crowd {
 public:
  void add(std::function<void()> step) {
    threads_.emplace_back([this, step = std::move(step)] {
      while (!over_) step();
    });
  }
  const std::atomic<bool>& over() const { return over_; }
  void end() {
    over_ = true;
    for (std::thread& thread : threads_) thread.join();
    threads_.clear();
  }

 private:
  std::atomic<bool> over_{false};
  std::vector<std::thread> threads_;
};

// ---- the agent --------------------------------------------------------------------------------

struct AgentCounts {
  std::atomic<uint64_t> digests{0}, expiries{0}, heartbeats{0}, updates{0};
};

/// One digest as it comes from a packet: an address of six bytes that counts up, and port 1.
void learnNext(uint64_t* address, AgentCounts* counts) {
  ++*address;
  uint8_t values[8] = {};
  for (int i = 0; i < 6; ++i) values[i] = static_cast<uint8_t>(*address >> (40 - 8 * i));
  values[7] = 1;
  if (jx_model_learn_inject(kChip, kSwitch, "mac_learn", values, 1) == JX_SUCCESS) {
    ++counts->digests;
  } else {
    std::this_thread::yield();  // nobody has armed it
  }
}

void ageNext(uint32_t first, uint32_t* position, AgentCounts* counts) {
  *position = (*position + 1) % kAgeing;
  if (jx_model_idle_expire(kChip, kSwitch, "smac", first + *position) == JX_SUCCESS) {
    ++counts->expiries;
  }
  std::this_thread::sleep_for(std::chrono::microseconds(100));
}

template <typename Period>
void every(Period period, const std::function<void()>& step) {
  step();
  std::this_thread::sleep_for(period);
}

/// FIRST: handle of the first of the entries that age. Its only command ends what it does beside
/// the loop, and is answered with how much of each there was.
JEX_HELPER(agent_of_all) {
  using std::chrono::milliseconds;
  const auto first = static_cast<uint32_t>(std::stoul(arguments.at(0)));
  const SwitchDevice device(DeviceKind::kPhysical, kChip, {kSwitch});
  std::thread([session = device.view().session().cHandle()] {
    PartnerLibServerStartup(session, kChip, 20);
  }).detach();
  AgentCounts counts;
  Crowd crowd;
  crowd.add([&counts, address = uint64_t{0}]() mutable { learnNext(&address, &counts); });
  crowd.add([&counts, first, i = uint32_t{0}]() mutable { ageNext(first, &i, &counts); });
  crowd.add([&counts] {
    every(milliseconds(100), [&] {
      PartnerLib::PeriodicHeartbeatUpdate();
      ++counts.heartbeats;
    });
  });
  crowd.add([&counts] {
    every(milliseconds(50), [&] {
      PartnerLib::PeriodicHybridCounterUpdate();
      ++counts.updates;
    });
  });
  std::string line;
  if (std::getline(std::cin, line)) {
    crowd.end();
    std::cout << counts.digests << " " << counts.expiries << " " << counts.heartbeats << " "
              << counts.updates << std::endl;
    std::getline(std::cin, line);
  }
  _exit(0);
}

// ---- the partner ------------------------------------------------------------------------------

/// What the partner did. A count that stands still says what is stuck.
struct PartnerCounts {
  std::atomic<uint64_t> writes{0}, digests{0}, aged{0}, barriers{0}, armings{0}, starts{0};

  std::string text() const {
    return std::to_string(writes) + " " + std::to_string(digests) + " " + std::to_string(aged) +
           " " + std::to_string(barriers) + " " + std::to_string(armings) + " " +
           std::to_string(starts);
  }
};

class Partner {
 public:
  Partner() : profile_({kSwitch}), view_(kSlice) {
    PartnerLibStartup(view_.session(), view_.target(), JX_DEV_TYPE_MODEL, profile_.get());
    const TableWriter writer(view_);
    for (uint32_t n = 1; n <= kAgeing; ++n) must(writer.add("smac", n, "known"), "smac");
    must(view_.table("smac").tableIdGet(&smac_), "table id");
    must(findJxRtLearnFromName(kSlice, kSwitch, "mac_learn")->learnIdGet(&mac_learn_), "learn id");
    PartnerNotificationQueueCreate("q", 1024, &queue_);
    PartnerRegisterDigestNotification(kSwitch, "mac_learn", view_.target(), session(), queue_);
    PartnerRegisterIdleNotification(kSwitch, "smac", 1000, 5000, 100, view_.target(), session(),
                                    queue_);
  }

  void begin() {
    for (uint32_t owner = 1; owner <= 3; ++owner) {
      crowd_.add([this, owner, i = uint32_t{0}]() mutable { write(owner, i++); });
    }
    crowd_.add([this] { drain(); });
    crowd_.add([this] { arm(); });
    crowd_.add([this] { count(); });
  }

  void end() {
    crowd_.end();
    PartnerDeregisterDigestNotification(kSwitch, "mac_learn", view_.target());
    PartnerDeregisterIdleNotification(kSwitch, "smac", view_.target());
    barrier(PartnerBarrierSend);
    drain();
    PartnerNotificationQueueDestroy(queue_);
  }
  std::string counts() const { return counts_.text(); }

 private:
  jx_rt_session_hdl* session() const { return view_.session().cHandle(); }

  /// Adds, modifies and deletes entries of dmac, 100 at a time.
  void write(uint32_t owner, uint32_t i) {
    const TableWriter writer(view_, owner);
    const uint32_t n = i % 100;
    switch (i / 100 % 3) {
      case 0:
        must(writer.add("dmac", n, "forward", i), "add");
        break;
      case 1:
        must(writer.modify("dmac", n, "forward", i), "modify");
        break;
      default:
        must(writer.remove("dmac", n), "delete");
    }
    ++counts_.writes;
  }

  void drain() {
    void* values[64];
    const size_t count = PartnerNotificationQueueTryDequeue(queue_, values, 64);
    for (size_t i = 0; i < count; ++i) {
      const bool digest = *static_cast<const uint8_t*>(values[i]) == 1;
      ++(digest ? counts_.digests : counts_.aged);
    }
    PartnerNotificationQueueValuesFree(values, count);
    if (count == 0) std::this_thread::yield();
  }

  /// Disarms and arms both again, after some of each have come since the last time.
  void arm() {
    constexpr uint64_t kSome = 200;
    while (counts_.digests < digests_before_ + kSome || counts_.aged == aged_before_) {
      if (crowd_.over()) return;
      std::this_thread::yield();
    }
    digests_before_ = counts_.digests;
    aged_before_ = counts_.aged;
    for (const bool enable : {false, true}) {
      sendEnableDigestNotifications(view_.target(), kSwitch, mac_learn_, 57, enable);
      const uint32_t ms = enable ? 1 : 0;
      sendEnableIdleNotifications(view_.target(), kSwitch, smac_, 1000 * ms, 5000 * ms, 100 * ms,
                                  enable);
    }
    ++counts_.armings;
  }

  /// Barriers of each kind, one by one, while the counters of a table come and go.
  void count() {
    void* handle = nullptr;
    PartnerCounterInit(kSwitch, "port_counters", view_.target(), session(), &handle);
    for (int i = 0; i < 3; ++i) {
      barrier([handle] { return PartnerBarrierSendWithCounterSync(handle); });
    }
    PartnerCounterFree(handle);
    barrier(PartnerBarrierSend);  // from here on nobody writes into the block
    ++counts_.starts;
  }

  template <typename Send>
  void barrier(Send send) {
    // A barrier is known by its millisecond.
    while (PartnerGetTimestamp() <= last_barrier_) std::this_thread::yield();
    last_barrier_ = send();
    const auto deadline = Clock::now() + kPatience;
    while (PartnerBarrierGetLastComplete() != last_barrier_) {
      if (Clock::now() > deadline) {
        std::cerr << "a barrier was not answered after " << counts() << std::endl;
        _exit(EXIT_FAILURE);
      }
      std::this_thread::yield();
    }
    ++counts_.barriers;
  }

  Profile profile_;
  DeviceView view_;
  uint32_t smac_ = 0;
  uint32_t mac_learn_ = 0;
  void* queue_ = nullptr;
  uint64_t last_barrier_ = 0;
  uint64_t digests_before_ = 0;  // the last arming
  uint64_t aged_before_ = 0;
  PartnerCounts counts_;
  Crowd crowd_;
};

JEX_HELPER(partner_of_all) {
  Partner partner;
  partner.begin();
  std::cout << "begun" << std::endl;
  std::string line;
  while (std::getline(std::cin, line) && line == "counts") {
    std::cout << partner.counts() << std::endl;
  }
  partner.end();
  std::cout << partner.counts() << std::endl;
  std::getline(std::cin, line);
  PartnerLibShutdown(kSlice);
  _exit(0);
}

// ---- further partners -------------------------------------------------------------------------

/// Partners of nothing but nanomsg. They come one after the other and answer heartbeats. None
/// leaves, because an agent with heartbeats stops when one does.
class Newcomers {
 public:
  static constexpr int kMost = 60;  // an agent has four descriptors less for each, for good

  Newcomers() {
    crowd_.add([this] { serve(); });
  }
  ~Newcomers() { crowd_.end(); }

  /// One more registers; it has come when a barrier of its own has been answered.
  void come() {
    constexpr uint64_t kName = 1;
    Newcomer next{RawPartner(kFirstPid + static_cast<uint32_t>(count()))};
    next.partner.registerWithAgent();
    Bytes barrier = request(10, next.partner.pid(), 284);
    putU64(barrier, 276, kName);
    next.partner.send(barrier);
    Bytes record = next.partner.receive();
    while (next.answers(record)) record = next.partner.receive();
    Bytes reply = {254, 0, 12, 0};
    putU64(reply, 4, kName);
    EXPECT_EQ(record, reply);
    const std::lock_guard<std::mutex> lock(mutex_);
    all_.push_back(std::move(next));
  }

  int count() const { return static_cast<int>(all_.size()); }

  /// Whether each of them has answered a heartbeat.
  bool allHaveAnswered() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return std::all_of(all_.begin(), all_.end(),
                       [](const Newcomer& one) { return one.heartbeats > 0; });
  }
  void end() { crowd_.end(); }

 private:
  struct Newcomer {
    RawPartner partner;
    int heartbeats = 0;

    /// Answers a heartbeat; false if `record` is none.
    bool answers(const Bytes& record) {
      if (record != Bytes{255, 0, 0, 0}) return false;
      partner.send(request(9, partner.pid()));
      ++heartbeats;
      return true;
    }
  };

  void serve() {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      Bytes record;
      for (Newcomer& one : all_) {
        const bool came = one.partner.tryReceive(&record);
        EXPECT_TRUE(!came || one.answers(record)) << "no heartbeat";
      }
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }

  static constexpr uint32_t kFirstPid = 1U << 30;  // more than Linux gives a process

  std::mutex mutex_;
  std::vector<Newcomer> all_;  // only the test's own thread changes its size
  Crowd crowd_;
};

std::vector<uint64_t> numbersOf(const std::string& line) {
  std::istringstream stream(line);
  return {std::istream_iterator<uint64_t>(stream), std::istream_iterator<uint64_t>()};
}

std::chrono::seconds howLong() {
  const char* const text = std::getenv("JEX_TOGETHER_SECONDS");
  return std::chrono::seconds(text == nullptr ? 5 : std::stoi(text));
}

/// Waits until each of the partner's counts is above what it was.
bool allGoOn(Child& partner, std::vector<uint64_t>* counts) {
  return waitUntil([&] {
    const std::vector<uint64_t> now = numbersOf(partner.ask("counts"));
    if (now.size() != counts->size()) return true;  // it has ended; the caller sees that
    for (size_t i = 0; i < now.size(); ++i) {
      if (now[i] <= (*counts)[i]) return false;
    }
    *counts = now;
    return true;
  });
}

TEST(TogetherSlow, NobodyWaitsForEver) {
  uint32_t first = 0;
  {
    const SwitchDevice device(DeviceKind::kVirtual, kSlice, {kSwitch});
    const TableWriter writer(device.view());
    must(writer.add("smac", 1, "known"), "smac");
    first = writer.handle("smac", 1);
  }
  Child agent = Child::helper("agent_of_all", {std::to_string(first)});
  Child partner = Child::helper("partner_of_all");
  ASSERT_EQ(partner.readLine(), "begun") << partner.standardError() << agent.standardError();
  std::vector<uint64_t> counts(6, 0);
  Newcomers newcomers;
  const auto began = Clock::now();
  do {
    while (newcomers.count() < Newcomers::kMost &&
           (Clock::now() - began) * Newcomers::kMost >= howLong() * newcomers.count()) {
      newcomers.come();
    }
    ASSERT_TRUE(allGoOn(partner, &counts)) << partner.ask("counts");
    ASSERT_FALSE(partner.ended() || agent.ended())
        << "after " << (Clock::now() - began) / std::chrono::seconds(1) << " s\n"
        << partner.standardError() << agent.standardError();
  } while (Clock::now() < began + howLong());
  EXPECT_TRUE(waitUntil([&] { return newcomers.allHaveAnswered(); })) << agent.standardError();
  const std::string done = partner.ask("end");
  std::cout << "writes, digests, aged entries, barriers, armings, counter starts: " << done
            << std::endl;
  ASSERT_EQ(numbersOf(done).size(), 6u) << partner.standardError() << agent.standardError();
  const std::vector<uint64_t> made = numbersOf(agent.ask("end"));
  ASSERT_EQ(made.size(), 4u) << agent.standardError();
  newcomers.end();  // nobody would take further answers
  std::cout << "partners that registered meanwhile: " << newcomers.count() << std::endl;
  std::cout << "digests, expiries, heartbeats, counter updates of the agent: " << made[0] << " "
            << made[1] << " " << made[2] << " " << made[3] << std::endl;
  for (const uint64_t count : made) EXPECT_GT(count, 0u);
  partner.closeInput();
  EXPECT_EQ(partner.waitForExit().code, 0) << partner.standardError();
  agent.closeInput();
  EXPECT_EQ(agent.waitForExit().code, 0) << agent.standardError();
}

}  // namespace
}  // namespace jextest
