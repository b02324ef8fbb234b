// Every call on the way to notifications can be made to fail.
#include "jxmodel/faults.h"

#include <functional>

#include "unit/notify/notify_device.h"

namespace jxnotifytest {
namespace {

class NotifyFaultsTest : public NotifyTest {
 protected:
  void TearDown() override {
    jx_model_fault_clear();
    NotifyTest::TearDown();
  }
  /// The next call of the entry fails, the one after it does not.
  static void expectFault(const char* entry, const std::function<jx_status_t()>& call) {
    ASSERT_EQ(jx_model_fault_arm(entry, 1, JX_MODEL_FAULT_STATUS, JX_IO_ERROR), JX_SUCCESS);
    EXPECT_EQ(call(), JX_IO_ERROR) << entry;
    EXPECT_EQ(call(), JX_SUCCESS) << entry;
  }
  const std::shared_ptr<jxrt::JxRtSession> session_ = jxrt::JxRtSession::sessionCreate();
};

jx_status_t ignore(jx_rt_target_t*, const jx_rt_table_key_hdl*, void*) { return JX_SUCCESS; }

TEST_F(NotifyFaultsTest, OfIdleTimeThroughTheCFace) {
  const jx_rt_info_hdl* program = nullptr;
  const jx_rt_table_hdl* table = nullptr;
  jx_rt_table_attributes_hdl* attributes = nullptr;
  const jx_rt_target_t to = target();
  uint32_t id = 0;
  const jxrt::JxRtTable* smac = nullptr;
  ASSERT_EQ(info()->tableFromNameGet("smac", &smac), JX_SUCCESS);
  expectFault("JxRtTable::tableIdGet", [&] { return smac->tableIdGet(&id); });
  expectFault("jx_rt_info_get", [&] { return jx_rt_info_get(kDevice, "l2_switch", &program); });
  expectFault("jx_rt_table_from_id_get",
              [&] { return jx_rt_table_from_id_get(program, id, &table); });
  expectFault("jx_rt_table_idle_table_attributes_allocate", [&] {
    jx_rt_table_attributes_deallocate(attributes);
    return jx_rt_table_idle_table_attributes_allocate(table, JX_RT_IDLE_MODE_NOTIFY, &attributes);
  });
  expectFault("jx_rt_attributes_idle_table_notify_mode_set", [&] {
    return jx_rt_attributes_idle_table_notify_mode_set(attributes, true, ignore, 1, 0, 0, nullptr);
  });
  expectFault("jx_rt_table_attributes_set", [&] {
    return jx_rt_table_attributes_set(table, session_->cHandle(), &to, 16, attributes);
  });
  EXPECT_EQ(jx_rt_table_attributes_deallocate(attributes), JX_SUCCESS);
}

TEST_F(NotifyFaultsTest, OfIdleTimeThroughTheObjects) {
  const jxrt::JxRtTable* table = nullptr;
  ASSERT_EQ(info()->tableFromNameGet("smac", &table), JX_SUCCESS);
  std::unique_ptr<jxrt::JxRtTableAttributes> attributes;
  const auto callback = [](const jx_rt_target_t&, const jxrt::JxRtTableKey*, const void*) {
    return JX_SUCCESS;
  };
  expectFault("JxRtTable::idleTableAttributesAllocate", [&] {
    return table->idleTableAttributesAllocate(JX_RT_IDLE_MODE_NOTIFY, &attributes);
  });
  expectFault("JxRtTableAttributes::idleTableNotifyModeSet",
              [&] { return attributes->idleTableNotifyModeSet(true, callback, 1, 0, 0, nullptr); });
  expectFault("JxRtTable::tableAttributesSet",
              [&] { return table->tableAttributesSet(*session_, target(), 16, *attributes); });
}

TEST_F(NotifyFaultsTest, OfLearning) {
  const jxrt::JxRtInfo* program = nullptr;
  jxrt::JxRtLearn* sut = nullptr;
  uint32_t id = 0;
  std::vector<uint32_t> fields;
  size_t bits = 0;
  const auto& manager = jxrt::JxRtDevMgr::getInstance();
  expectFault("JxRtDevMgr::jxRtInfoGet",
              [&] { return manager.jxRtInfoGet(kDevice, "l2_switch", &program); });
  expectFault("JxRtInfo::learnFromNameGet",
              [&] { return program->learnFromNameGet("mac_learn", &sut); });
  expectFault("JxRtLearn::learnIdGet", [&] { return sut->learnIdGet(&id); });
  expectFault("JxRtInfo::learnFromIdGet", [&] { return program->learnFromIdGet(id, &sut); });
  expectFault("JxRtLearn::learnFieldIdListGet", [&] { return sut->learnFieldIdListGet(&fields); });
  expectFault("JxRtLearn::learnFieldSizeGet",
              [&] { return sut->learnFieldSizeGet(fields[0], &bits); });

  bool called = false;
  const auto callback = [&](const jx_rt_target_t&, std::shared_ptr<jxrt::JxRtSession> session,
                            std::vector<std::unique_ptr<jxrt::JxRtTableData>> data,
                            jx_rt_learn_msg_hdl* const message, const void*) {
    uint8_t value[6];
    expectFault("JxRtTableData::getValue",
                [&] { return data[0]->getValue(fields[0], sizeof value, value); });
    expectFault("JxRtLearn::notifyAck", [&] { return sut->notifyAck(session, message); });
    called = true;
    return JX_SUCCESS;
  };
  expectFault("JxRtLearn::callbackRegister",
              [&] { return sut->callbackRegister(session_, target(), callback, nullptr); });
  inject(3, frame(0x020000000001));
  advance(1);
  settle();
  EXPECT_TRUE(called);
  expectFault("JxRtLearn::callbackDeregister",
              [&] { return sut->callbackDeregister(session_, target()); });
}

}  // namespace
}  // namespace jxnotifytest
