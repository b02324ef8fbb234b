// The agent's process, and a raw Partner beside it.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <iostream>
#include <thread>
#include <vector>

#include "JexPartnerLib.h"
#include "jxmodel/faults.h"
#include "jxmodel/notify.h"
#include "support/helper.h"
#include "support/stop.h"
#include "support/switch_device.h"
#include "support/wait_until.h"
#include "support/write_command.h"
#include "wire/new_hooks.h"
#include "wire/notify_processes.h"
#include "wire/recorded_update.h"

namespace jextest {
namespace {

constexpr jx_dev_id_t kPhysical = 0;
constexpr uint32_t kPid = 31337;
constexpr uint32_t kNoType = 7;

using Words = std::vector<std::string>;

/// Digests of one field of 64 bits, in network byte order.
Bytes numbersFrom(uint64_t first, uint64_t count) {
  Bytes values;
  values.reserve(count * 8);
  for (uint64_t number = first; number < first + count; ++number) {
    for (int shift = 56; shift >= 0; shift -= 8) {
      values.push_back(static_cast<uint8_t>(number >> shift));
    }
  }
  return values;
}

jx_status_t inject(const Words& words, const Bytes& values, size_t count) {
  return jx_model_learn_inject(kPhysical, words.at(1).c_str(), words.at(2).c_str(), values.data(),
                               count);
}

jx_status_t countUp(const Words& words) {
  constexpr uint64_t kAtOnce = 4096;
  const uint64_t first = std::stoull(words.at(3));
  const uint64_t end = first + std::stoull(words.at(4));
  for (uint64_t next = first; next < end; next += kAtOnce) {
    const uint64_t count = std::min(kAtOnce, end - next);
    const jx_status_t status = inject(words, numbersFrom(next, count), count);
    if (status != JX_SUCCESS) return status;
  }
  return JX_SUCCESS;
}

std::string countsOf(const Words& words) {
  jx_model_learn_counts_t counts{};
  must(jx_model_learn_counts_get(kPhysical, words.at(1).c_str(), words.at(2).c_str(), &counts),
       "counts");
  return std::to_string(counts.delivered) + " " + std::to_string(counts.unacked);
}

/// Runs beside everything else until it is told to end.
class Storm {
 public:
  template <typename Step>
  void begin(Step step) {
    threads_.emplace_back([this, step]() mutable {
      for (uint64_t i = 0; !over_; ++i) {
        if (step(i) == JX_SUCCESS) {
          ++succeeded_;
        } else {
          std::this_thread::yield();
        }
      }
    });
  }
  /// Ends all steps; the number of those that the device took.
  uint64_t end() {
    over_ = true;
    for (std::thread& thread : threads_) thread.join();
    threads_.clear();
    over_ = false;
    return succeeded_.exchange(0);
  }

 private:
  std::atomic<bool> over_{false};
  std::atomic<uint64_t> succeeded_{0};
  std::vector<std::thread> threads_;
};

Storm& storm() {
  static auto* const instance = new Storm;  // its threads may run while the process ends
  return *instance;
}

/// Digests that count up, as long as somebody is registered.
std::string beginDigests(const Words& words) {
  storm().begin([words, next = uint64_t{1}](uint64_t) mutable {
    const jx_status_t status = inject(words, numbersFrom(next, 1), 1);
    if (status == JX_SUCCESS) ++next;
    return status;
  });
  return "begun";
}

/// Entries from HANDLE on that age out in turn, over and over.
std::string beginExpiries(const Words& words) {
  const auto first = static_cast<uint32_t>(std::stoul(words.at(3)));
  const auto count = static_cast<uint32_t>(std::stoul(words.at(4)));
  storm().begin([words, first, count](uint64_t i) {
    return jx_model_idle_expire(kPhysical, words.at(1).c_str(), words.at(2).c_str(),
                                first + static_cast<uint32_t>(i % count));
  });
  return "begun";
}

/// All named digests at once, each counting from 1 to N on a thread of its own; waits until they
/// are armed.
jx_status_t flood(const Words& words) {
  std::atomic<jx_status_t> status{JX_SUCCESS};
  std::vector<std::thread> threads;
  for (size_t i = 3; i < words.size(); ++i) {
    threads.emplace_back([&words, &status, i] {
      jx_status_t own = JX_SUCCESS;
      waitUntil([&] {
        own = countUp({"", words.at(1), words.at(i), "1", words.at(2)});
        return own != JX_NO_LEARN_CLIENTS;
      });
      if (own != JX_SUCCESS) status = own;
    });
  }
  for (std::thread& thread : threads) thread.join();
  return status;
}

std::string answerTo(const Words& words) {
  const std::string& command = words.at(0);
  if (command == "storm-digests") return beginDigests(words);
  if (command == "storm-expiries") return beginExpiries(words);
  if (command == "calm") return std::to_string(storm().end());
  if (command == "flood") return std::to_string(flood(words));
  if (command == "fault") return std::to_string(armFault(words));
  if (command == "no-memory-from") {
    failNewsFrom(std::stoul(words.at(1)));
    return "done";
  }
  if (command == "inject") return std::to_string(inject(words, bytesOfHex(words.at(3)), 1));
  if (command == "count-up") return std::to_string(countUp(words));
  if (command == "expire") {
    return std::to_string(jx_model_idle_expire(kPhysical, words.at(1).c_str(), words.at(2).c_str(),
                                               static_cast<uint32_t>(std::stoul(words.at(3)))));
  }
  if (command == "settled") {
    const auto patience = std::chrono::milliseconds(kPatience).count();
    return std::to_string(jx_model_notify_wait_idle(kPhysical, static_cast<uint32_t>(patience)));
  }
  if (command == "counts") return countsOf(words);
  if (command == "heartbeat") return PartnerLib::PeriodicHeartbeatUpdate() ? "true" : "false";
  return "no such command";
}

void answerCommands() {
  for (std::string line; std::getline(std::cin, line);) {
    std::cout << answerTo(wordsOf(line)) << std::endl;
  }
  _exit(0);
}

}  // namespace

JEX_HELPER(notify_agent) {
  const SwitchDevice device(DeviceKind::kPhysical, kPhysical, arguments);
  std::thread(answerCommands).detach();
  PartnerLibServerStartup(device.view().session().cHandle(), kPhysical, 20);
  return 1;
}

Child startNotifyAgent(const std::vector<std::string>& programs,
                       const Child::Environment& environment) {
  return Child::helper("notify_agent", programs, environment);
}

NotifyAgentPair::NotifyAgentPair(const std::vector<std::string>& programs,
                                 const Child::Environment& environment)
    : agent(startNotifyAgent(programs, environment)), partner(kPid) {
  partner.registerWithAgent();
}

void NotifyAgentPair::expectAllTaken() {
  partner.send(request(kNoType, kPid));
  expectStop(agent, {"Error: Deserialize from socket unsupported for msg Type: 7",
                     "JexPartnerLibServer", "PartnerLib::PartnerMessage::deSerialize(", "false"});
}

std::vector<Bytes> NotifyAgentPair::waitUntilTaken() {
  static uint64_t stamp = 0;
  Bytes barrier = request(10, kPid, 284);
  putU64(barrier, 276, ++stamp);
  partner.send(barrier);
  std::vector<Bytes> before;
  for (;;) {
    Bytes record = partner.receive();
    if (record.empty()) {
      ADD_FAILURE() << "no answer to a barrier; " << agent.standardError();
      return before;
    }
    if (record[0] == 254 && u64At(record, 4) == stamp) return before;
    before.push_back(std::move(record));
  }
}

}  // namespace jextest
