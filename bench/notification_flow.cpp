#include "notification_flow.h"

#include <concurrentqueue/concurrentqueue.h>
#include <nanomsg/nn.h>
#include <nanomsg/pair.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "JexHybridSlice/JexPartnerLib.h"
#include "JexHybridSlice/JexPartnerLibDigest.h"
#include "JexHybridSlice/JexPartnerLibServer.h"
#include "bare_failure.h"
#include "child.h"
#include "clock.h"
#include "partner_process.h"

namespace bench {
namespace {

constexpr char kProgram[] = "l2_switch";
constexpr char kDigest[] = "mac_learn";
constexpr char kAddress[] = "ipc:///tmp/jex-bench-notify";
constexpr uint64_t kEntriesAMessage = 32;
constexpr uint64_t kPauseNs = 100'000;
constexpr size_t kBatch = 64;
constexpr size_t kValueBytes = sizeof(uint64_t);

/// One learned entry: its value is the time at which it is read.
class Entry final : public jxrt::JxRtTableData {
 public:
  jx_status_t getValue(uint32_t, size_t, uint8_t* value) const override {
    const uint64_t time = now();
    std::memcpy(value, &time, sizeof(time));
    return JX_SUCCESS;
  }
  jx_status_t setValue(uint32_t, uint64_t) override { return JX_NOT_SUPPORTED; }
  jx_status_t setValue(uint32_t, const uint8_t*, size_t) override { return JX_NOT_SUPPORTED; }
  jx_status_t setValue(uint32_t, const std::vector<uint32_t>&) override { return JX_NOT_SUPPORTED; }
  jx_status_t setValue(uint32_t, const std::vector<bool>&) override { return JX_NOT_SUPPORTED; }
  jx_status_t getValue(uint32_t, uint64_t*) const override { return JX_NOT_SUPPORTED; }
  jx_status_t getValue(uint32_t, std::vector<uint32_t>*) const override { return JX_NOT_SUPPORTED; }
  jx_status_t getValue(uint32_t, std::vector<bool>*) const override { return JX_NOT_SUPPORTED; }
  jx_status_t actionIdGet(uint32_t*) const override { return JX_NOT_SUPPORTED; }
  jx_status_t isActive(uint32_t, bool*) const override { return JX_NOT_SUPPORTED; }
};

/// A learn object that takes acknowledgements.
class Learn final : public jxrt::JxRtLearn {
 public:
  using Session = std::shared_ptr<jxrt::JxRtSession>;
  jx_status_t notifyAck(const Session&, jx_rt_learn_msg_hdl*) override { return JX_SUCCESS; }
  jx_status_t learnIdGet(uint32_t*) const override { return JX_NOT_SUPPORTED; }
  jx_status_t learnNameGet(std::string*) const override { return JX_NOT_SUPPORTED; }
  jx_status_t learnFieldIdListGet(std::vector<uint32_t>*) const override {
    return JX_NOT_SUPPORTED;
  }
  jx_status_t learnFieldNameGet(uint32_t, std::string*) const override { return JX_NOT_SUPPORTED; }
  jx_status_t learnFieldSizeGet(uint32_t, size_t*) const override { return JX_NOT_SUPPORTED; }
  jx_status_t callbackRegister(const Session&, const jx_rt_target_t&, const jxrt::JxRtLearnCb&,
                               const void*) override {
    return JX_NOT_SUPPORTED;
  }
  jx_status_t callbackDeregister(const Session&, const jx_rt_target_t&) override {
    return JX_NOT_SUPPORTED;
  }
};

/// Leaves the core to those who are measured.
void pauseBetween() { std::this_thread::sleep_for(std::chrono::nanoseconds(kPauseNs)); }

/// Dequeues `count` notifications and reports their times.
void reportDequeued(PartnerNotificationQueueHandle queue, uint64_t count) {
  std::vector<double> latencies;
  latencies.reserve(count);
  uint64_t begin = 0;
  uint64_t end = 0;
  void* values[kBatch];
  while (latencies.size() < count) {
    const size_t taken = PartnerNotificationQueueTryDequeue(queue, values, kBatch);
    if (taken == 0) std::this_thread::yield();
    for (size_t i = 0; i < taken; ++i) {
      uint64_t time = 0;
      std::memcpy(&time, static_cast<PartnerDigestNotify*>(values[i]) + 1, sizeof(time));
      end = now();
      if (begin == 0) begin = time;
      latencies.push_back(static_cast<double>(end - time));
    }
    PartnerNotificationQueueValuesFree(values, taken);
  }
  report({{"begin", begin}, {"end", end}, {"latencies", latencies}});
}

[[noreturn]] void obeyCounts(PartnerNotificationQueueHandle queue) {
  for (;;) reportDequeued(queue, std::stoull(awaitLine()));
}

}  // namespace

void notifyPartner(int pid, uint32_t learn_id, uint64_t count, bool paced) {
  static Learn learn;
  const auto session = jxrt::JxRtSession::sessionCreate();
  const PartnerLib::DigestNotifyCookieStruct cookie = {
      PartnerLib::findSendSocket(pid), &learn, learn_id, kValueBytes, {1}, {kValueBytes}};
  const uint64_t entries = paced ? 1 : kEntriesAMessage;
  for (uint64_t sent = 0; sent < count; sent += entries) {
    std::vector<std::unique_ptr<jxrt::JxRtTableData>> data;
    for (uint64_t i = 0; i < entries; ++i) data.push_back(std::make_unique<Entry>());
    if (PartnerLib::learnCppCallback(targetOf(kPhysical), session, std::move(data), nullptr,
                                     &cookie) != JX_SUCCESS) {
      throw std::runtime_error("learn callback");
    }
    if (paced) pauseBetween();
  }
}

void notifiedPartner(const char* program) {
  const PartnerProcess partner(program);
  PartnerNotificationQueueHandle queue = nullptr;
  PartnerNotificationQueueCreate("bench", 1 << 16, &queue);
  PartnerRegisterDigestNotification(kProgram, kDigest, targetOf(kVirtual), partner.session(),
                                    queue);
  const jxrt::JxRtInfo* info = nullptr;
  check(jxrt::JxRtDevMgr::getInstance().jxRtInfoGet(kVirtual, kProgram, &info), kProgram);
  jxrt::JxRtLearn* learn = nullptr;
  check(info->learnFromNameGet(kDigest, &learn), kDigest);
  uint32_t learn_id = 0;
  check(learn->learnIdGet(&learn_id), kDigest);
  // Answered after the registration has been handled.
  const uint64_t barrier = PartnerBarrierSend();
  while (PartnerBarrierGetLastComplete() != barrier) std::this_thread::yield();
  report({{"pid", getpid()}, {"learn", learn_id}});
  obeyCounts(queue);
}

void bareNotifies() {
  const int sock = nn_socket(AF_SP, NN_PAIR);
  if (sock < 0 || nn_connect(sock, kAddress) < 0) failBare("connect");
  report({{"ready", true}});
  for (;;) {
    std::istringstream line(awaitLine());
    std::string what;
    uint64_t count = 0;
    line >> what >> count;
    struct {
      PartnerDigestNotify head;
      uint8_t value[kValueBytes];
    } record = {};
    record.head.type = PARTNER_NOTIFY_DIGEST;
    for (uint64_t i = 0; i < count; ++i) {
      const uint64_t time = now();
      std::memcpy(record.value, &time, sizeof(time));
      if (nn_send(sock, &record, sizeof(record), 0) < 0) failBare("send");
      if (what == "paced") pauseBetween();
    }
    report({{"sent", count}});
  }
}

void bareNotified() {
  const int sock = nn_socket(AF_SP, NN_PAIR);
  if (sock < 0 || nn_bind(sock, kAddress) < 0) failBare("bind");
  PartnerNotificationQueueHandle queue = nullptr;
  PartnerNotificationQueueCreate("bare", 1 << 16, &queue);
  std::thread([=] {
    auto& notes = *static_cast<moodycamel::ConcurrentQueue<void*>*>(queue);
    const moodycamel::ProducerToken token(notes);
    for (;;) {
      void* message = nullptr;
      const int bytes = nn_recv(sock, &message, NN_MSG, 0);
      if (bytes < 0) failBare("receive");
      auto* const copy = new uint8_t[static_cast<size_t>(bytes)];
      std::memcpy(copy, message, static_cast<size_t>(bytes));
      nn_freemsg(message);
      notes.enqueue(token, copy);
    }
  }).detach();
  report({{"ready", true}});
  obeyCounts(queue);
}

}  // namespace bench
