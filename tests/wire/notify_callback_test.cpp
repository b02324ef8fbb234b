// The agent's callbacks by themselves, as the switch SDK calls them: with learn objects and data
// that no device has.
#include <gtest/gtest.h>
#include <nanomsg/pair.h>

#include <array>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "JexPartnerLibDigest.h"
#include "JexPartnerLibIdle.h"
#include "JexPartnerLibServer.h"
#include "support/helper.h"
#include "support/raw_socket.h"
#include "support/stop.h"
#include "support/wait_until.h"
#include "wire/notify_frames.h"

namespace jextest {
namespace {

using PartnerLib::DigestNotifyCookieStruct;
using PartnerLib::NotifyCookieStruct;

/// Two ends of a reverse path in one process.
struct ReversePath {
  ReversePath() : agent(NN_PAIR), partner(NN_PAIR) {
    partner.bind("ipc:///tmp/callback_test");
    agent.connect("ipc:///tmp/callback_test");
  }
  RawSocket agent;
  RawSocket partner;
};

/// One learned entry. Field n has the value n, n + 1, ... in as many bytes as it is asked for.
class FakeData final : public jxrt::JxRtTableData {
 public:
  using Reads = std::vector<std::pair<uint32_t, size_t>>;
  FakeData(Reads* reads, uint32_t failing_field) : reads_(reads), failing_field_(failing_field) {}

  jx_status_t getValue(uint32_t field_id, size_t size, uint8_t* value) const override {
    reads_->emplace_back(field_id, size);
    if (field_id == failing_field_) return JX_OBJECT_NOT_FOUND;
    for (size_t i = 0; i < size; ++i) value[i] = static_cast<uint8_t>(field_id + i);
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

 private:
  Reads* reads_;
  uint32_t failing_field_;
};

/// Remembers what is acknowledged.
class FakeLearn final : public jxrt::JxRtLearn {
 public:
  explicit FakeLearn(jx_status_t ack_status = JX_SUCCESS) : ack_status_(ack_status) {}

  jx_status_t notifyAck(const std::shared_ptr<jxrt::JxRtSession>& session,
                        jx_rt_learn_msg_hdl* message) override {
    acknowledged.emplace_back(session.get(), message);
    return ack_status_;
  }

  jx_status_t learnIdGet(uint32_t*) const override { return JX_NOT_SUPPORTED; }
  jx_status_t learnNameGet(std::string*) const override { return JX_NOT_SUPPORTED; }
  jx_status_t learnFieldIdListGet(std::vector<uint32_t>*) const override {
    return JX_NOT_SUPPORTED;
  }
  jx_status_t learnFieldNameGet(uint32_t, std::string*) const override { return JX_NOT_SUPPORTED; }
  jx_status_t learnFieldSizeGet(uint32_t, size_t*) const override { return JX_NOT_SUPPORTED; }
  jx_status_t callbackRegister(const std::shared_ptr<jxrt::JxRtSession>&, const jx_rt_target_t&,
                               const jxrt::JxRtLearnCb&, const void*) override {
    return JX_NOT_SUPPORTED;
  }
  jx_status_t callbackDeregister(const std::shared_ptr<jxrt::JxRtSession>&,
                                 const jx_rt_target_t&) override {
    return JX_NOT_SUPPORTED;
  }

  std::vector<std::pair<const jxrt::JxRtSession*, jx_rt_learn_msg_hdl*>> acknowledged;

 private:
  jx_status_t ack_status_;
};

class FakeSession final : public jxrt::JxRtSession {
 public:
  uint32_t sessHandleGet() const override { return 1; }
  jx_rt_session_hdl* cHandle() const override { return nullptr; }
};

/// One call of the learn callback.
struct LearnCall {
  explicit LearnCall(int socket, jx_status_t ack_status = JX_SUCCESS) : learn(ack_status) {
    cookie.sendSocket = socket;
    cookie.learn = &learn;
    cookie.learnId = 0xABCD1234;
    cookie.size = 0;
  }
  jx_status_t make(size_t entries, uint32_t failing_field = 0) {
    std::vector<std::unique_ptr<jxrt::JxRtTableData>> data;
    for (size_t i = 0; i < entries; ++i) {
      data.push_back(std::make_unique<FakeData>(&reads, failing_field));
    }
    return PartnerLib::learnCppCallback(target, session, std::move(data), message, &cookie);
  }

  jx_rt_target_t target{0x1FE, 0xFFFF, 0, 0};
  std::shared_ptr<jxrt::JxRtSession> session = std::make_shared<FakeSession>();
  jx_rt_learn_msg_hdl* message = reinterpret_cast<jx_rt_learn_msg_hdl*>(0x1234);
  DigestNotifyCookieStruct cookie{};
  FakeLearn learn;
  FakeData::Reads reads;
};

TEST(LearnCallback, SendsARecordForEachEntryAndAcknowledgesOnce) {
  ReversePath path;
  LearnCall call(path.agent.fd());
  call.cookie.fieldIds = {9, 4};
  call.cookie.fieldSizes = {3, 2};
  const uint64_t before = PartnerLib::getEpochTime();
  EXPECT_EQ(call.make(3), JX_SUCCESS);
  const uint64_t after = PartnerLib::getEpochTime();
  for (int i = 0; i < 3; ++i) {
    const Bytes record = path.partner.receive();
    ASSERT_EQ(record.size(), 25u);
    EXPECT_EQ(record[0], 1);
    EXPECT_EQ(record[1], 0xFE) << "the low byte of the target's device";
    EXPECT_EQ(integerAt<uint16_t>(record, 2), 25);
    EXPECT_EQ(u32At(record, 4), 0xABCD1234u);
    EXPECT_GE(u64At(record, 8), before);
    EXPECT_LE(u64At(record, 8), after);
    EXPECT_EQ(bytesFrom(record, 20), (Bytes{9, 10, 11, 4, 5})) << "in the cookie's order";
  }
  const FakeData::Reads each = {{9, 3}, {4, 2}};
  ASSERT_EQ(call.reads.size(), 6u);
  for (size_t i = 0; i < 6; ++i) EXPECT_EQ(call.reads[i], each[i % 2]);
  ASSERT_EQ(call.learn.acknowledged.size(), 1u);
  EXPECT_EQ(
      call.learn.acknowledged[0],
      std::make_pair(static_cast<const jxrt::JxRtSession*>(call.session.get()), call.message));
}

TEST(LearnCallback, AcknowledgesAMessageWithoutEntriesAndSendsNothing) {
  ReversePath path;
  for (const int socket : {path.agent.fd(), -1}) {
    LearnCall call(socket);
    call.cookie.fieldIds = {1};
    call.cookie.fieldSizes = {1};
    EXPECT_EQ(call.make(0), JX_SUCCESS);
    EXPECT_EQ(call.learn.acknowledged.size(), 1u);
  }
  path.agent.send({42});  // nothing is before it
  EXPECT_EQ(path.partner.receive(), Bytes{42});
}

TEST(LearnCallback, SendsTheHeadOfADigestWithoutFields) {
  ReversePath path;
  LearnCall call(path.agent.fd());
  EXPECT_EQ(call.make(1), JX_SUCCESS);
  const Bytes record = path.partner.receive();
  ASSERT_EQ(record.size(), 20u);
  EXPECT_EQ(integerAt<uint16_t>(record, 2), 20);
}

TEST(LearnCallback, SendsTheLargestRecord) {
  ReversePath path;
  LearnCall call(path.agent.fd());
  call.cookie.size = 2027;
  call.cookie.fieldIds = {1, 2};
  call.cookie.fieldSizes = {2000, 27};
  EXPECT_EQ(call.make(1), JX_SUCCESS);
  const Bytes record = path.partner.receive();
  ASSERT_EQ(record.size(), 2047u);
  Bytes values = countingBytes(2000, 1);
  append(values, countingBytes(27, 2));
  EXPECT_EQ(bytesFrom(record, 20), values);
}

// The bound goes by bits; fields of one bit take eight times as much in the record.
TEST(LearnCallback, SendsRecordsThatOutgrowTheirBoundByRounding) {
  ReversePath path;
  LearnCall call(path.agent.fd());
  call.cookie.size = 4000 / 8;
  for (uint32_t field = 1; field <= 4000; ++field) {
    call.cookie.fieldIds.push_back(field);
    call.cookie.fieldSizes.push_back(1);
  }
  EXPECT_EQ(call.make(2), JX_SUCCESS);
  for (int i = 0; i < 2; ++i) {
    const Bytes record = path.partner.receive();
    ASSERT_EQ(record.size(), 4020u);
    EXPECT_EQ(integerAt<uint16_t>(record, 2), 4020);
    EXPECT_EQ(bytesFrom(record, 20), countingBytes(4000));
  }
}

JEX_HELPER(learn_callback) {
  ReversePath path;
  const std::string& scenario = arguments.at(0);
  LearnCall call(scenario == "socket" ? -1 : path.agent.fd(),
                 scenario == "ack" ? JX_IO_ERROR : JX_SUCCESS);
  call.cookie.learnId = 77;
  call.cookie.fieldIds = {5, 6};
  call.cookie.fieldSizes = {1, 2};
  call.cookie.size = scenario == "size" ? 2028 : 3;
  call.make(scenario == "ack" ? 0 : 1, scenario == "field" ? 6 : 0);
  return 0;
}

class StoppingLearnCallback : public testing::TestWithParam<std::pair<const char*, Stop>> {};
INSTANTIATE_TEST_SUITE_P(
    Each, StoppingLearnCallback,
    testing::Values(
        std::make_pair("size",
                       Stop{"Error: Digest too big for: 77 got size of: 2048 expecting atmost: "
                            "2048",
                            "JexPartnerLibDigest", "PartnerLib::learnCppCallback(",
                            "( ( sizeof( PartnerDigestNotify ) + notifyCookie->size ) < "
                            "PACK_BUFFER_SIZE )"}),
        std::make_pair("field", Stop{"Error: Cannot get learn field value id: 77 fld: 6",
                                     "JexPartnerLibDigest", "PartnerLib::learnCppCallback(",
                                     "jx_status == JX_SUCCESS"}),
        std::make_pair("socket",
                       Stop{"Error: Invalid SliceAgent Send socket", "JexPartnerLibDigest",
                            "PartnerLib::learnCppCallback(", "( notifyCookie->sendSocket >= 0 )"}),
        std::make_pair("ack",
                       Stop{"Error: Unable to Ack Learn with driver: 77", "JexPartnerLibDigest",
                            "PartnerLib::learnCppCallback(", "jx_status == JX_SUCCESS"})),
    [](const auto& test) { return std::string(test.param.first); });

TEST_P(StoppingLearnCallback, Stops) {
  Child child = Child::helper("learn_callback", {GetParam().first});
  expectStop(child, GetParam().second);
}

TEST(IdleCallback, SendsWhatItIsToldOfAnEntry) {
  ReversePath path;
  NotifyCookieStruct cookie{path.agent.fd(), nullptr, 0x12345678};
  jx_rt_target_t target{0x2A5, 3, 0, 0};
  const std::array<uint32_t, 2> key = {0xDEADBEEF, 0x11111111};
  const uint64_t before = PartnerLib::getEpochTime();
  EXPECT_EQ(idletime_c_callback(&target, reinterpret_cast<const jx_rt_table_key_hdl*>(key.data()),
                                &cookie),
            JX_SUCCESS);
  const uint64_t after = PartnerLib::getEpochTime();
  const Bytes record = path.partner.receive();
  ASSERT_EQ(record.size(), 20u);
  EXPECT_EQ(record[0], 0);
  EXPECT_EQ(record[1], 0xA5) << "the low byte of the target's device";
  EXPECT_EQ(u32At(record, 4), 0x12345678u);
  EXPECT_EQ(u32At(record, 8), 0xDEADBEEFu);
  EXPECT_GE(u64At(record, 12), before);
  EXPECT_LE(u64At(record, 12), after);
}

JEX_HELPER(idle_callback_without_socket) {
  NotifyCookieStruct cookie{-1, nullptr, 5};
  jx_rt_target_t target{};
  const std::array<uint32_t, 2> key = {};
  idletime_c_callback(&target, reinterpret_cast<const jx_rt_table_key_hdl*>(key.data()), &cookie);
  return 0;
}

TEST(IdleCallback, StopsWithoutASocket) {
  Child child = Child::helper("idle_callback_without_socket");
  expectStop(child,
             {"Error: Invalid SliceAgent Send socket", "JexPartnerLibIdle", "idletime_c_callback(",
              "( ( NotifyCookieStruct * )cookie )->sendSocket >= 0"});
}

}  // namespace
}  // namespace jextest
