// A physical device with l2_switch whose clock stands still, and what it told.
#pragma once

#include <gtest/gtest.h>

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "jxmodel/clock.h"
#include "jxmodel/notify.h"
#include "jxmodel/ports.h"
#include "jxsdk/drv.h"
#include "jxsdk/pipe_mgr.h"
#include "jxsdk/rt.hpp"
#include "packets.h"

namespace jxnotifytest {

using jxmodel::test::Bytes;

constexpr jx_dev_id_t kDevice = 5;
constexpr uint32_t kPatienceMs = 240'000;
constexpr uint64_t kMs = 1'000'000;                     // ns
constexpr uint64_t kStart = 1'600'000'000'000'000'000;  // ns since 1970

/// A frame of one host to another.
Bytes frame(uint64_t source, uint64_t destination = 0x02000000FFFF);
/// The digest of mac_learn for a host at a port.
Bytes digest(uint64_t source, uint16_t port);

/// Digests in the order in which they came; acknowledges if told to.
class Learner {
 public:
  explicit Learner(jxrt::JxRtLearn* learn, bool acknowledges = true);
  ~Learner();

  jx_status_t begin();
  jx_status_t end() const;
  jx_status_t acknowledge(size_t message);
  /// The learn object is not there any more.
  void deviceGone() { learn_ = nullptr; }

  std::vector<Bytes> digests() const;
  /// Digests of each message.
  std::vector<size_t> sizes() const;
  /// Waits until that many digests have come.
  bool wait(size_t digests) const;

  jxrt::JxRtLearnCb callback();

 private:
  jxrt::JxRtLearn* learn_;
  const bool acknowledges_;
  const std::shared_ptr<jxrt::JxRtSession> session_;
  std::vector<uint32_t> fields_;
  std::vector<size_t> bytes_;
  mutable std::mutex mutex_;  // guards all below
  mutable std::condition_variable changed_;
  std::vector<Bytes> digests_;
  std::vector<size_t> sizes_;
  std::vector<jx_rt_learn_msg_hdl*> handles_;
};

class NotifyTest : public testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
  /// In place of l2_switch: a description in JSON.
  void load(const std::string& json);

  static void inject(uint32_t port, const Bytes& bytes) {
    ASSERT_EQ(jx_model_inject(kDevice, port, bytes.data(), bytes.size()), JX_SUCCESS);
  }
  static void advance(uint64_t ms) { ASSERT_EQ(jx_model_clock_advance(ms * kMs), JX_SUCCESS); }
  /// Until all that is due has been told.
  static void settle() { ASSERT_EQ(jx_model_notify_wait_idle(kDevice, kPatienceMs), JX_SUCCESS); }
  jx_rt_target_t target() const { return {kDevice, JX_PIPE_ALL, 0, 0}; }
  const jxrt::JxRtInfo* info() const;
  jxrt::JxRtLearn* learn(const std::string& name = "mac_learn") const;
  static void setOptions(jx_model_learn_options_t options);
  static jx_model_learn_counts_t counts();
  /// Adds a capture file as an input.
  void attach(uint32_t port, const std::vector<jxmodel::PacketBuffer>& packets);

  std::string program_ = "l2_switch";
  const jxmodel::test::Folder folder_;
};

}  // namespace jxnotifytest
