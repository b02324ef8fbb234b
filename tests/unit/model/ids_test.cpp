// Ids that are no positions, as P4Info gives them, and tables that the SDK interface does not show.
#include <gtest/gtest.h>

#include "model/runtime/rt_info.h"
#include "unit/model/model_device.h"

namespace jxmodeltest {
namespace {

// everyKind() with the ids of table "acl" and of its actions changed.
std::shared_ptr<const jxmodel::Program> withOtherIds(const std::string& hidden = "") {
  jxmodel::Program program = *everyKind();
  for (jxmodel::Action& action : program.actions) {
    action.id += 0x01ABCD00;
    for (jxmodel::Param& param : action.params) param.id = 90 - param.id;
  }
  for (jxmodel::Table& table : program.tables) {
    table.hidden = table.name == hidden;
    if (table.name != "acl") continue;
    table.id = 0x02ABCDEF;
    for (jxmodel::KeyField& field : table.key) field.id = 4 - field.id;  // 3, 2, 1
  }
  return std::make_shared<const jxmodel::Program>(std::move(program));
}

TEST(Ids, OfKeysAreNotPositions) {
  ModelDevice device(21, ModelDevice::Kind::kVirtual, {withOtherIds()});
  TableUser acl(device, "acl");
  const auto key = acl.key();
  uint32_t id = 0;
  ASSERT_EQ(device.table("acl").tableIdGet(&id), JX_SUCCESS);
  EXPECT_EQ(id, 0x02ABCDEFU);
  const uint8_t value[] = {1, 2, 3, 4}, mask[] = {255, 0, 255, 0};
  // The ternary field is the first of the key.
  EXPECT_EQ(key->setValueAndMask(1, value, mask, 4), JX_INVALID_ARGUMENTS);
  ASSERT_EQ(key->setValueAndMask(3, value, mask, 4), JX_SUCCESS);
  uint8_t read[4], read_mask[4];
  ASSERT_EQ(key->getValueAndMask(3, 4, read, read_mask), JX_SUCCESS);
  EXPECT_EQ(Bytes(read, read + 4), (Bytes{1, 0, 3, 0}));
  bool valid = false;
  const uint8_t two[] = {0, 7};
  ASSERT_EQ(key->setValueOptional(1, two, true, 2), JX_SUCCESS);
  ASSERT_EQ(key->getValueOptional(1, 2, read, &valid), JX_SUCCESS);
  EXPECT_TRUE(valid);
  EXPECT_EQ(key->setValue(4, uint64_t{0}), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(key->setValue(0, uint64_t{0}), JX_INVALID_ARGUMENTS);
}

TEST(Ids, OfParametersAreNotPositions) {
  ModelDevice device(21, ModelDevice::Kind::kVirtual, {withOtherIds()});
  size_t seen = 0;
  for (const jxrt::JxRtTable* table : device.tables()) {
    std::vector<jxrt::JxRtActionInfo> actions;
    ASSERT_EQ(table->actionListGet(&actions), JX_SUCCESS);
    for (const jxrt::JxRtActionInfo& action : actions) {
      std::unique_ptr<jxrt::JxRtTableData> data;
      ASSERT_EQ(table->dataAllocate(action.id, &data), JX_SUCCESS);
      for (const jxrt::JxRtFieldInfo& param : action.params) {
        EXPECT_GT(param.id, 60U);
        bool active = true;
        ASSERT_EQ(data->isActive(param.id, &active), JX_SUCCESS);
        EXPECT_FALSE(active);
        ASSERT_EQ(data->setValue(param.id, uint64_t{1}), JX_SUCCESS);
        uint64_t value = 0;
        ASSERT_EQ(data->getValue(param.id, &value), JX_SUCCESS);
        EXPECT_EQ(value, 1U);
        EXPECT_EQ(data->setValue(uint32_t{1}, uint64_t{1}), JX_INVALID_ARGUMENTS);
        ++seen;
      }
    }
  }
  EXPECT_GT(seen, 0U);
}

TEST(Ids, OfHiddenTablesAreNotShown) {
  ModelDevice device(21, ModelDevice::Kind::kVirtual, {withOtherIds("acl")});
  const jxrt::JxRtInfo* const info = device.device().findInfo("every_kind");
  ASSERT_NE(info, nullptr);
  const jxrt::JxRtTable* table = nullptr;
  EXPECT_EQ(info->tableFromNameGet("acl", &table), JX_TABLE_NOT_FOUND);
  EXPECT_EQ(info->tableFromIdGet(0x02ABCDEF, &table), JX_TABLE_NOT_FOUND);
  EXPECT_EQ(info->tableFromNameGet("exact", &table), JX_SUCCESS);
  for (const jxrt::JxRtTable* shown : device.tables()) {
    std::string name;
    ASSERT_EQ(shown->tableNameGet(&name), JX_SUCCESS);
    EXPECT_NE(name, "acl");
  }
}

// What is kept by id alone would be mixed up between two programs.
TEST(Ids, OfWhatCountsDifferBetweenProgramsOfADevice) {
  jxmodel::Program first = *delivered("router");
  jxmodel::Program second = first;
  second.id = first.id + 1;
  second.name = "twin";
  std::string error;
  const auto make = [&] {
    return jxmodel::Device::create(22, ModelDevice::Kind::kVirtual,
                                   {std::make_shared<const jxmodel::Program>(first),
                                    std::make_shared<const jxmodel::Program>(second)},
                                   0, &error);
  };
  EXPECT_EQ(make(), nullptr);
  EXPECT_NE(error.find("is taken by program router"), std::string::npos) << error;
  for (jxmodel::Table& table : second.tables) table.id += 0x10000;
  for (jxmodel::Learn& learn : second.learns) learn.id += 0x10000;
  EXPECT_NE(make(), nullptr) << error;
}

}  // namespace
}  // namespace jxmodeltest
