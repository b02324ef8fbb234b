// Registrations and disarmings while what they are about is on its way, ten thousand times.
#include <gtest/gtest.h>
#include <nanomsg/nn.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <iostream>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "JexPartnerLib.h"
#include "support/helper.h"
#include "support/switch_device.h"
#include "support/table_writer.h"
#include "support/wait_until.h"
#include "support/write_command.h"
#include "wire/notify_frames.h"
#include "wire/notify_processes.h"
#include "wire/notify_programs.h"
#include "wire/recorded_update.h"

namespace jextest {
namespace {

constexpr uint32_t kDigests = 7000;
constexpr uint32_t kTables = 3000;
constexpr uint32_t kSteady = kDigests + 1;  // the digest that stays

// ---- the Partner's side: registrations that come and go --------------------------------------

/// A queue and what was found in it.
class Drained {
 public:
  explicit Drained(const std::string& name) {
    must(PartnerNotificationQueueCreate(name.c_str(), 8, &queue_) ? JX_SUCCESS : JX_INTERNAL_ERROR,
         "queue");
  }
  ~Drained() { PartnerNotificationQueueDestroy(queue_); }
  Drained(const Drained&) = delete;
  Drained& operator=(const Drained&) = delete;
  void* queue() const { return queue_; }
  uint64_t found() const { return found_; }

  /// Takes what is there: records of `kind` and `id` only, in the order in which they were sent.
  void drain(uint8_t kind, uint32_t id) {
    void* values[16];
    size_t count = 0;
    while ((count = PartnerNotificationQueueTryDequeue(queue_, values, 16)) != 0) {
      for (size_t i = 0; i < count; ++i) check(static_cast<const uint8_t*>(values[i]), kind, id);
      PartnerNotificationQueueValuesFree(values, count);
    }
  }

 private:
  void check(const uint8_t* record, uint8_t kind, uint32_t id) {
    uint32_t own_id = 0;
    uint64_t time = 0;
    std::memcpy(&own_id, record + 4, sizeof own_id);
    std::memcpy(&time, record + (kind == 0 ? 12 : 8), sizeof time);
    must(record[0] == kind && own_id == id ? JX_SUCCESS : JX_INTERNAL_ERROR, "whose record");
    must(time > last_ ? JX_SUCCESS : JX_INTERNAL_ERROR, "order of records");
    last_ = time;
    ++found_;
  }

  void* queue_ = nullptr;
  uint64_t last_ = 0;
  uint64_t found_ = 0;
};

/// One registration from beginning to end; every other one waits for a record.
class Cycle {
 public:
  Cycle(const DeviceView& view, uint8_t kind, uint32_t n)
      : view_(view),
        kind_(kind),
        id_(kind == 0 ? manyTable(n) : manyDigest(n)),
        name_((kind == 0 ? "t" : "d") + std::to_string(n)),
        waits_(n % 2 == 0) {}

  uint64_t run() {
    Drained drained("queue of " + std::to_string(kind_));  // the same name again and again
    enroll(drained.queue());
    if (waits_) {
      must(waitUntilFound(&drained) ? JX_SUCCESS : JX_NOT_READY, "a record");
    }
    withdraw();
    drained.drain(kind_, id_);
    return drained.found();
  }

 private:
  void enroll(void* queue) {
    const bool done =
        kind_ == 0
            ? PartnerRegisterIdleNotification("many", name_.c_str(), 1000, 5000, 100,
                                              view_.target(), view_.session().cHandle(), queue)
            : PartnerRegisterDigestNotification("many", name_.c_str(), view_.target(),
                                                view_.session().cHandle(), queue);
    must(done ? JX_SUCCESS : JX_INTERNAL_ERROR, "registration");
  }
  void withdraw() {
    if (kind_ == 0) {
      PartnerDeregisterIdleNotification("many", name_.c_str(), view_.target());
    } else {
      PartnerDeregisterDigestNotification("many", name_.c_str(), view_.target());
    }
  }
  bool waitUntilFound(Drained* drained) const {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (drained->found() == 0 && std::chrono::steady_clock::now() < deadline) {
      drained->drain(kind_, id_);
      sched_yield();
    }
    return drained->found() != 0;
  }

  const DeviceView& view_;
  uint8_t kind_;
  uint32_t id_;
  std::string name_;
  bool waits_;
};

/// Answers "FOUND STEADY": records of registrations that came and went, and of the one that stays.
JEX_HELPER(racing_partner) {
  const DeviceView view(1);
  Profile profile({arguments.at(0)});
  if (!PartnerLibStartup(view.session(), view.target(), JX_DEV_TYPE_MODEL, profile.get())) return 1;
  std::atomic<bool> over{false};
  Drained steady("steady");
  PartnerRegisterDigestNotification("many", ("d" + std::to_string(kSteady)).c_str(), view.target(),
                                    view.session().cHandle(), steady.queue());
  std::thread consumer([&] {
    while (!over) {
      steady.drain(1, manyDigest(kSteady));
      sched_yield();
    }
  });
  std::thread queues([&] {
    for (uint32_t n = 0; !over; ++n) {
      const Drained one("other" + std::to_string(n % 5));
      const Drained two("more" + std::to_string(n % 3));
      sched_yield();
    }
  });
  std::atomic<uint64_t> found{0};
  std::thread tables([&] {
    for (uint32_t n = 1; n <= kTables; ++n) found += Cycle(view, 0, n).run();
  });
  for (uint32_t n = 1; n <= kDigests; ++n) found += Cycle(view, 1, n).run();
  tables.join();
  over = true;
  consumer.join();
  queues.join();
  std::cout << found << " " << steady.found() << std::endl;
  std::string line;
  std::getline(std::cin, line);
  _exit(0);
}

/// Sends records for everything that is armed, and a few for what no longer is.
class EagerAgent {
 public:
  EagerAgent(RawAgent& agent, RawSocket& reverse) : agent_(agent), reverse_(reverse) {}

  /// One turn; the number of requests that have been taken so far.
  size_t turn() {
    Bytes request;
    while (agent_.tryReceive(&request)) take(request);
    for (size_t i = 0; i < armed_.size(); ++i) {
      Armed& armed = armed_[i];
      if (!send(armed)) break;
      if (armed.left > 0 && --armed.left == 0) {
        armed_[i--] = armed_.back();
        armed_.pop_back();
      }
    }
    return requests_;
  }

 private:
  struct Armed {
    bool idle;
    uint32_t id;
    int left;  // records until it is forgotten; 0: armed
  };
  static constexpr int kLate = 3;

  void take(const Bytes& request) {
    ++requests_;
    const bool idle = u32At(request, 0) == 3;
    const uint32_t id = u32At(request, 16);
    if (u32At(request, idle ? 292 : 284) != 0) {
      armed_.push_back({idle, id, 0});
      return;
    }
    for (Armed& armed : armed_) {
      if (armed.idle == idle && armed.id == id) armed.left = kLate;
    }
  }

  bool send(const Armed& armed) {
    const Bytes record =
        armed.idle ? idleRecord(armed.id, 1, ++time_) : digestRecord(armed.id, ++time_, {1, 2, 3});
    return nn_send(reverse_.fd(), record.data(), record.size(), NN_DONTWAIT) >= 0;
  }

  RawAgent& agent_;
  RawSocket& reverse_;
  std::vector<Armed> armed_;
  uint64_t time_ = 0;
  size_t requests_ = 0;
};

TEST(NotifyRaceSlow, RegistrationsComeAndGoUnderTheirOwnRecords) {
  RawAgent agent;
  Child partner = Child::helper("racing_partner", {manyProgram(kSteady, kTables)});
  RawSocket reverse = RawAgent::connectTo(agent.receiveRegistration());
  EagerAgent eager(agent, reverse);
  constexpr size_t kRequests = 2 * (kDigests + kTables) + 1;
  while (eager.turn() < kRequests && !partner.ended()) sched_yield();
  // Late records go on until the Partner has counted.
  std::atomic<bool> over{false};
  std::thread late([&] {
    while (!over) {
      eager.turn();
      sched_yield();
    }
  });
  const std::vector<std::string> counts = wordsOf(partner.readLine());
  over = true;
  late.join();
  ASSERT_EQ(counts.size(), 2u) << partner.standardError();
  EXPECT_GE(std::stoull(counts[0]), (kDigests + kTables) / 2);
  EXPECT_GT(std::stoull(counts[1]), 0u);
  partner.closeInput();
  EXPECT_EQ(partner.waitForExit().code, 0) << partner.standardError();
  EXPECT_EQ(partner.standardError().find("ERROR"), std::string::npos) << partner.standardError();
  EXPECT_EQ(partner.standardError().find("WARNING"), std::string::npos) << partner.standardError();
}

// ---- the agent's side: arming and disarming under learn messages and expiries -----------------

constexpr int kCycles = 10000;

/// Takes what the agent sends, until it is told that all has been sent.
class Taker {
 public:
  explicit Taker(RawPartner& partner)
      : thread_([this, &partner] {
          Bytes record;
          while (!over_) {
            if (!partner.tryReceive(&record)) {
              sched_yield();
            } else {
              check(record);
            }
          }
        }) {}
  ~Taker() {
    over_ = true;
    thread_.join();
  }
  uint64_t idle() const { return idle_; }
  uint64_t digests() const { return digests_; }

 private:
  void check(const Bytes& record) {
    if (record.size() == 28 && record[0] == 1) {
      EXPECT_EQ(u32At(record, 4), manyDigest(1));
      const uint64_t number = __builtin_bswap64(u64At(record, 20));
      EXPECT_GT(number, last_);
      last_ = number;
      ++digests_;
    } else if (record.size() == 20 && record[0] == 0) {
      EXPECT_EQ(u32At(record, 4), kAllKinds);
      ++idle_;
    } else {
      ADD_FAILURE() << "no notification: " << hexOf(record);
    }
  }

  std::atomic<bool> over_{false};
  std::atomic<uint64_t> idle_{0};
  std::atomic<uint64_t> digests_{0};
  uint64_t last_ = 0;
  std::thread thread_;
};

TEST(NotifyRaceSlow, TheAgentDisarmsDigestsThatAreBeingSent) {
  NotifyAgentPair pair({manyProgram(1, 0)});
  {
    Taker taker(pair.partner);
    DigestRequest request{manyDigest(1), 0xFFFF, "many", 64, 1};
    EXPECT_EQ(pair.agent.ask("storm-digests many d1"), "begun");
    for (int i = 0; i < kCycles && !pair.agent.ended(); ++i) {
      request.enable = 1;
      pair.partner.send(request.message(pair.partner.pid()));
      // Every now and then it stays armed until something was sent.
      const uint64_t before = taker.digests();
      if (i % 50 == 0) {
        EXPECT_TRUE(waitUntil([&] { return taker.digests() > before; }));
      }
      request.enable = 0;
      pair.partner.send(request.message(pair.partner.pid()));
    }
    EXPECT_NE(pair.agent.ask("calm"), "0");
    EXPECT_EQ(pair.agent.ask("settled"), "0");
    EXPECT_GE(taker.digests(), static_cast<uint64_t>(kCycles / 50));
  }
  pair.waitUntilTaken();
  pair.expectAllTaken();
  EXPECT_EQ(pair.agent.standardError().find("Sanitizer"), std::string::npos);
}

TEST(NotifyRaceSlow, TheAgentDisarmsTablesWhoseEntriesAge) {
  constexpr uint32_t kEntries = 200;
  NotifyAgentPair pair;
  const SwitchDevice device(DeviceKind::kVirtual, 1, {"limits"}, 1000);
  std::vector<std::string> writes;
  for (uint32_t n = 1; n <= kEntries; ++n) {
    writes.push_back("add all_kinds " + std::to_string(n) + " nop");
  }
  for (const Bytes& message : messagesOf(device.view(), writes, pair.partner.pid())) {
    pair.partner.send(message);
  }
  const uint32_t first = TableWriter(device.view()).handle("all_kinds", 1);
  pair.waitUntilTaken();
  {
    Taker taker(pair.partner);
    IdleRequest request;
    EXPECT_EQ(pair.agent.ask("storm-expiries limits all_kinds " + std::to_string(first) + " " +
                             std::to_string(kEntries)),
              "begun");
    for (int i = 0; i < kCycles && !pair.agent.ended(); ++i) {
      request.enable = 1;
      pair.partner.send(request.message(pair.partner.pid()));
      const uint64_t before = taker.idle();
      if (i % 50 == 0) {
        EXPECT_TRUE(waitUntil([&] { return taker.idle() > before; }));
      }
      request.enable = 0;
      pair.partner.send(request.message(pair.partner.pid()));
    }
    EXPECT_NE(pair.agent.ask("calm"), "0");
    EXPECT_EQ(pair.agent.ask("settled"), "0");
    EXPECT_GE(taker.idle(), static_cast<uint64_t>(kCycles / 50));
  }
  pair.waitUntilTaken();
  pair.expectAllTaken();
  EXPECT_EQ(pair.agent.standardError().find("Sanitizer"), std::string::npos);
}

}  // namespace
}  // namespace jextest
