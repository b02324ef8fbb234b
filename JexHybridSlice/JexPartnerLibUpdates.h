// The table updates: of each type its parameter words, its texts, and the operation that replays
// it. Capture and replay both go by the rows of this header; nothing else knows a type of update.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>

#include "JexPartnerLibWire.h"
#include "jxsdk/pipe_mgr.h"

namespace PartnerLib {

/// What follows the parameter words of an update.
enum class Tail {
  kNone,
  kPacked,    ///< the placement data that the last word points at, packed
  kElements,  ///< the group's elements that the last word points at, as they are
};

/// One received update as its operation sees it.
struct ReceivedUpdate {
  pipe_plcmt_info* info;
  const uint8_t* body;  ///< parameter words, then packed data or elements
  uint32_t pipe;
  const void* data;  ///< unpacked placement data, null for an operation without
};

/// One type of update.
struct UpdateRow {
  size_t words;  ///< parameter words, the first word of a pointer at their end included
  Tail tail;
  // What a failure of the capture says.
  const char* sizeText;
  const char* lengthText;  ///< null for a type that does not travel
  const char* packText;
  // What a failure of the replay says.
  const char* unpackSizeText;
  const char* unpackText;
  const char* operationText;
  pipe_status_t (*operation)(const ReceivedUpdate& u);
};

/// Words of the parameters up to the one with which their pointer begins.
template <typename Params>
constexpr size_t kWordsOf = offsetof(Params, data) / kWordSize + 1;
template <>
inline constexpr size_t kWordsOf<pipe_sel_create_params> =
    offsetof(pipe_sel_create_params, elements) / kWordSize + 1;
// Parameters without a pointer travel whole.
template <>
inline constexpr size_t kWordsOf<pipe_mat_hdl_params> = sizeof(pipe_mat_hdl_params) / kWordSize;
template <>
inline constexpr size_t kWordsOf<pipe_adt_hdl_params> = sizeof(pipe_adt_hdl_params) / kWordSize;
template <>
inline constexpr size_t kWordsOf<pipe_sel_member_params> =
    sizeof(pipe_sel_member_params) / kWordSize;
template <>
inline constexpr size_t kWordsOf<pipe_sel_destroy_params> =
    sizeof(pipe_sel_destroy_params) / kWordSize;

/// The parameters of a received update. A pointer at their end is the Partner's, and only its first
/// word came.
template <typename Params>
Params paramsOf(const ReceivedUpdate& u) {
  Params params = {};
  memcpy(&params, u.body, kWordsOf<Params> * kWordSize);
  return params;
}

/// The elements of a group that is created: they lie behind its words.
inline const pipe_sel_element* elementsOf(const ReceivedUpdate& u) {
  return reinterpret_cast<const pipe_sel_element*>(u.body +
                                                   kWordsOf<pipe_sel_create_params> * kWordSize);
}

/// A type whose parameters are followed by placement data.
template <typename Params>
constexpr UpdateRow packedRow(const char* sizeText, const char* lengthText, const char* packText,
                              const char* unpackSizeText, const char* unpackText,
                              const char* operationText,
                              pipe_status_t (*operation)(const ReceivedUpdate& u)) {
  return {kWordsOf<Params>, Tail::kPacked, sizeText,      lengthText, packText,
          unpackSizeText,   unpackText,    operationText, operation};
}

/// A type with nothing behind its `words` parameter words.
constexpr UpdateRow fixedRow(size_t words, const char* operationText,
                             pipe_status_t (*operation)(const ReceivedUpdate& u)) {
  return {words, Tail::kNone, nullptr, "", nullptr, nullptr, nullptr, operationText, operation};
}

/// A type that does not travel.
inline constexpr UpdateRow kUnsupported = {0,       Tail::kNone, nullptr, nullptr, nullptr,
                                           nullptr, nullptr,     nullptr, nullptr};

// The rows, by the SDK's numbers of the types. Each text is what operators' tools look for, also
// where it differs from its neighbours'.

inline constexpr UpdateRow kMatchUpdates[] = {
    // PIPE_MAT_UPDATE_ADD
    packedRow<pipe_mat_add_params>(
        "invalid size in plcmt Pack failed match add returns: ",
        "Callback len too long in match add len: ", "plcmt Pack failed in match add returns: ",
        "invalid size in plcmt Unpack failed match add returns: ",
        "Unable to Unpack(bad data) failed match add returns: ",
        "Table add failed match add returns: ",
        [](const ReceivedUpdate& u) {
          const auto p = paramsOf<pipe_mat_add_params>(u);
          return pipe_set_one_plcmt_op_mat_add(u.info, p.ent_hdl, u.pipe, p.priority,
                                               p.act.sel_grp_hdl, p.act.adt_ent_hdl, u.data);
        }),
    // a batch
    kUnsupported,
    // PIPE_MAT_UPDATE_SET_DFLT
    packedRow<pipe_mat_set_params>("invalid size in plcmt Pack failed match setdefault returns: ",
                                   "Callback len too long in match setdefault len: ",
                                   "plcmt Pack failed in match setdefault returns: ",
                                   "invalid size in plcmt Unpack failed match setdefault returns: ",
                                   "Unable to Unpack(bad data) failed match setdefault returns: ",
                                   "Table setdefault failed match returns: ",
                                   [](const ReceivedUpdate& u) {
                                     const auto p = paramsOf<pipe_mat_set_params>(u);
                                     return pipe_set_one_plcmt_op_mat_set_dflt(
                                         u.info, p.ent_hdl, u.pipe, p.act.sel_grp_hdl,
                                         p.act.adt_ent_hdl, u.data);
                                   }),
    // PIPE_MAT_UPDATE_CLR_DFLT
    fixedRow(kWordsOf<pipe_mat_hdl_params>, "Table cleardefault failed match returns: ",
             [](const ReceivedUpdate& u) {
               const auto p = paramsOf<pipe_mat_hdl_params>(u);
               return pipe_set_one_plcmt_op_mat_clr_dflt(u.info, p.ent_hdl, u.pipe);
             }),
    // PIPE_MAT_UPDATE_DEL
    fixedRow(kWordsOf<pipe_mat_hdl_params>, "HW op failed match del returns: ",
             [](const ReceivedUpdate& u) {
               const auto p = paramsOf<pipe_mat_hdl_params>(u);
               return pipe_set_one_plcmt_op_mat_del(u.info, p.ent_hdl);
             }),
    // PIPE_MAT_UPDATE_MOD
    packedRow<pipe_mat_set_params>(
        "invalid size in plcmt Pack failed match mod returns: ",
        "Callback len too long in match mod len: ", "plcmt Pack failed in match mod returns: ",
        "invalid size in plcmt Unpack failed match mod returns: ",
        "Unable to Unpack(bad data) failed match mod returns: ",
        "Table mod failed match mod returns: ",
        [](const ReceivedUpdate& u) {
          const auto p = paramsOf<pipe_mat_set_params>(u);
          return pipe_set_one_plcmt_op_mat_mod(u.info, p.ent_hdl, p.act.sel_grp_hdl,
                                               p.act.adt_ent_hdl, u.data);
        }),
    // PIPE_MAT_UPDATE_MOV
    packedRow<pipe_mat_mov_params>(
        "invalid size in plcmt Pack failed match move returns: ",
        "Callback len too long in match move len: ", "plcmt Pack failed in match move returns: ",
        "invalid size in plcmt Unpack failed match move returns: ",
        "Unable to Unpack(bad data) failed match mov returns: ",
        "Table move failed match mov returns: ",
        [](const ReceivedUpdate& u) {
          const auto p = paramsOf<pipe_mat_mov_params>(u);
          return pipe_set_one_plcmt_op_mat_mov(u.info, p.ent_hdl, p.priority, p.act.sel_grp_hdl,
                                               p.act.adt_ent_hdl, u.data);
        }),
};

inline constexpr UpdateRow kAdtUpdates[] = {
    // PIPE_ADT_UPDATE_ADD
    packedRow<pipe_adt_set_params>(
        "invalid size in plcmt Pack failed adt add returns: ",
        "Callback len too long in adt add len: ", "plcmt Pack failed in adt add returns: ",
        "invalid size in plcmt Unpack failed adt add returns: ",
        "Unable to Unpack(bad data) failed adt add returns: ", "ADT Plcmt failed adt add returns: ",
        [](const ReceivedUpdate& u) {
          const auto p = paramsOf<pipe_adt_set_params>(u);
          return pipe_set_one_plcmt_op_adt_add(u.info, p.ent_hdl, u.pipe, u.data);
        }),
    // PIPE_ADT_UPDATE_DEL
    fixedRow(kWordsOf<pipe_adt_hdl_params>, "ADT Plcmt failed adt del returns: ",
             [](const ReceivedUpdate& u) {
               const auto p = paramsOf<pipe_adt_hdl_params>(u);
               return pipe_set_one_plcmt_op_adt_del(u.info, p.ent_hdl);
             }),
    // PIPE_ADT_UPDATE_MOD
    packedRow<pipe_adt_set_params>(
        "invalid size in plcmt Pack failed adt mod returns: ",
        "Callback len too long in adt mod len: ", "plcmt Pack failed in adt mod returns: ",
        "invalid size in plcmt Unpack failed adt mod returns: ",
        "Unable to Unpack(bad data) failed adt mod returns: ", "ADT Plcmt failed adt mod returns: ",
        [](const ReceivedUpdate& u) {
          const auto p = paramsOf<pipe_adt_set_params>(u);
          return pipe_set_one_plcmt_op_adt_mod(u.info, p.ent_hdl, u.data);
        }),
};

inline constexpr UpdateRow kSelUpdates[] = {
    // PIPE_SEL_UPDATE_GROUP_CREATE
    {kWordsOf<pipe_sel_create_params>, Tail::kElements, nullptr,
     "Callback len too long in SEL group create len: ", nullptr, nullptr, nullptr,
     "SEL Group create Failed returns: ",
     [](const ReceivedUpdate& u) {
       const auto p = paramsOf<pipe_sel_create_params>(u);
       return pipe_set_one_plcmt_op_sel_grp_create(u.info, p.grp_hdl, u.pipe, p.max_members,
                                                   p.group_id, p.adt_tbl_hdl, p.num_elements,
                                                   elementsOf(u));
     }},
    // PIPE_SEL_UPDATE_GROUP_DESTROY
    fixedRow(kWordsOf<pipe_sel_destroy_params>, "SEL Group delete Failed returns: ",
             [](const ReceivedUpdate& u) {
               const auto p = paramsOf<pipe_sel_destroy_params>(u);
               return pipe_set_one_plcmt_op_sel_grp_destroy(u.info, p.grp_hdl, u.pipe);
             }),
    // PIPE_SEL_UPDATE_ADD
    packedRow<pipe_sel_add_params>(
        "invalid size in plcmt Pack failed sel add returns: ",
        "Callback len too long in sel add len: ", "plcmt Pack failed in adt add returns: ",
        "invalid size in plcmt Unpack failed sel update add returns: ",
        "Unable to Unpack(bad data) failed sel update add returns: ",
        "SEL update add Failed returns: ",
        [](const ReceivedUpdate& u) {
          const auto p = paramsOf<pipe_sel_add_params>(u);
          return pipe_set_one_plcmt_op_sel_add(u.info, p.grp_hdl, p.adt_ent_hdl, u.pipe,
                                               p.adt_tbl_hdl, p.active, u.data);
        }),
    // PIPE_SEL_UPDATE_DEL
    fixedRow(kWordsOf<pipe_sel_member_params>, "SEL update delete Failed returns: ",
             [](const ReceivedUpdate& u) {
               const auto p = paramsOf<pipe_sel_member_params>(u);
               return pipe_set_one_plcmt_op_sel_del(u.info, p.grp_hdl, p.adt_ent_hdl, u.pipe,
                                                    p.adt_tbl_hdl, p.active);
             }),
    // PIPE_SEL_UPDATE_ACTIVATE
    fixedRow(kWordsOf<pipe_sel_member_params>, "SEL update activate Failed returns: ",
             [](const ReceivedUpdate& u) {
               const auto p = paramsOf<pipe_sel_member_params>(u);
               return pipe_set_one_plcmt_op_sel_activate(u.info, p.grp_hdl, p.adt_ent_hdl, u.pipe,
                                                         p.adt_tbl_hdl, p.active);
             }),
    // PIPE_SEL_UPDATE_DEACTIVATE
    fixedRow(kWordsOf<pipe_sel_member_params>, "SEL update deactivate Failed returns: ",
             [](const ReceivedUpdate& u) {
               const auto p = paramsOf<pipe_sel_member_params>(u);
               return pipe_set_one_plcmt_op_sel_deactivate(u.info, p.grp_hdl, p.adt_ent_hdl, u.pipe,
                                                           p.adt_tbl_hdl, p.active);
             }),
    // PIPE_SEL_UPDATE_SET_FALLBACK
    packedRow<pipe_sel_fallback_params>(
        "invalid size in plcmt Pack failed sel set returns: ",
        "Callback len too long in sel set len: ", "plcmt Pack failed in adt set returns: ",
        "invalid size in plcmt Unpack failed sel set fallback returns: ",
        "Unable to Unpack(bad data) failed sel set fallback returns: ",
        "SEL set fallback Failed returns: ",
        [](const ReceivedUpdate& u) {
          const auto p = paramsOf<pipe_sel_fallback_params>(u);
          return pipe_set_one_plcmt_op_sel_set_fallback(u.info, p.adt_ent_hdl, u.pipe, u.data);
        }),
    // PIPE_SEL_UPDATE_CLR_FALLBACK
    fixedRow(0, "SEL clear fallback Failed returns: ",
             [](const ReceivedUpdate& u) {
               return pipe_set_one_plcmt_op_sel_clr_fallback(u.info, u.pipe);
             }),
};

/// The row of an update type, null if it does not travel.
template <size_t N>
const UpdateRow* findRow(const UpdateRow (&rows)[N], uint32_t update_type) {
  if (update_type >= N || rows[update_type].lengthText == nullptr) return nullptr;
  return &rows[update_type];
}

// The exported steps of the replay: PLAIN(type, name) of an update without placement data,
// DATA(type, name) of one with.

#define PARTNER_MATCH_STEPS(PLAIN, DATA)                       \
  DATA(PIPE_MAT_UPDATE_ADD, matchTableAddOneEntry)             \
  DATA(PIPE_MAT_UPDATE_SET_DFLT, matchTableSetDefaultEntry)    \
  PLAIN(PIPE_MAT_UPDATE_CLR_DFLT, matchTableClearDefaultEntry) \
  PLAIN(PIPE_MAT_UPDATE_DEL, matchTableDelOneEntry)            \
  DATA(PIPE_MAT_UPDATE_MOD, matchTableModOneEntry)             \
  DATA(PIPE_MAT_UPDATE_MOV, matchTableMoveOneEntry)

#define PARTNER_ADT_STEPS(PLAIN, DATA)       \
  DATA(PIPE_ADT_UPDATE_ADD, adtAddOneEntry)  \
  PLAIN(PIPE_ADT_UPDATE_DEL, adtDelOneEntry) \
  DATA(PIPE_ADT_UPDATE_MOD, adtModOneEntry)

#define PARTNER_SEL_STEPS(PLAIN, DATA)                   \
  PLAIN(PIPE_SEL_UPDATE_GROUP_CREATE, selCreateGroup)    \
  PLAIN(PIPE_SEL_UPDATE_GROUP_DESTROY, selDeleteGroup)   \
  DATA(PIPE_SEL_UPDATE_ADD, selUpdateAdd)                \
  PLAIN(PIPE_SEL_UPDATE_DEL, selUpdateDel)               \
  PLAIN(PIPE_SEL_UPDATE_ACTIVATE, selUpdateActivate)     \
  PLAIN(PIPE_SEL_UPDATE_DEACTIVATE, selUpdateDeactivate) \
  DATA(PIPE_SEL_UPDATE_SET_FALLBACK, selSetFallback)     \
  PLAIN(PIPE_SEL_UPDATE_CLR_FALLBACK, selClearFallback)

// A missing row moves those behind it.
static_assert(std::size(kMatchUpdates) == PIPE_MAT_UPDATE_MOV + 1);
static_assert(std::size(kAdtUpdates) == PIPE_ADT_UPDATE_MOD + 1);
static_assert(std::size(kSelUpdates) == PIPE_SEL_UPDATE_CLR_FALLBACK + 1);

}  // namespace PartnerLib
