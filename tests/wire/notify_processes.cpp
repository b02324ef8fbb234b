#include "wire/notify_processes.h"

#include <concurrentqueue/concurrentqueue.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <map>
#include <memory>

#include "JexPartnerLib.h"
#include "JexPartnerLibServer.h"
#include "JexPartnerLibSocket.h"
#include "jxmodel/faults.h"
#include "support/helper.h"
#include "support/switch_device.h"
#include "support/wait_until.h"
#include "support/write_command.h"
#include "wire/malloc_fault.h"
#include "wire/new_hooks.h"

namespace jextest {
namespace {

constexpr jx_dev_id_t kVirtual = 1;

using Words = std::vector<std::string>;

uint32_t numberOf(const std::string& word) { return static_cast<uint32_t>(std::stoul(word)); }
std::string textOf(bool value) { return value ? "true" : "false"; }

class NotifyPartnerProcess {
 public:
  explicit NotifyPartnerProcess(const Arguments& programs) : profile_(programs), view_(kVirtual) {}

  void serve() {
    for (std::string line; std::getline(std::cin, line);) {
      std::cout << answerTo(wordsOf(line)) << std::endl;
    }
  }

 private:
  using Command = std::string (NotifyPartnerProcess::*)(const Words&);

  std::string answerTo(const Words& words) {
    static const std::map<std::string, Command> commands = {
        {"start", &NotifyPartnerProcess::start},
        {"no-token", &NotifyPartnerProcess::failToken},
        {"no-memory-from", &NotifyPartnerProcess::failNews},
        {"no-blocks", &NotifyPartnerProcess::failBlocks},
        {"queue", &NotifyPartnerProcess::createQueue},
        {"destroy", &NotifyPartnerProcess::destroyQueue},
        {"idle", &NotifyPartnerProcess::registerIdle},
        {"no-idle", &NotifyPartnerProcess::deregisterIdle},
        {"digest", &NotifyPartnerProcess::registerDigest},
        {"no-digest", &NotifyPartnerProcess::deregisterDigest},
        {"take", &NotifyPartnerProcess::take},
        {"empty", &NotifyPartnerProcess::empty},
        {"receive", &NotifyPartnerProcess::receive},
    };
    if (words.at(0) == "fault") return std::to_string(armFault(words));
    const auto found = commands.find(words.at(0));
    return found == commands.end() ? "no such command" : (this->*found->second)(words);
  }

  std::string start(const Words&) {
    return textOf(
        PartnerLibStartup(view_.session(), view_.target(), JX_DEV_TYPE_MODEL, profile_.get()));
  }
  std::string failToken(const Words&) {
    failNothrowNewOf(sizeof(moodycamel::ProducerToken));
    return "done";
  }
  std::string failNews(const Words& words) {
    failNewsFrom(numberOf(words.at(1)));
    return "done";
  }
  std::string failBlocks(const Words&) {
    failMallocs();
    return "done";
  }
  std::string createQueue(const Words& words) {
    return textOf(PartnerNotificationQueueCreate(words.at(1).c_str(), numberOf(words.at(2)),
                                                 &queues_[words.at(1)]));
  }
  std::string destroyQueue(const Words& words) {
    return textOf(PartnerNotificationQueueDestroy(queues_.at(words.at(1))));
  }
  std::string registerIdle(const Words& words) {
    return textOf(PartnerRegisterIdleNotification(
        words.at(1).c_str(), words.at(2).c_str(), numberOf(words.at(3)), numberOf(words.at(4)),
        numberOf(words.at(5)), targetOf(words.at(6)), view_.session().cHandle(),
        queues_.at(words.at(7))));
  }
  std::string deregisterIdle(const Words& words) {
    return textOf(PartnerDeregisterIdleNotification(words.at(1).c_str(), words.at(2).c_str(),
                                                    targetOf(words.at(3))));
  }
  std::string registerDigest(const Words& words) {
    return textOf(PartnerRegisterDigestNotification(
        words.at(1).c_str(), words.at(2).c_str(), targetOf(words.at(3)), view_.session().cHandle(),
        queues_.at(words.at(4))));
  }
  std::string deregisterDigest(const Words& words) {
    return textOf(PartnerDeregisterDigestNotification(words.at(1).c_str(), words.at(2).c_str(),
                                                      targetOf(words.at(3))));
  }

  std::string take(const Words& words) {
    void* value = nullptr;
    const bool taken = waitUntil([&] {
      return PartnerNotificationQueueTryDequeue(queues_.at(words.at(1)), &value, 1) == 1;
    });
    if (!taken) return "nothing";
    const auto* const bytes = static_cast<const uint8_t*>(value);
    const size_t size = arraySize(value);
    const std::string text = std::to_string(size) + " " + hexOf(Bytes(bytes, bytes + size));
    PartnerNotificationQueueValuesFree(&value, 1);
    return text;
  }
  std::string empty(const Words& words) {
    void* values[16];
    const size_t count = PartnerNotificationQueueTryDequeue(queues_.at(words.at(1)), values, 16);
    PartnerNotificationQueueValuesFree(values, count);
    return std::to_string(count);
  }
  std::string receive(const Words& words) {
    const Bytes record = bytesOfHex(words.at(1));
    // As large as the record: a sanitizer sees the first byte that is read beyond it.
    const std::unique_ptr<uint8_t[]> exact(new uint8_t[record.size()]);
    std::copy(record.begin(), record.end(), exact.get());
    processClientMessageFromSocket(exact.get(), static_cast<int>(record.size()),
                                   PartnerLib::pSocket);
    return "done";
  }

  jx_rt_target_t targetOf(const std::string& pipe) const {
    jx_rt_target_t target = view_.target();
    target.pipe_id = numberOf(pipe);
    return target;
  }

  Profile profile_;
  DeviceView view_;
  std::map<std::string, void*> queues_;
};

}  // namespace

JEX_HELPER(notify_partner) {
  NotifyPartnerProcess(arguments).serve();
  _exit(0);
}

jx_status_t armFault(const std::vector<std::string>& words) {
  const std::string& effect = words.at(3);
  const bool null = effect == "null";
  return jx_model_fault_arm(words.at(1).c_str(), std::stoull(words.at(2)),
                            null ? JX_MODEL_FAULT_NULL : JX_MODEL_FAULT_STATUS,
                            null ? 0 : static_cast<uint32_t>(std::stoul(effect.substr(7))));
}

Child startNotifyPartner(const std::vector<std::string>& programs,
                         const Child::Environment& environment) {
  return Child::helper("notify_partner", programs, environment);
}

NotifyPair::NotifyPair(const std::vector<std::string>& programs,
                       const Child::Environment& environment)
    : partner(startNotifyPartner(programs, environment)), reverse([this] {
        EXPECT_EQ(partner.ask("start"), "true") << partner.standardError();
        return RawAgent::connectTo(agent.receiveRegistration());
      }()) {}

void NotifyPair::registerTable() {
  EXPECT_EQ(partner.ask("queue q 16"), "true");
  EXPECT_EQ(partner.ask("idle limits all_kinds 1000 5000 100 65535 q"), "true")
      << partner.standardError();
  EXPECT_EQ(u32At(agent.receive(), 0), 3u);
}

void NotifyPair::registerDigest() {
  EXPECT_EQ(partner.ask("queue q 16"), "true");
  EXPECT_EQ(partner.ask("digest limits addresses 65535 q"), "true") << partner.standardError();
  EXPECT_EQ(u32At(agent.receive(), 0), 8u);
}

Bytes NotifyPair::take(size_t* size) {
  const Words words = wordsOf(partner.ask("take q"));
  if (words.size() != 2) {
    ADD_FAILURE() << "no notification; " << partner.standardError();
    return {};
  }
  if (size != nullptr) *size = std::stoul(words[0]);
  return bytesOfHex(words[1]);
}

void NotifyPair::waitUntilReceived() {
  reverse.send({255, 0, 0, 0});
  EXPECT_EQ(u32At(agent.receive(), 0), 9u) << "a heartbeat is answered with a ping";
}

std::string hexOf(const Bytes& bytes) {
  static const char digits[] = "0123456789abcdef";
  std::string text;
  for (const uint8_t byte : bytes) {
    text += digits[byte >> 4];
    text += digits[byte & 15];
  }
  return text;
}

Bytes bytesOfHex(const std::string& digits) {
  Bytes bytes;
  for (size_t i = 0; i + 1 < digits.size(); i += 2) {
    bytes.push_back(static_cast<uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

}  // namespace jextest
