// Devices as they come and go, and what they tell about their programs.
#include <gtest/gtest.h>

#include <fstream>

#include "jxsdk/drv.h"
#include "unit/model/model_device.h"

namespace jxmodeltest {
namespace {

constexpr const char* kRouter = JEX_PROGRAMS_DIR "/router.json";
constexpr const char* kSwitch = JEX_PROGRAMS_DIR "/l2_switch.json";

TEST(Device, IsAddedAndRemoved) {
  bringSdkUp();
  const char* const files[] = {kRouter, kSwitch};
  const jx_device_profile_t profile{2, files, 0};
  ASSERT_EQ(jx_virtual_device_add(5, &profile, JX_DEV_TYPE_MODEL), JX_SUCCESS);
  EXPECT_EQ(jx_device_add(5, &profile, JX_DEV_TYPE_ANY), JX_ALREADY_EXISTS);
  ASSERT_EQ(jx_device_add(3, &profile, JX_DEV_TYPE_ANY), JX_SUCCESS);

  const auto& manager = jxrt::JxRtDevMgr::getInstance();
  std::vector<std::string> names;
  ASSERT_EQ(manager.jxRtInfoP4NamesGet(5, &names), JX_SUCCESS);
  EXPECT_EQ(names, (std::vector<std::string>{"router", "l2_switch"}));
  std::vector<jx_dev_id_t> ids;
  ASSERT_EQ(manager.devicesGet(&ids), JX_SUCCESS);
  EXPECT_EQ(ids, (std::vector<jx_dev_id_t>{3, 5}));
  bool is_virtual = false;
  ASSERT_EQ(manager.deviceIsVirtual(5, &is_virtual), JX_SUCCESS);
  EXPECT_TRUE(is_virtual);
  ASSERT_EQ(manager.deviceIsVirtual(3, &is_virtual), JX_SUCCESS);
  EXPECT_FALSE(is_virtual);

  ASSERT_EQ(jx_device_remove(5), JX_SUCCESS);
  EXPECT_EQ(jx_device_remove(5), JX_OBJECT_NOT_FOUND);
  const jxrt::JxRtInfo* info = nullptr;
  EXPECT_EQ(manager.jxRtInfoGet(5, "router", &info), JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(manager.jxRtInfoGet(3, "rooter", &info), JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(manager.jxRtInfoGet(3, "router", &info), JX_SUCCESS);
  ASSERT_EQ(jx_device_remove(3), JX_SUCCESS);
}

TEST(Device, RefusesProfilesThatCannotBeLoaded) {
  bringSdkUp();
  const auto add = [](std::vector<const char*> files, jx_dev_id_t id, jx_dev_type_t type,
                      uint32_t base = 0) {
    const jx_device_profile_t profile{static_cast<uint32_t>(files.size()), files.data(), base};
    return jx_device_add(id, &profile, type);
  };
  EXPECT_EQ(add({"/nowhere.json"}, 1, JX_DEV_TYPE_ANY), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(add({kRouter, kRouter}, 1, JX_DEV_TYPE_ANY), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(add({nullptr}, 1, JX_DEV_TYPE_ANY), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(add({}, -1, JX_DEV_TYPE_ANY), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(add({}, 256, JX_DEV_TYPE_ANY), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(add({}, 1, JX_DEV_TYPE_CHIP), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(add({kRouter}, 1, JX_DEV_TYPE_ANY, 0xFFFFFF00), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(jx_device_add(1, nullptr, JX_DEV_TYPE_ANY), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(add({}, 255, JX_DEV_TYPE_ANY), JX_SUCCESS);
  EXPECT_EQ(jx_device_remove(255), JX_SUCCESS);
}

TEST(Device, TellsAboutItsTables) {
  const ModelDevice device(20, ModelDevice::Kind::kVirtual, {delivered("router")});
  const TableUser lpm(device, "ipv4_lpm"), acl(device, "acl"), groups(device, "ecmp_groups");
  jx_rt_table_type_t type;
  ASSERT_EQ((*lpm).tableTypeGet(&type), JX_SUCCESS);
  EXPECT_EQ(type, JX_RT_TABLE_MATCH_SELECTOR);
  size_t size = 0;
  ASSERT_EQ((*lpm).tableSizeGet(device.session(), device.target(), 0, &size), JX_SUCCESS);
  EXPECT_EQ(size, 2000000U);
  const jxrt::JxRtTable* behind = nullptr;
  ASSERT_EQ((*lpm).selectorTableGet(&behind), JX_SUCCESS);
  EXPECT_EQ(behind, &*groups);
  ASSERT_EQ((*lpm).actionDataTableGet(&behind), JX_SUCCESS);
  EXPECT_EQ(behind, &device.table("nexthops"));
  ASSERT_EQ((*acl).selectorTableGet(&behind), JX_SUCCESS);
  EXPECT_EQ(behind, nullptr);
  std::vector<jxrt::JxRtFieldInfo> fields;
  ASSERT_EQ((*groups).dataFieldListGet(&fields), JX_SUCCESS);
  ASSERT_EQ(fields.size(), 3U);
  EXPECT_EQ(fields[1].name, JX_RT_FIELD_MEMBERS);
  ASSERT_EQ((*acl).keyFieldListGet(&fields), JX_SUCCESS);
  EXPECT_EQ(fields[3].match_type, JX_RT_MATCH_RANGE);
  uint32_t id = 0;
  EXPECT_EQ((*acl).keyFieldIdGet("l4.dport", &id), JX_SUCCESS);
  EXPECT_EQ(id, 5U);
  EXPECT_EQ((*acl).keyFieldIdGet("l4.nope", &id), JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(device.tables().size(), 7U);
}

TEST(Device, TellsWhatAgesAndWhatIsLearned) {
  const ModelDevice device(20, ModelDevice::Kind::kPhysical, {delivered("l2_switch")});
  std::unique_ptr<jxrt::JxRtTableAttributes> attributes;
  EXPECT_EQ(device.table("port_counters")
                .idleTableAttributesAllocate(JX_RT_IDLE_MODE_NOTIFY, &attributes),
            JX_NOT_SUPPORTED);
  EXPECT_EQ(device.table("smac").idleTableAttributesAllocate(JX_RT_IDLE_MODE_NOTIFY, &attributes),
            JX_SUCCESS);

  const jxrt::JxRtInfo* info = nullptr;
  ASSERT_EQ(jxrt::JxRtDevMgr::getInstance().jxRtInfoGet(20, "l2_switch", &info), JX_SUCCESS);
  jxrt::JxRtLearn* learn = nullptr;
  EXPECT_EQ(info->learnFromNameGet("nothing", &learn), JX_OBJECT_NOT_FOUND);
  ASSERT_EQ(info->learnFromNameGet("mac_learn", &learn), JX_SUCCESS);
  std::vector<uint32_t> ids;
  ASSERT_EQ(learn->learnFieldIdListGet(&ids), JX_SUCCESS);
  ASSERT_EQ(ids.size(), 2U);
  size_t bits = 0;
  ASSERT_EQ(learn->learnFieldSizeGet(ids[0], &bits), JX_SUCCESS);
  EXPECT_EQ(bits, 48U);
  std::string name;
  ASSERT_EQ(learn->learnFieldNameGet(ids[1], &name), JX_SUCCESS);
  EXPECT_EQ(name, "meta.ingress_port");
  EXPECT_EQ(learn->learnFieldNameGet(3, &name), JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(learn->callbackDeregister(nullptr, device.target()), JX_INVALID_ARGUMENTS);
}

TEST(CFace, GoesTheSameWay) {
  const ModelDevice device(20, ModelDevice::Kind::kVirtual, {everyKind()}, 40);
  const jx_rt_target_t target = device.target();
  jx_rt_session_hdl* session = nullptr;
  ASSERT_EQ(jx_rt_session_create(&session), JX_SUCCESS);
  const jx_rt_info_hdl* info = nullptr;
  ASSERT_EQ(jx_rt_info_get(20, "every_kind", &info), JX_SUCCESS);
  const jx_rt_table_hdl* table = nullptr;
  EXPECT_EQ(jx_rt_table_from_name_get(info, "inexact", &table), JX_TABLE_NOT_FOUND);
  ASSERT_EQ(jx_rt_table_from_name_get(info, "exact", &table), JX_SUCCESS);
  const char* name = nullptr;
  ASSERT_EQ(jx_rt_table_name_get(table, &name), JX_SUCCESS);
  EXPECT_STREQ(name, "exact");
  uint32_t table_id = 0;
  ASSERT_EQ(jx_rt_table_id_get(table, &table_id), JX_SUCCESS);
  const jx_rt_table_hdl* same = nullptr;
  ASSERT_EQ(jx_rt_table_from_id_get(info, table_id, &same), JX_SUCCESS);
  EXPECT_EQ(same, table);

  uint32_t action = 0, port = 0, field = 0;
  ASSERT_EQ(jx_rt_action_name_to_id(table, "send", &action), JX_SUCCESS);
  ASSERT_EQ(jx_rt_data_field_id_with_action_get(table, "port", action, &port), JX_SUCCESS);
  ASSERT_EQ(jx_rt_key_field_id_get(table, "ethernet.dst", &field), JX_SUCCESS);
  jx_rt_table_key_hdl* key = nullptr;
  jx_rt_table_data_hdl* data = nullptr;
  ASSERT_EQ(jx_rt_table_key_allocate(table, &key), JX_SUCCESS);
  ASSERT_EQ(jx_rt_table_action_data_allocate(table, action, &data), JX_SUCCESS);
  ASSERT_EQ(jx_rt_key_field_set_value(key, field, 0xAABBCCDDEEFF), JX_SUCCESS);
  ASSERT_EQ(jx_rt_data_field_set_value(data, port, 17), JX_SUCCESS);
  const uint8_t mac[6] = {1, 2, 3, 4, 5, 6};
  ASSERT_EQ(jx_rt_data_field_set_value_ptr(data, port + 1, mac, 6), JX_SUCCESS);
  ASSERT_EQ(jx_rt_table_entry_add(table, session, &target, 0, key, data), JX_SUCCESS);
  uint32_t handle = 0, usage = 0;
  ASSERT_EQ(jx_rt_table_entry_handle_get(table, session, &target, key, &handle), JX_SUCCESS);
  EXPECT_EQ(handle, 40U);
  ASSERT_EQ(jx_rt_table_usage_get(table, session, &target, 0, &usage), JX_SUCCESS);
  EXPECT_EQ(usage, 1U);

  ASSERT_EQ(jx_rt_table_data_reset(table, &data), JX_SUCCESS);
  uint64_t value = 0;
  EXPECT_EQ(jx_rt_data_field_get_value(data, port, &value), JX_OBJECT_NOT_FOUND);
  ASSERT_EQ(jx_rt_table_entry_get(table, session, &target, key, data, 0), JX_SUCCESS);
  ASSERT_EQ(jx_rt_data_field_get_value(data, port, &value), JX_SUCCESS);
  EXPECT_EQ(value, 17U);
  uint8_t read[6] = {};
  ASSERT_EQ(jx_rt_data_field_get_value_ptr(data, port + 1, 6, read), JX_SUCCESS);
  EXPECT_EQ(Bytes(read, read + 6), Bytes(mac, mac + 6));
  ASSERT_EQ(jx_rt_table_entry_del(table, session, &target, 0, key), JX_SUCCESS);
  EXPECT_EQ(jx_rt_table_entry_get(table, session, &target, key, data, 0), JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(jx_rt_table_entry_add(table, session, nullptr, 0, key, data), JX_INVALID_ARGUMENTS);

  EXPECT_EQ(jx_rt_table_key_deallocate(key), JX_SUCCESS);
  EXPECT_EQ(jx_rt_table_data_deallocate(data), JX_SUCCESS);
  EXPECT_EQ(jx_rt_session_destroy(session), JX_SUCCESS);
}

}  // namespace
}  // namespace jxmodeltest
