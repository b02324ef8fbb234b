// Placement data as bytes.
#include "model/placement/placement.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>

#include "jxsdk/drv.h"
#include "unit/model/model_device.h"

namespace jxmodeltest {
namespace {

using jxmodel::decodePlacement;
using jxmodel::Placement;
using jxmodel::PlacementBuffer;
using jxmodel::PlacementHeader;
using jxmodel::PlacementKind;

PlacementHeader someHeader(PlacementKind kind) {
  PlacementHeader header{};
  header.kind = kind;
  header.table_handle = 0x10020001;
  header.action_id = 0x00020001;
  header.ttl_ms = 60000;
  header.target_id = 77;
  return header;
}

Bytes packed(const void* data) {
  size_t size = 0;
  EXPECT_EQ(jx_drv_plcmt_pack_data_size(data, &size), JX_SUCCESS);
  Bytes bytes(size);
  EXPECT_EQ(jx_drv_plcmt_copy_pack(data, bytes.data()), JX_SUCCESS);
  return bytes;
}

Bytes somePacked() {
  const Bytes key = {1, 2, 3, 4, 24}, params = {9, 8, 7, 6, 5, 4, 3};
  PlacementBuffer buffer;
  return packed(buffer.write(someHeader(PlacementKind::kMatch), key.data(), 5, params.data(), 7));
}

/// Decodes from a block of exactly these bytes, so that a sanitizer sees a read behind them.
bool decodes(const Bytes& bytes) {
  const auto exact = std::make_unique<uint8_t[]>(bytes.size());
  std::copy(bytes.begin(), bytes.end(), exact.get());
  Placement placement;
  return decodePlacement(exact.get(), bytes.size(), &placement);
}

TEST(PlacementData, PackedIsHeaderKeyAndParameters) {
  const Bytes bytes = somePacked();
  ASSERT_EQ(bytes.size(), 32U + 5 + 7);
  EXPECT_EQ(Bytes(bytes.begin() + 32, bytes.end()), (Bytes{1, 2, 3, 4, 24, 9, 8, 7, 6, 5, 4, 3}));
}

TEST(PlacementData, ComesBackAsItWas) {
  const Bytes bytes = somePacked();
  size_t size = 0;
  ASSERT_EQ(jx_drv_plcmt_unpack_data_size(bytes.data(), &size), JX_SUCCESS);
  ASSERT_EQ(size, bytes.size());
  alignas(8) uint8_t data[64] = {};
  ASSERT_EQ(jx_drv_plcmt_copy_unpack(bytes.data(), data), JX_SUCCESS);
  Placement placement;
  ASSERT_TRUE(jxmodel::readPlacement(data, &placement));
  EXPECT_EQ(placement.header.kind, PlacementKind::kMatch);
  EXPECT_EQ(placement.header.table_handle, 0x10020001U);
  EXPECT_EQ(placement.header.action_id, 0x00020001U);
  EXPECT_EQ(placement.header.ttl_ms, 60000U);
  EXPECT_EQ(placement.header.target_id, 77U);
  EXPECT_EQ(Bytes(placement.key, placement.key + 5), (Bytes{1, 2, 3, 4, 24}));
  EXPECT_EQ(placement.params, placement.key + 5);
  EXPECT_EQ(packed(data), bytes);
}

TEST(PlacementData, OfTheGreatestLengthIsPacked) {
  const Bytes params(jxmodel::kMaxPlacementBytes - 32, 0xA5);
  PlacementBuffer buffer;
  const void* const data = buffer.write(someHeader(PlacementKind::kMember), nullptr, 0,
                                        params.data(), static_cast<uint32_t>(params.size()));
  EXPECT_TRUE(decodes(packed(data)));
}

TEST(PlacementData, EveryTurnedBitIsNoticed) {
  const Bytes bytes = somePacked();
  ASSERT_TRUE(decodes(bytes));
  for (size_t bit = 0; bit < bytes.size() * 8; ++bit) {
    Bytes turned = bytes;
    turned[bit / 8] ^= static_cast<uint8_t>(1u << bit % 8);
    EXPECT_FALSE(decodes(turned)) << "bit " << bit;
  }
}

TEST(PlacementData, EveryShorterLengthIsNoticed) {
  const Bytes bytes = somePacked();
  for (size_t length = 0; length < bytes.size(); ++length) {
    EXPECT_FALSE(decodes(Bytes(bytes.begin(), bytes.begin() + length))) << length;
  }
}

TEST(PlacementData, RandomBytesAreNone) {
  std::mt19937 random(3);
  for (int i = 0; i < 20000; ++i) {
    Bytes bytes(random() % 80);
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
    EXPECT_FALSE(decodes(bytes));
  }
}

TEST(PlacementData, OnlyAMatchEntryHasAKey) {
  for (const auto kind : {PlacementKind::kMatchDefault, PlacementKind::kMember,
                          PlacementKind::kGroupMember, PlacementKind::kFallback}) {
    const Bytes key = {1};
    PlacementBuffer buffer;
    size_t size = 0;
    EXPECT_EQ(jx_drv_plcmt_pack_data_size(buffer.write(someHeader(kind), key.data(), 1, nullptr, 0),
                                          &size),
              JX_INVALID_ARGUMENTS);
  }
}

TEST(PlacementData, NullAndForeignPointersAreRefused) {
  size_t size = 0;
  uint8_t bytes[32] = {};
  EXPECT_EQ(jx_drv_plcmt_pack_data_size(nullptr, &size), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(jx_drv_plcmt_pack_data_size(bytes, &size), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(jx_drv_plcmt_copy_pack(bytes, bytes), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(jx_drv_plcmt_unpack_data_size(bytes, &size), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(jx_drv_plcmt_unpack_data_size(nullptr, &size), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(jx_drv_plcmt_copy_unpack(bytes, bytes), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(size, 0U);
}

}  // namespace
}  // namespace jxmodeltest
