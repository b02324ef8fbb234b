// The replay of one update: its placement info and its data live until the SDK has processed them,
// and no longer. Every word of the update reaches the argument that it is for. The SDK's placement
// calls are this binary's own; there is no device.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "JexPartnerLibMatchTable.h"
#include "support/bytes.h"
#include "wire/living_blocks.h"
#include "wire/noted_calls.h"
#include "wire/recorded_update.h"

namespace jextest {
namespace {

constexpr uint8_t kDevice = 3;
constexpr uint32_t kSession = 0x5E55;
constexpr uint32_t kPipe = 7;
constexpr uint32_t kTable = 4242;
constexpr uint32_t kFirstWord = 100;
constexpr uint32_t kElements = 2;
constexpr size_t kDataBytes = 24;
constexpr uint8_t kDataByte = 0x3C;

auto* const kInfo = reinterpret_cast<pipe_plcmt_info*>(uintptr_t{0x1000});

/// What the calls of one replay are given.
struct Given {
  Bytes message;                 // the receive buffer
  const void* packed = nullptr;  // of both unpacking calls
  const void* data = nullptr;    // of the operation
};
Given given;

size_t offsetInMessage(const void* address) {
  return static_cast<size_t>(static_cast<const uint8_t*>(address) - given.message.data());
}

/// The placement data is whole: neither freed nor overwritten.
void expectDataIsThere() {
  if (given.data == nullptr) return;
  EXPECT_FALSE(watchedBlockIsFreed());
  EXPECT_EQ(std::memcmp(given.data, Bytes(kDataBytes, kDataByte).data(), kDataBytes), 0);
}

template <typename... Numbers>
pipe_status_t noteOperation(const char* name, const pipe_plcmt_info* info, Numbers... numbers) {
  EXPECT_EQ(info, kInfo);
  std::string call = name;
  ((call += " " + std::to_string(numbers)), ...);
  return note(call);
}

/// The same with placement data.
template <typename... Numbers>
pipe_status_t noteWithData(const char* name, const void* data, const pipe_plcmt_info* info,
                           Numbers... numbers) {
  given.data = data;
  watchBlock(data);
  expectDataIsThere();
  return noteOperation(name, info, numbers...);
}

struct Replayed {
  uint32_t message;
  uint32_t type;
  const char* operation;  ///< its name and what it is given, in order
};

Bytes messageFor(const UpdateLayout& layout) {
  Bytes message(32);
  putU32(message, 0, layout.message);
  putU32(message, 20, kPipe);
  putU32(message, 24, kTable);
  putU32(message, 28, layout.type);
  for (uint32_t i = 0; i < layout.words; ++i) putU32(message, 32 + 4 * i, kFirstWord + i);
  if (layout.elements) putU32(message, 32 + 4 * 4, kElements);
  append(message, Bytes(40, 0x77));  // packed data, elements, or nothing that matters
  return message;
}

class ReplayLifetimes : public testing::TestWithParam<Replayed> {
 protected:
  ReplayLifetimes() : layout_(layoutOf(GetParam().message, GetParam().type)) {
    given = {};
    given.message = messageFor(layout_);
    taken();
  }

  void replay() {
    using Handler = void(uint8_t, uint32_t, const void*, size_t);
    Handler* const handlers[] = {PartnerLib::matchTableDeserialize, PartnerLib::adtDeserialize,
                                 PartnerLib::selDeserialize};
    handlers[layout_.message](kDevice, kSession, given.message.data() + 16,
                              given.message.size() - 16);
  }

  const UpdateLayout& layout_;
};
INSTANTIATE_TEST_SUITE_P(
    Of, ReplayLifetimes,
    testing::Values(
        Replayed{0, 0, "mat_add 100 7 102 107 104"}, Replayed{0, 2, "mat_set_dflt 100 7 105 102"},
        Replayed{0, 3, "mat_clr_dflt 100 7"}, Replayed{0, 4, "mat_del 100"},
        Replayed{0, 5, "mat_mod 100 105 102"}, Replayed{0, 6, "mat_mov 100 101 106 103"},
        Replayed{1, 0, "adt_add 100 7"}, Replayed{1, 1, "adt_del 100"},
        Replayed{1, 2, "adt_mod 100"}, Replayed{2, 0, "sel_grp_create 100 7 102 101 103 2"},
        Replayed{2, 1, "sel_grp_destroy 100 7"}, Replayed{2, 2, "sel_add 100 101 7 102 103"},
        Replayed{2, 3, "sel_del 100 101 7 102 103"},
        Replayed{2, 4, "sel_activate 100 101 7 102 103"},
        Replayed{2, 5, "sel_deactivate 100 101 7 102 103"},
        Replayed{2, 6, "sel_set_fallback 100 7"}, Replayed{2, 7, "sel_clr_fallback 7"}),
    [](const auto& test) {
      return std::string(layoutOf(test.param.message, test.param.type).name);
    });

TEST_P(ReplayLifetimes, TheInfoIsDestroyedOnceAndThenTheDataIsFreed) {
  replay();
  Calls expected;
  if (layout_.packed) expected = {"unpack size", "unpack"};
  EXPECT_EQ(taken(),
            expected + "create" + GetParam().operation + "process 24149 3 4242 0" + "destroy");
  EXPECT_EQ(given.data != nullptr, layout_.packed);
  if (layout_.packed) {
    EXPECT_EQ(offsetInMessage(given.packed), 32 + 4 * layout_.words);
    EXPECT_TRUE(watchedBlockIsFreed());
  }
}

// A reader of the buffer finds the elements by the word that held the Partner's pointer.
TEST_P(ReplayLifetimes, OnlyThePointerOfAGroupsElementsIsWrittenIntoTheBuffer) {
  Bytes expected = given.message;
  replay();
  if (layout_.elements) {
    const auto address = reinterpret_cast<uintptr_t>(given.message.data() + 56);
    putU32(expected, 52, static_cast<uint32_t>(address));
  }
  EXPECT_EQ(given.message, expected);
}

}  // namespace
}  // namespace jextest

using jextest::given;
using jextest::note;
using jextest::noteOperation;
using jextest::noteWithData;

extern "C" {

jx_status_t jx_drv_plcmt_unpack_data_size(const uint8_t* packed, size_t* size) {
  given.packed = packed;
  *size = jextest::kDataBytes;
  return note("unpack size");
}

jx_status_t jx_drv_plcmt_copy_unpack(const uint8_t* packed, uint8_t* data) {
  EXPECT_EQ(packed, given.packed);
  std::memset(data, jextest::kDataByte, jextest::kDataBytes);
  return note("unpack");
}

pipe_plcmt_info* pipe_create_plcmt_info(void) {
  note("create");
  return jextest::kInfo;
}

pipe_status_t pipe_process_plcmt_info(pipe_sess_hdl_t sess_hdl, jx_dev_id_t dev_id,
                                      pipe_tbl_hdl_t tbl_hdl, pipe_plcmt_info* info, uint32_t flags,
                                      uint32_t* num_processed) {
  jextest::expectDataIsThere();
  EXPECT_EQ(*num_processed, 0u);
  *num_processed = 1;
  return noteOperation("process", info, sess_hdl, dev_id, tbl_hdl, flags);
}

void pipe_destroy_plcmt_info(pipe_plcmt_info* info) {
  jextest::expectDataIsThere();
  noteOperation("destroy", info);
}

pipe_status_t pipe_set_one_plcmt_op_mat_add(pipe_plcmt_info* info, pipe_mat_ent_hdl_t ent_hdl,
                                            uint32_t pipe, uint32_t priority,
                                            pipe_sel_grp_hdl_t sel_grp_hdl,
                                            pipe_adt_ent_hdl_t adt_ent_hdl, const void* data) {
  return noteWithData("mat_add", data, info, ent_hdl, pipe, priority, sel_grp_hdl, adt_ent_hdl);
}
pipe_status_t pipe_set_one_plcmt_op_mat_set_dflt(pipe_plcmt_info* info, pipe_mat_ent_hdl_t ent_hdl,
                                                 uint32_t pipe, pipe_sel_grp_hdl_t sel_grp_hdl,
                                                 pipe_adt_ent_hdl_t adt_ent_hdl, const void* data) {
  return noteWithData("mat_set_dflt", data, info, ent_hdl, pipe, sel_grp_hdl, adt_ent_hdl);
}
pipe_status_t pipe_set_one_plcmt_op_mat_clr_dflt(pipe_plcmt_info* info, pipe_mat_ent_hdl_t ent_hdl,
                                                 uint32_t pipe) {
  return noteOperation("mat_clr_dflt", info, ent_hdl, pipe);
}
pipe_status_t pipe_set_one_plcmt_op_mat_del(pipe_plcmt_info* info, pipe_mat_ent_hdl_t ent_hdl) {
  return noteOperation("mat_del", info, ent_hdl);
}
pipe_status_t pipe_set_one_plcmt_op_mat_mod(pipe_plcmt_info* info, pipe_mat_ent_hdl_t ent_hdl,
                                            pipe_sel_grp_hdl_t sel_grp_hdl,
                                            pipe_adt_ent_hdl_t adt_ent_hdl, const void* data) {
  return noteWithData("mat_mod", data, info, ent_hdl, sel_grp_hdl, adt_ent_hdl);
}
pipe_status_t pipe_set_one_plcmt_op_mat_mov(pipe_plcmt_info* info, pipe_mat_ent_hdl_t ent_hdl,
                                            uint32_t priority, pipe_sel_grp_hdl_t sel_grp_hdl,
                                            pipe_adt_ent_hdl_t adt_ent_hdl, const void* data) {
  return noteWithData("mat_mov", data, info, ent_hdl, priority, sel_grp_hdl, adt_ent_hdl);
}

pipe_status_t pipe_set_one_plcmt_op_adt_add(pipe_plcmt_info* info, pipe_adt_ent_hdl_t ent_hdl,
                                            uint32_t pipe, const void* data) {
  return noteWithData("adt_add", data, info, ent_hdl, pipe);
}
pipe_status_t pipe_set_one_plcmt_op_adt_del(pipe_plcmt_info* info, pipe_adt_ent_hdl_t ent_hdl) {
  return noteOperation("adt_del", info, ent_hdl);
}
pipe_status_t pipe_set_one_plcmt_op_adt_mod(pipe_plcmt_info* info, pipe_adt_ent_hdl_t ent_hdl,
                                            const void* data) {
  return noteWithData("adt_mod", data, info, ent_hdl);
}

pipe_status_t pipe_set_one_plcmt_op_sel_grp_create(pipe_plcmt_info* info,
                                                   pipe_sel_grp_hdl_t grp_hdl, uint32_t pipe,
                                                   uint32_t max_members, uint32_t group_id,
                                                   pipe_tbl_hdl_t adt_tbl_hdl,
                                                   uint32_t num_elements,
                                                   const pipe_sel_element* elements) {
  EXPECT_EQ(jextest::offsetInMessage(elements), 56u);
  // The word is written before the operation can read it.
  EXPECT_EQ(jextest::u32At(given.message, 52),
            static_cast<uint32_t>(reinterpret_cast<uintptr_t>(elements)));
  return noteOperation("sel_grp_create", info, grp_hdl, pipe, max_members, group_id, adt_tbl_hdl,
                       num_elements);
}
pipe_status_t pipe_set_one_plcmt_op_sel_grp_destroy(pipe_plcmt_info* info,
                                                    pipe_sel_grp_hdl_t grp_hdl, uint32_t pipe) {
  return noteOperation("sel_grp_destroy", info, grp_hdl, pipe);
}
pipe_status_t pipe_set_one_plcmt_op_sel_add(pipe_plcmt_info* info, pipe_sel_grp_hdl_t grp_hdl,
                                            pipe_adt_ent_hdl_t adt_ent_hdl, uint32_t pipe,
                                            pipe_tbl_hdl_t adt_tbl_hdl, uint32_t active,
                                            const void* data) {
  return noteWithData("sel_add", data, info, grp_hdl, adt_ent_hdl, pipe, adt_tbl_hdl, active);
}
pipe_status_t pipe_set_one_plcmt_op_sel_del(pipe_plcmt_info* info, pipe_sel_grp_hdl_t grp_hdl,
                                            pipe_adt_ent_hdl_t adt_ent_hdl, uint32_t pipe,
                                            pipe_tbl_hdl_t adt_tbl_hdl, uint32_t active) {
  return noteOperation("sel_del", info, grp_hdl, adt_ent_hdl, pipe, adt_tbl_hdl, active);
}
pipe_status_t pipe_set_one_plcmt_op_sel_activate(pipe_plcmt_info* info, pipe_sel_grp_hdl_t grp_hdl,
                                                 pipe_adt_ent_hdl_t adt_ent_hdl, uint32_t pipe,
                                                 pipe_tbl_hdl_t adt_tbl_hdl, uint32_t active) {
  return noteOperation("sel_activate", info, grp_hdl, adt_ent_hdl, pipe, adt_tbl_hdl, active);
}
pipe_status_t pipe_set_one_plcmt_op_sel_deactivate(pipe_plcmt_info* info,
                                                   pipe_sel_grp_hdl_t grp_hdl,
                                                   pipe_adt_ent_hdl_t adt_ent_hdl, uint32_t pipe,
                                                   pipe_tbl_hdl_t adt_tbl_hdl, uint32_t active) {
  return noteOperation("sel_deactivate", info, grp_hdl, adt_ent_hdl, pipe, adt_tbl_hdl, active);
}
pipe_status_t pipe_set_one_plcmt_op_sel_set_fallback(pipe_plcmt_info* info,
                                                     pipe_adt_ent_hdl_t adt_ent_hdl, uint32_t pipe,
                                                     const void* data) {
  return noteWithData("sel_set_fallback", data, info, adt_ent_hdl, pipe);
}
pipe_status_t pipe_set_one_plcmt_op_sel_clr_fallback(pipe_plcmt_info* info, uint32_t pipe) {
  return noteOperation("sel_clr_fallback", info, pipe);
}

}  // extern "C"
