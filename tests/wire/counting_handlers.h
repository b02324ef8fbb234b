// The agent's handlers of counters and barriers in the process of a test: the test plays the loop,
// the SDK's thread completes syncs.
#pragma once

#include <gtest/gtest.h>
#include <nanomsg/nn.h>
#include <nanomsg/pair.h>

#include <string>
#include <utility>

#include "JexPartnerLibCounter.h"
#include "jxmodel/service.h"
#include "support/raw_socket.h"
#include "support/switch_device.h"
#include "support/wait_until.h"
#include "wire/counter_frames.h"
#include "wire/counter_segment.h"

namespace jextest {

/// The agent's handlers, its device, and a Partner's reverse path. The counters are those of table
/// "pairs".
class CountingHandlers {
 public:
  CountingHandlers()
      : device_(DeviceKind::kPhysical, kDevice, {"limits"}),
        session_(device_.view().session().sessHandleGet()),
        segment_(segment()),
        sending_(NN_PAIR),
        receiving_(NN_PAIR) {
    receiving_.bind("inproc://reverse");
    sending_.connect("inproc://reverse");
  }
  ~CountingHandlers() { becomeIdle(); }

  void start() { configure(1); }
  void stop() { configure(0); }
  void handleBarrier(uint64_t timestamp) {
    const Bytes message = barrier(kPid, kPairs, timestamp);
    PartnerLib::barrierDeserialize(kDevice, session_, message.data() + 16, message.size() - 16,
                                   sending_.fd());
  }
  static void hold(bool held) { must(jx_model_service_hold(kDevice, held), "hold"); }
  static uint64_t waiting() {
    uint64_t count = 0;
    must(jx_model_service_pending(kDevice, &count), "pending");
    return count;
  }
  static void becomeIdle() {
    EXPECT_TRUE(waitUntil([] { return waiting() == 0; }));
  }

  CounterSegment& block() { return segment_; }
  bool tryReceive(Bytes* message) { return receiving_.tryReceive(message); }

  /// The record of the table; null if its counters are not started.
  static PartnerLib::CounterReadStruct_t* record() {
    const auto found = PartnerLib::countersCallbackMap.find(kPairs * 10);
    return found == PartnerLib::countersCallbackMap.end() ? nullptr : found->second;
  }
  /// What the record of the table has left: {pending, next}. Nothing may be under way.
  static std::pair<uint64_t, uint64_t> left() {
    const PartnerLib::CounterReadStruct_t* const rec = record();
    if (rec == nullptr) return {~uint64_t{0}, ~uint64_t{0}};
    return {__atomic_load_n(&rec->pendingBarrier, __ATOMIC_SEQ_CST),
            __atomic_load_n(&rec->nextBarrier, __ATOMIC_SEQ_CST)};
  }

 private:
  static constexpr uint32_t kPid = 4242;
  static constexpr jx_dev_id_t kDevice = 0;

  void configure(uint8_t enable) {
    const Bytes message = counterConfig(kPid, kPairs, enable);
    PartnerLib::counterConfigDeserialize(kDevice, session_, message.data() + 16,
                                         message.size() - 16, sending_.fd(), kPid);
  }

  /// The library keeps its mapping for the life of the process, and so do the tests theirs.
  static CounterSegment& segment() {
    static CounterSegment* const instance = [] {
      auto* const made = new CounterSegment(CounterSegment::create());
      made->makeBlock(std::to_string(kPairs), kPairCount);
      return made;
    }();
    return *instance;
  }

  SwitchDevice device_;
  uint32_t session_;
  CounterSegment& segment_;
  RawSocket sending_;
  RawSocket receiving_;
};

}  // namespace jextest
