// Every record that crosses a socket, byte for byte. All integers are in host byte order: both ends
// run on one host. No other file writes an offset as a number.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "jxsdk/pipe_mgr.h"

namespace PartnerLib {

/// Address of the SliceAgent's request socket.
inline constexpr char DEFAULT_SOCKET_NAME[] = "ipc:///tmp/Partner0";
/// Size of the address field of a registration, terminator included.
inline constexpr size_t MAX_SOCKET_NAME_LEN = 64;
/// Upper bound of a table-update message, header included.
inline constexpr size_t PACK_BUFFER_SIZE = 2048;
/// Kind of a heartbeat on the reverse path.
inline constexpr uint32_t HEARTBEAT_NOTIFY = 255;

/// Types of request. No message has type 7, and none may get it.
enum PartnerMsgType : uint32_t {
  MSG_MATCH_TABLE = 0,
  MSG_ADT = 1,
  MSG_SEL = 2,
  MSG_IDLE_CONFIG = 3,
  MSG_REGISTER = 4,
  MSG_COUNTER_CONFIG = 5,
  MSG_COUNTER_READ = 6,
  MSG_DIGEST_CONFIG = 8,
  MSG_PING = 9,
  MSG_BARRIER = 10,
};

#pragma pack(push, 1)

/// First 16 bytes of every request.
struct PartnerMsgHeader_t {
  uint32_t type;  ///< PartnerMsgType
  uint32_t pid;   ///< process id of the sender; not written in table updates
  uint64_t len;   ///< bytes of the whole message, this header included
};

/// MSG_REGISTER: where the Partner listens.
struct RegisterMsg_t {
  PartnerMsgHeader_t header;
  char name[MAX_SOCKET_NAME_LEN];  ///< NUL-terminated nanomsg address
};

/// Head of the payload of a table update; the words of the SDK's parameter block follow, then the
/// packed placement data or the elements of a group.
struct UpdateHeader_t {
  jx_dev_target_t dev_tgt;  ///< of the virtual device; the SliceAgent looks at the pipe only
  pipe_tbl_hdl_t tbl_hdl;   ///< table, the same on both devices
  uint32_t update_type;     ///< the SDK's update type of the table's kind
};
struct MatStruct_Header_t : UpdateHeader_t {};
struct AdtStruct_Header_t : UpdateHeader_t {};
struct SelStruct_Header_t : UpdateHeader_t {};

/// Head of a whole table-update message.
struct UpdateMsg_t {
  PartnerMsgHeader_t header;
  UpdateHeader_t update;
};

#pragma pack(pop)

/// Bytes of one parameter word.
inline constexpr size_t WORD_SIZE = 4;

static_assert(sizeof(PartnerMsgHeader_t) == 16);
static_assert(offsetof(PartnerMsgHeader_t, type) == 0);
static_assert(offsetof(PartnerMsgHeader_t, pid) == 4);
static_assert(offsetof(PartnerMsgHeader_t, len) == 8);
static_assert(sizeof(RegisterMsg_t) == 80);
static_assert(offsetof(RegisterMsg_t, name) == 16);
static_assert(sizeof(UpdateHeader_t) == 16 && sizeof(MatStruct_Header_t) == 16);
static_assert(sizeof(AdtStruct_Header_t) == 16 && sizeof(SelStruct_Header_t) == 16);
static_assert(sizeof(UpdateMsg_t) == 32);
static_assert(offsetof(UpdateMsg_t, update.dev_tgt.device_id) == 16);
static_assert(offsetof(UpdateMsg_t, update.dev_tgt.dev_pipe_id) == 20);
static_assert(offsetof(UpdateMsg_t, update.tbl_hdl) == 24);
static_assert(offsetof(UpdateMsg_t, update.update_type) == 28);
static_assert(std::is_trivially_copyable_v<RegisterMsg_t>);
static_assert(std::is_trivially_copyable_v<UpdateMsg_t>);

// The SDK's parameter blocks, word by word: what the table-update messages copy.
static_assert(offsetof(pipe_mat_add_params, ent_hdl) == 0);
static_assert(offsetof(pipe_mat_add_params, data) == 10 * WORD_SIZE);
static_assert(offsetof(pipe_mat_set_params, data) == 8 * WORD_SIZE);
static_assert(offsetof(pipe_mat_mov_params, data) == 9 * WORD_SIZE);
static_assert(offsetof(pipe_adt_set_params, data) == 1 * WORD_SIZE);
static_assert(offsetof(pipe_sel_create_params, num_elements) == 4 * WORD_SIZE);
static_assert(offsetof(pipe_sel_create_params, elements) == 5 * WORD_SIZE);
static_assert(offsetof(pipe_sel_add_params, data) == 4 * WORD_SIZE);
static_assert(offsetof(pipe_sel_fallback_params, data) == 1 * WORD_SIZE);
static_assert(sizeof(pipe_sel_element) == 8);

}  // namespace PartnerLib
