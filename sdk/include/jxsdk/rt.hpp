// The runtime table API as objects: what rt.h offers as plain functions, and more.
//
// Threads: every method may be called from any thread, but a key, data, attributes or operations
// object is used by one thread at a time. Writes to tables of one device take effect one at a
// time, in the order in which they return; on a virtual device each is reported to its placement
// callbacks before it returns.
//
// Ownership: programs, tables and learn objects belong to their device and die with it.
// Everything that an allocate method hands out belongs to the caller.
//
// Every method returns JX_SUCCESS or a status, and leaves its outputs as they were on failure.
#ifndef JXSDK_RT_HPP
#define JXSDK_RT_HPP

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "jxsdk/pipe_mgr.h"
#include "jxsdk/rt.h"
#include "jxsdk/types.h"

namespace jxrt {

class JxRtTable;
class JxRtTableData;
class JxRtTableKey;

/// What calls are made on behalf of. Ends with its last shared pointer.
class JXSDK_API JxRtSession {
 public:
  virtual ~JxRtSession() = default;

  /// A new session; null when the limit (1024 a process) is reached.
  static std::shared_ptr<JxRtSession> sessionCreate();

  /// The C handle of the living session whose pipeline-manager handle is `sess_hdl`; null if there
  /// is none. The session stays its owner's. `flags` is 0.
  static jx_rt_session_hdl* sessionInstantiate(uint32_t sess_hdl, uint64_t flags);

  /// The object behind a C handle, null for a null one. The session stays its owner's.
  static const JxRtSession* fromHandle(const jx_rt_session_hdl* session);

  /// The session's handle in pipeline-manager calls; never 0.
  virtual uint32_t sessHandleGet() const = 0;

  /// The C face of this object: its address, as jx_rt_session_create says. No ownership passes.
  virtual jx_rt_session_hdl* cHandle() const = 0;
};

/// Facts about one field of a key, of data or of a learn object.
struct JxRtFieldInfo {
  uint32_t id;
  std::string name;
  uint32_t width;                     ///< bits; lists: bits of one element
  jx_rt_key_match_type_t match_type;  ///< key fields; else JX_RT_MATCH_INVALID
};

/// Facts about one action of a table.
struct JxRtActionInfo {
  uint32_t id;
  std::string name;
  std::vector<JxRtFieldInfo> params;
};

/// The match key of one entry of one table, and its priority. Two keys are the same entry's if all
/// fields are equal; the priority does not count. A value of a masked field is stored under its
/// mask.
class JXSDK_API JxRtTableKey {
 public:
  virtual ~JxRtTableKey() = default;

  // Values of up to 64 bits, then of any width as bytes in network byte order. The setter has to
  // be the field's match kind's; setValue sets an exact field, and an optional or LPM or ternary
  // one to match exactly this value.
  virtual jx_status_t setValue(uint32_t field_id, uint64_t value) = 0;
  virtual jx_status_t setValue(uint32_t field_id, const uint8_t* value, size_t size) = 0;
  virtual jx_status_t setValueAndMask(uint32_t field_id, uint64_t value, uint64_t mask) = 0;
  virtual jx_status_t setValueAndMask(uint32_t field_id, const uint8_t* value, const uint8_t* mask,
                                      size_t size) = 0;
  virtual jx_status_t setValueRange(uint32_t field_id, uint64_t low, uint64_t high) = 0;
  virtual jx_status_t setValueRange(uint32_t field_id, const uint8_t* low, const uint8_t* high,
                                    size_t size) = 0;
  virtual jx_status_t setValueLpm(uint32_t field_id, uint64_t value, uint16_t prefix_length) = 0;
  virtual jx_status_t setValueLpm(uint32_t field_id, const uint8_t* value, uint16_t prefix_length,
                                  size_t size) = 0;
  /// `is_valid` false matches anything and ignores the value (which may be null).
  virtual jx_status_t setValueOptional(uint32_t field_id, const uint8_t* value, bool is_valid,
                                       size_t size) = 0;
  /// Greater wins; 0 after allocation. Only for tables with a ternary, range or optional field.
  virtual jx_status_t prioritySet(uint32_t priority) = 0;

  virtual jx_status_t getValue(uint32_t field_id, uint64_t* value) const = 0;
  virtual jx_status_t getValue(uint32_t field_id, size_t size, uint8_t* value) const = 0;
  virtual jx_status_t getValueAndMask(uint32_t field_id, size_t size, uint8_t* value,
                                      uint8_t* mask) const = 0;
  virtual jx_status_t getValueRange(uint32_t field_id, size_t size, uint8_t* low,
                                    uint8_t* high) const = 0;
  virtual jx_status_t getValueLpm(uint32_t field_id, size_t size, uint8_t* value,
                                  uint16_t* prefix_length) const = 0;
  virtual jx_status_t getValueOptional(uint32_t field_id, size_t size, uint8_t* value,
                                       bool* is_valid) const = 0;
  virtual jx_status_t priorityGet(uint32_t* priority) const = 0;
};

/// What one entry of one table does or holds: an action and its parameters, a reference to a
/// member or a group, a group's members, a counter's values.
class JXSDK_API JxRtTableData {
 public:
  virtual ~JxRtTableData() = default;

  virtual jx_status_t setValue(uint32_t field_id, uint64_t value) = 0;
  virtual jx_status_t setValue(uint32_t field_id, const uint8_t* value, size_t size) = 0;
  virtual jx_status_t setValue(uint32_t field_id, const std::vector<uint32_t>& values) = 0;
  virtual jx_status_t setValue(uint32_t field_id, const std::vector<bool>& values) = 0;

  /// Writes 8 bytes, which need not be aligned.
  virtual jx_status_t getValue(uint32_t field_id, uint64_t* value) const = 0;
  virtual jx_status_t getValue(uint32_t field_id, size_t size, uint8_t* value) const = 0;
  virtual jx_status_t getValue(uint32_t field_id, std::vector<uint32_t>* values) const = 0;
  virtual jx_status_t getValue(uint32_t field_id, std::vector<bool>* values) const = 0;

  /// The action, 0 for data without one.
  virtual jx_status_t actionIdGet(uint32_t* action_id) const = 0;
  /// Whether the field has been set, or filled by a read.
  virtual jx_status_t isActive(uint32_t field_id, bool* is_active) const = 0;
};

/// Reported on the SDK's thread when an entry ages out. The key is valid until the callback
/// returns, and is also what jx_rt_idle_tmo_cb gets. What the callback returns is not looked at.
using JxRtIdleTmoCb = std::function<jx_status_t(const jx_rt_target_t& target,
                                                const JxRtTableKey* key, const void* cookie)>;

/// Idle-time attributes of one table. See rt.h.
class JXSDK_API JxRtTableAttributes {
 public:
  virtual ~JxRtTableAttributes() = default;
  /// Times in milliseconds: how often entries are looked at, and the bounds of a TTL.
  virtual jx_status_t idleTableNotifyModeSet(bool enable, const JxRtIdleTmoCb& callback,
                                             uint32_t ttl_query_interval, uint32_t max_ttl,
                                             uint32_t min_ttl, const void* cookie) = 0;
};

/// One operation on a whole table, such as a counter sync.
///
/// The entries of a counter table are there from the start, one for each index. The hardware counts
/// in counters of its own; a read finds the software copy of them, which only a counter sync makes
/// anew, or with JX_RT_FLAG_FROM_HARDWARE what the hardware has counted at that moment. No write
/// sets or clears a counter (JX_NOT_SUPPORTED): they only grow.
///
/// A sync is made on a thread of the device's own, after everything that was executed before on any
/// of its tables; then the callback is called on that thread. All that was counted before the sync
/// was executed is then in the copy. jx_device_remove drops syncs that have not begun: nobody is
/// told of them. It returns after the callback that runs has (unless that is where it is called),
/// and none is called afterwards.
class JXSDK_API JxRtTableOperations {
 public:
  virtual ~JxRtTableOperations() = default;
  /// `callback` may be null: the sync is made and nobody told.
  virtual jx_status_t counterSyncSet(const JxRtSession& session, const jx_rt_target_t& target,
                                     jx_rt_counter_sync_cb callback, const void* cookie) = 0;
};

/// One table of one program on one device.
class JXSDK_API JxRtTable {
 public:
  virtual ~JxRtTable() = default;

  // Facts. The handle is the pipeline manager's name of the table.
  virtual jx_status_t tableIdGet(uint32_t* id) const = 0;
  virtual jx_status_t tableNameGet(std::string* name) const = 0;
  virtual jx_status_t tableTypeGet(jx_rt_table_type_t* type) const = 0;
  virtual jx_status_t tableHandleGet(pipe_tbl_hdl_t* handle) const = 0;
  virtual jx_status_t tableSizeGet(const JxRtSession& session, const jx_rt_target_t& target,
                                   uint64_t flags, size_t* size) const = 0;
  virtual jx_status_t tableUsageGet(const JxRtSession& session, const jx_rt_target_t& target,
                                    uint64_t flags, uint32_t* count) const = 0;
  /// Fields in order of their ids.
  virtual jx_status_t keyFieldListGet(std::vector<JxRtFieldInfo>* fields) const = 0;
  virtual jx_status_t keyFieldIdGet(const std::string& name, uint32_t* id) const = 0;
  /// Data fields that belong to no action ($MEMBER_ID, $TTL, ...).
  virtual jx_status_t dataFieldListGet(std::vector<JxRtFieldInfo>* fields) const = 0;
  virtual jx_status_t dataFieldIdGet(const std::string& name, uint32_t* id) const = 0;
  virtual jx_status_t dataFieldIdGet(const std::string& name, uint32_t action_id,
                                     uint32_t* id) const = 0;
  virtual jx_status_t actionListGet(std::vector<JxRtActionInfo>* actions) const = 0;
  virtual jx_status_t actionIdGet(const std::string& name, uint32_t* id) const = 0;
  /// The action-data table behind a match table or a selector, null if there is none.
  virtual jx_status_t actionDataTableGet(const JxRtTable** table) const = 0;
  /// The selector table behind a match table, null if there is none.
  virtual jx_status_t selectorTableGet(const JxRtTable** table) const = 0;

  virtual jx_status_t keyAllocate(std::unique_ptr<JxRtTableKey>* key) const = 0;
  virtual jx_status_t keyReset(JxRtTableKey* key) const = 0;
  virtual jx_status_t dataAllocate(std::unique_ptr<JxRtTableData>* data) const = 0;
  virtual jx_status_t dataAllocate(uint32_t action_id,
                                   std::unique_ptr<JxRtTableData>* data) const = 0;
  /// To the state after allocation; the second form with another action.
  virtual jx_status_t dataReset(JxRtTableData* data) const = 0;
  virtual jx_status_t dataReset(uint32_t action_id, JxRtTableData* data) const = 0;

  // Entries. `flags` is 0 except for reads (JX_RT_FLAG_FROM_HARDWARE).
  //
  // JX_ALREADY_EXISTS: the key is taken. JX_OBJECT_NOT_FOUND: no entry with this key (no counter
  // with this index), or it refers to a member or group that is not there. JX_NOT_ENOUGH_SPACE: the
  // table is full. JX_ACTION_DATA_REFERENCED: a member that entries, groups or a fallback refer to
  // cannot be deleted. JX_IN_USE: a group that entries refer to cannot be deleted.
  // JX_NOT_SUPPORTED: not for this kind of table, or a write to the tables of a physical device,
  // which only placement operations make, or to entries (or a default) that the program holds
  // constant, or of an entry to a table without a key. JX_INVALID_ARGUMENTS: also an action that
  // the program keeps for default entries, or for others.
  //
  // Entries that the program gives a table are there when the device is, on virtual and physical
  // devices alike, under the handles 1, 2, 3 ... in their order. No placement callback reports
  // them. They are changed and deleted like others; their handles are given to no other entry.
  //
  // Among entries with priorities the greater one wins, at equal priority the entry that was added
  // before; an entry that was moved or modified stays as old as it is.
  //
  // A counter table may count the hits of a match table's entries. Its size is that table's; an
  // entry's counter is at the index (handle - 1) modulo the size, and begins at 0 with the entry.
  // It counts one entry, the one that came first: while it is there, others that fall on its index
  // are not counted.
  //
  // Counters of a virtual device, where no hardware counts, read as 0. Reading counters waits for
  // no write and allocates nothing.
  virtual jx_status_t tableEntryAdd(const JxRtSession& session, const jx_rt_target_t& target,
                                    uint64_t flags, const JxRtTableKey& key,
                                    const JxRtTableData& data) const = 0;
  /// On a selector table: makes members and states what `data` says, by one update a difference.
  virtual jx_status_t tableEntryMod(const JxRtSession& session, const jx_rt_target_t& target,
                                    uint64_t flags, const JxRtTableKey& key,
                                    const JxRtTableData& data) const = 0;
  /// Gives an entry the key's priority. Only for tables whose entries have one.
  virtual jx_status_t tableEntryMove(const JxRtSession& session, const jx_rt_target_t& target,
                                     uint64_t flags, const JxRtTableKey& key) const = 0;
  virtual jx_status_t tableEntryDel(const JxRtSession& session, const jx_rt_target_t& target,
                                    uint64_t flags, const JxRtTableKey& key) const = 0;
  virtual jx_status_t tableEntryGet(const JxRtSession& session, const jx_rt_target_t& target,
                                    uint64_t flags, const JxRtTableKey& key,
                                    JxRtTableData* data) const = 0;
  /// Entries one after the other, each once, in an order that stays as long as nobody writes. An
  /// entry that is there during the whole walk is seen. JX_OBJECT_NOT_FOUND at the end; also
  /// from GetNext if the entry of `key` has gone.
  virtual jx_status_t tableEntryGetFirst(const JxRtSession& session, const jx_rt_target_t& target,
                                         uint64_t flags, JxRtTableKey* key,
                                         JxRtTableData* data) const = 0;
  virtual jx_status_t tableEntryGetNext(const JxRtSession& session, const jx_rt_target_t& target,
                                        uint64_t flags, const JxRtTableKey& key,
                                        JxRtTableKey* next_key, JxRtTableData* data) const = 0;

  /// One entry of tableEntriesGet.
  struct Entry {
    uint32_t handle;
    std::unique_ptr<JxRtTableKey> key;
    std::unique_ptr<JxRtTableData> data;
  };
  /// Up to `count` entries from position *cursor on (0 to begin with), appended to *entries; moves
  /// *cursor behind them. The end is reached when nothing was appended. A walk sees each entry that
  /// stays during it once, whatever is written meanwhile.
  virtual jx_status_t tableEntriesGet(const JxRtSession& session, const jx_rt_target_t& target,
                                      uint64_t flags, uint64_t* cursor, uint32_t count,
                                      std::vector<Entry>* entries) const = 0;
  /// The entry's (or group's, or member's) handle in pipeline-manager calls; a counter's index.
  virtual jx_status_t tableEntryHandleGet(const JxRtSession& session, const jx_rt_target_t& target,
                                          const JxRtTableKey& key, uint32_t* handle) const = 0;

  /// The default entry: what a packet that matches nothing gets, and every packet where the table
  /// has no key. Of a table with members it is a member or a group. Get and Clear give
  /// JX_OBJECT_NOT_FOUND if none has been set.
  virtual jx_status_t tableDefaultEntrySet(const JxRtSession& session, const jx_rt_target_t& target,
                                           uint64_t flags, const JxRtTableData& data) const = 0;
  virtual jx_status_t tableDefaultEntryClear(const JxRtSession& session,
                                             const jx_rt_target_t& target,
                                             uint64_t flags) const = 0;
  virtual jx_status_t tableDefaultEntryGet(const JxRtSession& session, const jx_rt_target_t& target,
                                           uint64_t flags, JxRtTableData* data) const = 0;

  // Selector tables: one member of one group at a time, each one placement update. Adding takes
  // the member in active; JX_ALREADY_EXISTS if it is in, JX_OBJECT_NOT_FOUND if group or member is
  // not there, JX_NOT_ENOUGH_SPACE if the group is full.
  virtual jx_status_t groupMemberAdd(const JxRtSession& session, const jx_rt_target_t& target,
                                     uint32_t group_id, uint32_t member_id) const = 0;
  virtual jx_status_t groupMemberDel(const JxRtSession& session, const jx_rt_target_t& target,
                                     uint32_t group_id, uint32_t member_id) const = 0;
  virtual jx_status_t groupMemberActivate(const JxRtSession& session, const jx_rt_target_t& target,
                                          uint32_t group_id, uint32_t member_id) const = 0;
  virtual jx_status_t groupMemberDeactivate(const JxRtSession& session,
                                            const jx_rt_target_t& target, uint32_t group_id,
                                            uint32_t member_id) const = 0;
  /// The member that stands in for a group without active members. Get and Clear give
  /// JX_OBJECT_NOT_FOUND if none has been set.
  virtual jx_status_t fallbackSet(const JxRtSession& session, const jx_rt_target_t& target,
                                  uint32_t member_id) const = 0;
  virtual jx_status_t fallbackClear(const JxRtSession& session,
                                    const jx_rt_target_t& target) const = 0;
  virtual jx_status_t fallbackGet(const JxRtSession& session, const jx_rt_target_t& target,
                                  uint32_t* member_id) const = 0;

  // Placement callbacks of a virtual device's table, one each; a null callback takes it away.
  // JX_NOT_SUPPORTED for a table of another kind, or of a physical device.
  virtual jx_status_t matUpdateCbRegister(const JxRtSession& session, const jx_rt_target_t& target,
                                          pipe_mat_update_cb callback, void* cookie) const = 0;
  virtual jx_status_t adtUpdateCbRegister(const JxRtSession& session, const jx_rt_target_t& target,
                                          pipe_adt_update_cb callback, void* cookie) const = 0;
  virtual jx_status_t selUpdateCbRegister(const JxRtSession& session, const jx_rt_target_t& target,
                                          pipe_sel_update_cb callback, void* cookie) const = 0;

  // Idle time and table operations. operationsAllocate gives JX_NOT_SUPPORTED for a table without
  // the operation: a counter sync is for the counter tables of physical devices. Execute gives
  // JX_INVALID_ARGUMENTS if the operation is another table's, or was not set; it returns at once,
  // and keeps nothing of `operations`.
  virtual jx_status_t idleTableAttributesAllocate(
      jx_rt_idle_table_mode_t mode, std::unique_ptr<JxRtTableAttributes>* attributes) const = 0;
  virtual jx_status_t tableAttributesSet(const JxRtSession& session, const jx_rt_target_t& target,
                                         uint64_t flags,
                                         const JxRtTableAttributes& attributes) const = 0;
  virtual jx_status_t operationsAllocate(
      jx_rt_table_operations_mode_t mode,
      std::unique_ptr<JxRtTableOperations>* operations) const = 0;
  virtual jx_status_t tableOperationsExecute(const JxRtTableOperations& operations) const = 0;
};

/// Reported on the SDK's learn thread for each learn message; `data` has one element for each
/// digest, with all fields of the learn object. The message is held until it has been acknowledged
/// with notifyAck, in the callback or later, on any thread. What the callback returns is not looked
/// at.
using JxRtLearnCb =
    std::function<jx_status_t(const jx_rt_target_t& target, std::shared_ptr<JxRtSession> session,
                              std::vector<std::unique_ptr<JxRtTableData>> data,
                              jx_rt_learn_msg_hdl* const learn_msg, const void* cookie)>;

/// One learn object (digest) of one program on one device.
///
/// Digests are told in the order in which packets made them, several in one message. Only so many
/// messages may be out without having been acknowledged; what comes meanwhile waits, and beyond a
/// bound it is lost. A digest that equals one that has not been acknowledged yet is not told again.
/// Digests that come when nobody has registered are dropped.
///
/// On a virtual device, where no packets are, the three calls that follow the facts give
/// JX_NOT_SUPPORTED.
class JXSDK_API JxRtLearn {
 public:
  virtual ~JxRtLearn() = default;
  virtual jx_status_t learnIdGet(uint32_t* id) const = 0;
  virtual jx_status_t learnNameGet(std::string* name) const = 0;
  virtual jx_status_t learnFieldIdListGet(std::vector<uint32_t>* ids) const = 0;
  virtual jx_status_t learnFieldNameGet(uint32_t field_id, std::string* name) const = 0;
  /// Width in bits.
  virtual jx_status_t learnFieldSizeGet(uint32_t field_id, size_t* bits) const = 0;
  /// One callback is told: it takes the place of one that was registered before (as that of a
  /// client that has gone without a word), and what waits goes to the new one. The former is not
  /// called any more once this has returned, nor does it run then, unless it is where this is
  /// called.
  virtual jx_status_t callbackRegister(const std::shared_ptr<JxRtSession>& session,
                                       const jx_rt_target_t& target, const JxRtLearnCb& callback,
                                       const void* cookie) = 0;
  /// The callback is not called any more once this has returned, nor does it run then, unless it is
  /// where this is called. What it got can still be acknowledged; what waits is dropped. JX_SUCCESS
  /// also if nobody had registered.
  virtual jx_status_t callbackDeregister(const std::shared_ptr<JxRtSession>& session,
                                         const jx_rt_target_t& target) = 0;
  /// JX_OBJECT_NOT_FOUND: no such message, or it has been acknowledged before.
  virtual jx_status_t notifyAck(const std::shared_ptr<JxRtSession>& session,
                                jx_rt_learn_msg_hdl* learn_msg) = 0;
};

/// One program on one device.
class JXSDK_API JxRtInfo {
 public:
  virtual ~JxRtInfo() = default;
  virtual jx_status_t p4NameGet(std::string* name) const = 0;
  /// All tables, in the description's order.
  virtual jx_status_t tablesGet(std::vector<const JxRtTable*>* tables) const = 0;
  virtual jx_status_t tableFromNameGet(const std::string& name, const JxRtTable** table) const = 0;
  virtual jx_status_t tableFromIdGet(uint32_t id, const JxRtTable** table) const = 0;
  virtual jx_status_t learnsGet(std::vector<JxRtLearn*>* learns) const = 0;
  virtual jx_status_t learnFromNameGet(const std::string& name, JxRtLearn** learn) const = 0;
  virtual jx_status_t learnFromIdGet(uint32_t id, JxRtLearn** learn) const = 0;
};

/// The devices of this process.
class JXSDK_API JxRtDevMgr {
 public:
  virtual ~JxRtDevMgr() = default;
  static JxRtDevMgr& getInstance();
  /// JX_OBJECT_NOT_FOUND if there is no such device or program.
  virtual jx_status_t jxRtInfoGet(jx_dev_id_t dev_id, const std::string& p4_name,
                                  const JxRtInfo** info) const = 0;
  /// Names of the device's programs, in the profile's order.
  virtual jx_status_t jxRtInfoP4NamesGet(jx_dev_id_t dev_id,
                                         std::vector<std::string>* names) const = 0;
  virtual jx_status_t devicesGet(std::vector<jx_dev_id_t>* dev_ids) const = 0;
  virtual jx_status_t deviceIsVirtual(jx_dev_id_t dev_id, bool* is_virtual) const = 0;
};

}  // namespace jxrt
#endif
