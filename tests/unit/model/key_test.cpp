// Keys and data: what can be set, what is read back.
#include <gtest/gtest.h>

#include "unit/model/model_device.h"

namespace jxmodeltest {
namespace {

class KeyTest : public testing::Test {
 protected:
  ModelDevice device_{20, ModelDevice::Kind::kVirtual, {everyKind(), delivered("router")}, 0};
  TableUser exact_{device_, "exact"};
  TableUser acl_{device_, "acl"};
  TableUser lpm_{device_, "lpm"};
};

// Fields of the table "acl" of everyKind().
constexpr uint32_t kTernary = 1, kRange = 2, kOptional = 3;

TEST_F(KeyTest, AFreshKeyMatchesAnythingButInExactFields) {
  const auto key = acl_.key();
  uint8_t value[4], mask[4];
  ASSERT_EQ(key->getValueAndMask(kTernary, 4, value, mask), JX_SUCCESS);
  EXPECT_EQ(Bytes(mask, mask + 4), Bytes(4));
  uint8_t low[2], high[2];
  ASSERT_EQ(key->getValueRange(kRange, 2, low, high), JX_SUCCESS);
  EXPECT_EQ(Bytes(low, low + 2), (Bytes{0, 0}));
  EXPECT_EQ(Bytes(high, high + 2), (Bytes{255, 255}));
  uint16_t length = 9;
  ASSERT_EQ(lpm_.key()->getValueLpm(1, 4, value, &length), JX_SUCCESS);
  EXPECT_EQ(length, 0);
  bool valid = true;
  ASSERT_EQ(key->getValueOptional(kOptional, 2, low, &valid), JX_SUCCESS);
  EXPECT_FALSE(valid);
  uint64_t number = 9;
  ASSERT_EQ(exact_.key()->getValue(1, &number), JX_SUCCESS);
  EXPECT_EQ(number, 0U);
}

TEST_F(KeyTest, ValuesAreStoredUnderTheirMasks) {
  const auto key = acl_.key();
  ASSERT_EQ(key->setValueAndMask(kTernary, 0x01020304, 0xFFFF0000), JX_SUCCESS);
  uint64_t number = 0;
  ASSERT_EQ(key->getValue(kTernary, &number), JX_SUCCESS);
  EXPECT_EQ(number, 0x01020000U);
  const auto route = lpm_.prefix(0x0A0B0C0D, 20);
  uint8_t value[4];
  uint16_t length = 0;
  ASSERT_EQ(route->getValueLpm(1, 4, value, &length), JX_SUCCESS);
  EXPECT_EQ(Bytes(value, value + 4), (Bytes{0x0A, 0x0B, 0x00, 0x00}));
  EXPECT_EQ(length, 20);
}

TEST_F(KeyTest, SetValueMatchesExactlyThisValue) {
  const auto key = acl_.key();
  ASSERT_EQ(key->setValue(kTernary, uint64_t{7}), JX_SUCCESS);
  uint8_t value[4], mask[4];
  ASSERT_EQ(key->getValueAndMask(kTernary, 4, value, mask), JX_SUCCESS);
  EXPECT_EQ(Bytes(mask, mask + 4), Bytes(4, 255));
  uint16_t length = 0;
  ASSERT_EQ(lpm_.key(7)->getValueLpm(1, 4, value, &length), JX_SUCCESS);
  EXPECT_EQ(length, 32);
  ASSERT_EQ(key->setValue(kOptional, uint64_t{7}), JX_SUCCESS);
  bool valid = false;
  ASSERT_EQ(key->getValueOptional(kOptional, 2, value, &valid), JX_SUCCESS);
  EXPECT_TRUE(valid);
  EXPECT_EQ(key->setValue(kRange, uint64_t{7}), JX_INVALID_ARGUMENTS);
}

TEST_F(KeyTest, RefusesWhatDoesNotFitTheField) {
  const auto key = exact_.key();
  const uint8_t bytes[7] = {};
  const uint8_t wide[2] = {0x02, 0x00};
  EXPECT_EQ(key->setValue(1, uint64_t{1} << 48), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(key->setValue(2, uint64_t{512}), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(key->setValue(2, uint64_t{511}), JX_SUCCESS);
  EXPECT_EQ(key->setValue(2, wide, 2), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(key->setValue(1, bytes, 7), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(key->setValue(1, nullptr, 6), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(key->setValue(0, uint64_t{0}), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(key->setValue(3, uint64_t{0}), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(key->setValueLpm(1, uint64_t{0}, 0), JX_INVALID_ARGUMENTS);
  const auto acl = acl_.key();
  EXPECT_EQ(acl->setValueRange(kRange, 6, 5), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(acl->setValueRange(kRange, 5, 5), JX_SUCCESS);
  EXPECT_EQ(lpm_.key()->setValueLpm(1, uint64_t{0}, 33), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(acl->setValueAndMask(kTernary, 0, uint64_t{1} << 32), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(acl->setValueOptional(kOptional, nullptr, true, 2), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(acl->setValueOptional(kOptional, nullptr, false, 0), JX_SUCCESS);
}

TEST_F(KeyTest, WideFieldsAreBytesOnly) {
  const TableUser user(device_, "ipv6_lpm");
  const auto key = user.key();
  uint64_t number = 0;
  EXPECT_EQ(key->setValueLpm(1, uint64_t{1}, 128), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(key->getValue(1, &number), JX_INVALID_ARGUMENTS);
  const Bytes address(16, 0xFF);
  ASSERT_EQ(key->setValueLpm(1, address.data(), 61, 16), JX_SUCCESS);
  Bytes read(16);
  uint16_t length = 0;
  ASSERT_EQ(key->getValueLpm(1, 16, read.data(), &length), JX_SUCCESS);
  Bytes expected(16);
  for (int i = 0; i < 7; ++i) expected[i] = 0xFF;
  expected[7] = 0xF8;
  EXPECT_EQ(read, expected);
}

TEST_F(KeyTest, OnlyTablesWithAPriorityTakeOne) {
  EXPECT_EQ(exact_.key()->prioritySet(1), JX_NOT_SUPPORTED);
  const auto key = acl_.key();
  ASSERT_EQ(key->prioritySet(77), JX_SUCCESS);
  uint32_t priority = 0;
  ASSERT_EQ(key->priorityGet(&priority), JX_SUCCESS);
  EXPECT_EQ(priority, 77U);
  ASSERT_EQ((*acl_).keyReset(key.get()), JX_SUCCESS);
  ASSERT_EQ(key->priorityGet(&priority), JX_SUCCESS);
  EXPECT_EQ(priority, 0U);
}

TEST_F(KeyTest, DataKnowsItsParametersAndDefaults) {
  const auto data = exact_.data("send", {3});
  uint64_t number = 0;
  EXPECT_EQ(data->getValue(1, &number), JX_SUCCESS);
  EXPECT_EQ(number, 3U);
  EXPECT_EQ(data->getValue(2, &number), JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(data->getValue(3, &number), JX_SUCCESS);
  EXPECT_EQ(number, 5U);
  bool active = true;
  EXPECT_EQ(data->isActive(3, &active), JX_SUCCESS);
  EXPECT_FALSE(active);
  EXPECT_EQ(data->setValue(1, uint64_t{512}), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(data->setValue(4, uint64_t{0}), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(data->setValue(jxmodel::kFieldMemberId, uint64_t{0}), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(data->setValue(jxmodel::kFieldTtl, uint64_t{100}), JX_SUCCESS);
  EXPECT_EQ(acl_.data("nop", {})->setValue(jxmodel::kFieldTtl, uint64_t{1}), JX_INVALID_ARGUMENTS);
  // The number is written wherever the pointer points.
  alignas(8) uint8_t raw[16] = {};
  ASSERT_EQ(data->getValue(1, reinterpret_cast<uint64_t*>(raw + 1)), JX_SUCCESS);
  EXPECT_EQ(raw[1], 3);
}

TEST_F(KeyTest, DataOfOtherTablesActionsIsRefused) {
  std::unique_ptr<jxrt::JxRtTableData> data;
  uint32_t id = 0;
  const TableUser nexthops(device_, "nexthops");
  ASSERT_EQ((*nexthops).actionIdGet("set_nexthop", &id), JX_SUCCESS);
  EXPECT_EQ((*exact_).dataAllocate(id, &data), JX_INVALID_ARGUMENTS);
  EXPECT_EQ((*lpm_).dataAllocate(id, &data), JX_NOT_SUPPORTED);
  EXPECT_EQ((*exact_).actionIdGet("set_nexthop", &id), JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(data, nullptr);
}

}  // namespace
}  // namespace jxmodeltest
