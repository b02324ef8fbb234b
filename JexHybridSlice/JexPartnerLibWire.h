// Every record that crosses a socket or the shared segment, byte for byte. All integers are in host
// byte order: both ends run on one host. Only this file states offsets as numbers.
//
// Two records of the reverse path, PartnerIdleNotify and PartnerDigestNotify, stand in the public
// header: applications get them as they are.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>

#include "JexPartnerLib.h"
#include "jxsdk/pipe_mgr.h"

namespace PartnerLib {

/// Address of the SliceAgent's request socket.
inline constexpr char DEFAULT_SOCKET_NAME[] = "ipc:///tmp/Partner0";
/// Size of the address field of a registration, terminator included.
inline constexpr size_t MAX_SOCKET_NAME_LEN = 64;
/// Upper bound of a table-update message, header included.
inline constexpr size_t PACK_BUFFER_SIZE = 2048;
/// Bytes of a program's name in a request.
inline constexpr size_t kP4NameBytes = PARTNER_PROGRAM_NAME_BYTES;

/// Kinds of record on the reverse path, by their first byte; idle and digest notifications have 0
/// and 1.
inline constexpr uint8_t kBarrierNotify = 254;
inline constexpr uint32_t HEARTBEAT_NOTIFY = 255;
/// The whole first word of a barrier reply.
inline constexpr uint32_t kBarrierReplyKind = 0x000C00FE;

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

/// MSG_IDLE_CONFIG: arms or disarms idle-time notifications of one table.
struct IdleConfigHeader_t {
  uint32_t tableId;
  char p4Name[kP4NameBytes];  ///< NUL-terminated
  uint32_t pipeId;
  uint32_t ttlQueryInterval;  ///< milliseconds, here and below; 0 to disarm
  uint32_t maxTtl;
  uint32_t minTtl;
  uint32_t enable;  ///< the low byte counts: 0 disarms
};
struct IdleConfigMsg_t {
  PartnerMsgHeader_t header;
  IdleConfigHeader_t config;
};

/// MSG_COUNTER_CONFIG: starts or stops the counters of one table.
struct CounterConfigHeader_t {
  uint32_t tableId;
  uint8_t enable;
  uint8_t padding[3];
  uint32_t pipeId;  ///< of the Partner's target; the SliceAgent syncs all pipes
  char programName[kP4NameBytes];
};
struct CounterConfigMsg_t {
  PartnerMsgHeader_t header;
  CounterConfigHeader_t config;
};

/// MSG_DIGEST_CONFIG: arms or disarms one digest.
struct DigestConfigHeader_t {
  uint32_t learnId;
  uint32_t pipeId;
  char p4Name[kP4NameBytes];  ///< NUL-terminated
  uint32_t size;              ///< bits of all fields; 0 to disarm
  uint32_t enable;            ///< the low byte counts: 0 disarms
};
struct DigestConfigMsg_t {
  PartnerMsgHeader_t header;
  DigestConfigHeader_t config;
};

/// MSG_BARRIER: asks for a reply, after a sync of a table's counters if one is named.
struct BarrierHeader_t {
  uint32_t tableId;  ///< 0: no sync
  uint8_t unused[256];
  uint64_t timestamp;  ///< milliseconds; names the barrier
};
struct BarrierMsg_t {
  PartnerMsgHeader_t header;
  BarrierHeader_t barrier;
};

/// Answer to a barrier, on the reverse path.
struct BarrierReply_t {
  uint32_t kind;       ///< kBarrierReplyKind
  uint64_t timestamp;  ///< of the barrier
};

/// A table's block in the counter segment: this header, then a PartnerCounterEntry per index. It is
/// not aligned to its 64-bit fields.
struct CounterBlockHeader_t {
  uint32_t reserved;
  uint64_t lastReadTime;  ///< end of the last sync, milliseconds of getEpochTime; 0 = none yet
};

#pragma pack(pop)

/// The text of a field of fixed size, which need not be terminated.
template <size_t N>
std::string textOf(const char (&field)[N]) {
  return {field, strnlen(field, N)};
}

/// Bytes of one parameter word.
inline constexpr size_t kWordSize = 4;

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
static_assert(sizeof(IdleConfigMsg_t) == 296 && sizeof(IdleConfigHeader_t) == 280);
static_assert(offsetof(IdleConfigHeader_t, tableId) == 0);
static_assert(offsetof(IdleConfigHeader_t, p4Name) == 4);
static_assert(offsetof(IdleConfigHeader_t, pipeId) == 260);
static_assert(offsetof(IdleConfigHeader_t, ttlQueryInterval) == 264);
static_assert(offsetof(IdleConfigHeader_t, maxTtl) == 268);
static_assert(offsetof(IdleConfigHeader_t, minTtl) == 272);
static_assert(offsetof(IdleConfigHeader_t, enable) == 276);
static_assert(sizeof(CounterConfigMsg_t) == 284);
static_assert(offsetof(CounterConfigMsg_t, config.tableId) == 16);
static_assert(offsetof(CounterConfigMsg_t, config.enable) == 20);
static_assert(offsetof(CounterConfigMsg_t, config.pipeId) == 24);
static_assert(offsetof(CounterConfigMsg_t, config.programName) == 28);
static_assert(sizeof(DigestConfigMsg_t) == 288 && sizeof(DigestConfigHeader_t) == 272);
static_assert(offsetof(DigestConfigHeader_t, learnId) == 0);
static_assert(offsetof(DigestConfigHeader_t, pipeId) == 4);
static_assert(offsetof(DigestConfigHeader_t, p4Name) == 8);
static_assert(offsetof(DigestConfigHeader_t, size) == 264);
static_assert(offsetof(DigestConfigHeader_t, enable) == 268);
static_assert(sizeof(BarrierMsg_t) == 284);
static_assert(offsetof(BarrierMsg_t, barrier.tableId) == 16);
static_assert(offsetof(BarrierMsg_t, barrier.unused) == 20);
static_assert(offsetof(BarrierMsg_t, barrier.timestamp) == 276);
static_assert(sizeof(BarrierReply_t) == 12 && offsetof(BarrierReply_t, timestamp) == 4);
static_assert(sizeof(PartnerIdleNotify) == 20);
static_assert(offsetof(PartnerIdleNotify, type) == 0 && offsetof(PartnerIdleNotify, devId) == 1);
static_assert(offsetof(PartnerIdleNotify, tableId) == 4);
static_assert(offsetof(PartnerIdleNotify, entryKey) == 8);
static_assert(offsetof(PartnerIdleNotify, time) == 12);
static_assert(sizeof(PartnerDigestNotify) == 20);
static_assert(offsetof(PartnerDigestNotify, type) == 0);
static_assert(offsetof(PartnerDigestNotify, devId) == 1);
static_assert(offsetof(PartnerDigestNotify, length) == 2);
static_assert(offsetof(PartnerDigestNotify, learnId) == 4);
static_assert(offsetof(PartnerDigestNotify, time) == 8);
static_assert(offsetof(PartnerDigestNotify, valueSize) == 16);
static_assert(sizeof(CounterBlockHeader_t) == 12);
static_assert(offsetof(CounterBlockHeader_t, lastReadTime) == 4);
static_assert(sizeof(PartnerCounterEntry) == 16 && offsetof(PartnerCounterEntry, bytes) == 8);
static_assert(std::is_trivially_copyable_v<RegisterMsg_t>);
static_assert(std::is_trivially_copyable_v<UpdateMsg_t>);

// The SDK's parameter blocks, word by word: what the table-update messages copy.
static_assert(offsetof(pipe_mat_add_params, ent_hdl) == 0);
static_assert(offsetof(pipe_mat_add_params, data) == 10 * kWordSize);
static_assert(offsetof(pipe_mat_set_params, data) == 8 * kWordSize);
static_assert(offsetof(pipe_mat_mov_params, data) == 9 * kWordSize);
static_assert(offsetof(pipe_adt_set_params, data) == 1 * kWordSize);
static_assert(offsetof(pipe_sel_create_params, num_elements) == 4 * kWordSize);
static_assert(offsetof(pipe_sel_create_params, elements) == 5 * kWordSize);
static_assert(offsetof(pipe_sel_add_params, data) == 4 * kWordSize);
static_assert(offsetof(pipe_sel_fallback_params, data) == 1 * kWordSize);
static_assert(sizeof(pipe_sel_element) == 8);

}  // namespace PartnerLib
