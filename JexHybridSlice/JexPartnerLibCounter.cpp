#include "JexPartnerLibCounter.h"

#include <atomic>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <vector>

#include "JexPartnerLibMatchTypes.h"
#include "JexPartnerLibShared.h"
#include "JexPartnerLibSocket.h"
#include "JexPartnerLibStop.h"
#include "JexPartnerLibWire.h"

namespace PartnerLib {

boost::interprocess::managed_shared_memory* CounterShm::segment = nullptr;
std::unordered_map<uint32_t, CounterReadStruct_t*>& countersCallbackMap =
    *new std::unordered_map<uint32_t, CounterReadStruct_t*>;

namespace {

constexpr uint32_t kAllPipes = 0xFFFF;

/// What the service keeps of a record beside it.
struct SyncState {
  unsigned uses = 0;  ///< syncs that will still call back with the record; a thread that stops it
  unsigned writing = 0;  ///< threads that copy values into its block
  std::atomic<bool> stopped{false};
};

/// Guards the map, the states, and every change of a record's two barriers. Never held across a
/// call into the SDK or a socket.
std::mutex countersMutex;
// Threads of the SDK and of the host use the states, and wait for the end of writing, while exit()
// runs: neither is ever destroyed.
std::condition_variable& writingEnded = *new std::condition_variable;
std::unordered_map<CounterReadStruct_t*, SyncState>& syncStates =
    *new std::unordered_map<CounterReadStruct_t*, SyncState>;

/// With the mutex held. Null if the table's counters are not started.
CounterReadStruct_t* findRecord(uint32_t tableId) {
  const auto found = countersCallbackMap.find(counterKey(tableId));
  return found == countersCallbackMap.end() ? nullptr : found->second;
}

/// The turn of a thread that copies values into a record's block. Stopping the record ends the turn
/// between two entries, and waits for that.
class WritingTurn {
 public:
  explicit WritingTurn(CounterReadStruct_t* rec) {
    const std::lock_guard<std::mutex> lock(countersMutex);
    const auto found = syncStates.find(rec);
    if (found == syncStates.end()) {
      return;  // an image that came in a request: nobody can stop it
    }
    state_ = &found->second;
    ++state_->writing;
  }
  ~WritingTurn() {
    if (state_ != nullptr) {
      const std::lock_guard<std::mutex> lock(countersMutex);
      --state_->writing;
      writingEnded.notify_all();
    }
  }
  WritingTurn(const WritingTurn&) = delete;
  WritingTurn& operator=(const WritingTurn&) = delete;

  /// Nothing may be written any more.
  bool stopped() const {
    return state_ != nullptr && state_->stopped.load(std::memory_order_acquire);
  }

 private:
  SyncState* state_ = nullptr;
};

void answerBarrier(int replySocket, uint64_t timestamp) {
  const BarrierReply_t reply = {kBarrierReplyKind, timestamp};
  socketSend(replySocket, &reply, sizeof(reply));
}

/// With the mutex held.
bool isStopped(CounterReadStruct_t* rec) {
  const auto found = syncStates.find(rec);
  return found != syncStates.end() && found->second.stopped.load(std::memory_order_relaxed);
}

/// Answers the barrier that waited for the sync that has completed, and makes the barrier that came
/// meanwhile the pending one. A record that was stopped is no exception, but in a process that is a
/// Partner too: there the barrier is sent anew, and the loop, which finds no record, answers it.
void completeBarrier(CounterReadStruct_t* rec) {
  uint64_t answered = 0;
  uint64_t promoted = 0;
  {
    // Before the reply: no barrier that is sent because the reply came finds this one pending, and
    // no other completion answers it too.
    const std::lock_guard<std::mutex> lock(countersMutex);
    answered = rec->pendingBarrier;
    if (answered == 0) return;
    promoted = rec->nextBarrier;
    const bool loopAnswers = pSocket != nullptr && isStopped(rec);
    storeFenced(rec->pendingBarrier, loopAnswers ? 0 : promoted);
    storeFenced(rec->nextBarrier, 0);
  }
  answerBarrier(rec->replySocket, answered);
  // A process that is no Partner has no socket to itself: there the next sync answers it.
  if (promoted != 0 && pSocket != nullptr) sendBarrier(rec->tableId, promoted, rec->pid);
}

/// With the mutex held: one use of a record is over. The last use of a stopped record frees it.
void endUse(CounterReadStruct_t* rec) {
  const auto found = syncStates.find(rec);
  if (found == syncStates.end() || found->second.uses == 0) return;
  SyncState& state = found->second;
  --state.uses;
  if (state.uses == 0 && state.stopped.load(std::memory_order_relaxed)) {
    syncStates.erase(found);
    delete rec;
  }
}

void startCounters(std::unique_ptr<CounterReadStruct_t> rec, const StopPlace& place) {
  const std::lock_guard<std::mutex> lock(countersMutex);
  const auto res = countersCallbackMap.insert({counterKey(rec->tableId), rec.get()});
  PARTNER_CHECK_AT(place, res.second, "Cannot insert counter struct");
  syncStates[rec.release()];
}

void stopCounters(uint32_t tableId, const StopPlace& place) {
  std::unique_lock<std::mutex> lock(countersMutex);
  CounterReadStruct_t* const rec = findRecord(tableId);
  PARTNER_REQUIRE_AT(place, rec != nullptr, "false", "Cannot find counter struct to delete");
  countersCallbackMap.erase(counterKey(tableId));
  SyncState& state = syncStates[rec];
  state.stopped.store(true, std::memory_order_release);
  ++state.uses;  // the sync that writes may complete before this thread is awake
  writingEnded.wait(lock, [&state] { return state.writing == 0; });
  endUse(rec);
}

/// The records at this moment, each kept alive until a sync that the caller starts has come back.
std::vector<CounterReadStruct_t*> recordsToSync() {
  std::vector<CounterReadStruct_t*> records;
  const std::lock_guard<std::mutex> lock(countersMutex);
  for (const auto& [key, rec] : countersCallbackMap) {
    ++syncStates[rec].uses;
    records.push_back(rec);
  }
  return records;
}

jx_status_t requestSync(CounterReadStruct_t* rec) {
  return registerCounterSyncCallback(rec->target, rec->session, rec->tableId, rec->table,
                                     counter_sync_callback, rec);
}

}  // namespace

void counterConfigDeserialize(uint8_t dev, uint32_t sessionArg, const void* payload, size_t len,
                              int replySocket, int pid) {
  static_cast<void>(len);
  const auto* config = static_cast<const CounterConfigHeader_t*>(payload);
  const std::string programName = textOf(config->programName);
  jx_rt_session_hdl* const session = jxrt::JxRtSession::sessionInstantiate(sessionArg, 0);
  setCountersSync({dev, kAllPipes, 0, 0}, programName.c_str(), config->tableId, session,
                  replySocket, pid, config->enable != 0);
}

void setCountersSync(jx_rt_target_t target, const char* programName, uint32_t tableId,
                     jx_rt_session_hdl* session, int replySocket, int pid, bool enable) {
  const jx_rt_info_hdl* info = nullptr;
  jx_status_t jx_status = jx_rt_info_get(target.dev_id, programName, &info);
  PARTNER_CHECK(jx_status == JX_SUCCESS, "Cannot find p4 program ", programName);
  const jx_rt_table_hdl* table = nullptr;
  jx_status = jx_rt_table_from_id_get(info, tableId, &table);
  PARTNER_CHECK(jx_status == JX_SUCCESS, "Cannot find table with id: ", tableId);
  if (!enable) {
    stopCounters(tableId, PARTNER_HERE);
    return;
  }

  auto rec = std::make_unique<CounterReadStruct_t>();
  rec->tableId = tableId;
  rec->table = table;
  rec->target = target;
  rec->session = session;
  rec->replySocket = replySocket;
  rec->pid = pid;
  size_t size = 0;
  jx_status = jx_rt_table_size_get(table, session, &target, 0, &size);
  PARTNER_CHECK(jx_status == JX_SUCCESS, "Cannot find table size: ", tableId);
  rec->size = static_cast<uint32_t>(size);

  if (CounterShm::segment == nullptr) {
    CounterShm::segment = new boost::interprocess::managed_shared_memory(
        boost::interprocess::open_only, CounterShm::kName);
  }
  const auto [ptr, bytes] =
      CounterShm::segment->find<unsigned char>(CounterShm::blockName(tableId).c_str());
  // A Partner whose program gives the table fewer entries has made a block that is too short.
  PARTNER_REQUIRE(ptr != nullptr && bytes >= CounterShm::blockBytes(size), "ptr",
                  "Cannot find counter for table in SHM");
  rec->block = ptr;
  rec->counters = ptr + sizeof(CounterBlockHeader_t);

  jx_status = jx_rt_key_field_id_get(table, JX_RT_FIELD_COUNTER_INDEX, &rec->indexField);
  PARTNER_CHECK(jx_status == JX_SUCCESS, "Cannot find index field counter for table");
  jx_status = jx_rt_data_field_id_get(table, JX_RT_FIELD_COUNTER_PKTS, &rec->packetsField);
  PARTNER_CHECK(jx_status == JX_SUCCESS, "Cannot find packets field counter for table");
  jx_status = jx_rt_data_field_id_get(table, JX_RT_FIELD_COUNTER_BYTES, &rec->bytesField);
  PARTNER_CHECK(jx_status == JX_SUCCESS, "Cannot find bytes field counter for table");
  startCounters(std::move(rec), PARTNER_HERE);
}

void counterReadDeserialize(uint8_t dev, uint32_t sessionArg, const void* payload, size_t len,
                            int replySocket) {
  static_cast<void>(dev);
  static_cast<void>(len);
  static_cast<void>(replySocket);
  // The buffer is the loop's to write to.
  auto* rec = static_cast<CounterReadStruct_t*>(const_cast<void*>(payload));
  rec->session = jxrt::JxRtSession::sessionInstantiate(sessionArg, 0);
  processCounterRead(rec);
}

jx_status_t registerCounterSyncCallback(jx_rt_target_t target, jx_rt_session_hdl* session,
                                        uint32_t tableId, const jx_rt_table_hdl* table,
                                        jx_rt_counter_sync_cb callback, void* cookie) {
  jx_rt_table_operations_hdl* op = nullptr;
  jx_status_t jx_status = jx_rt_table_operations_allocate(table, JX_RT_OPERATION_COUNTER_SYNC, &op);
  PARTNER_CHECK(jx_status == JX_SUCCESS,
                "Cannot allocate table op counter-sync on table with id: ", tableId);
  jx_status = jx_rt_operations_counter_sync_set(op, session, &target, callback, cookie);
  PARTNER_CHECK(jx_status == JX_SUCCESS, "Cannot set counter-sync on table with id: ", tableId);
  jx_status = jx_rt_table_operations_execute(table, op);
  PARTNER_CHECK(jx_status == JX_SUCCESS, "Cannot exec counter-sync on table with id: ", tableId);
  jx_status = jx_rt_table_operations_deallocate(op);
  PARTNER_CHECK(jx_status == JX_SUCCESS,
                "Cannot deallocate table op counter-sync on table with id: ", tableId);
  return JX_SUCCESS;
}

void processCounterRead(CounterReadStruct_t* rec) {
  jx_rt_table_key_hdl* key = nullptr;
  PARTNER_REQUIRE(jx_rt_table_key_allocate(rec->table, &key) == JX_SUCCESS,
                  "jx_status == JX_SUCCESS", "Cannot Allocate counter table key");
  jx_rt_table_data_hdl* data = nullptr;
  PARTNER_REQUIRE(jx_rt_table_data_allocate(rec->table, &data) == JX_SUCCESS,
                  "jx_status == JX_SUCCESS", "Cannot Allocate counter table data");
  PARTNER_REQUIRE(rec->counters != nullptr, "false", "NO memmap for getting counters");
  jx_rt_table_key_reset(rec->table, &key);
  jx_rt_table_data_reset(rec->table, &data);
  {
    const WritingTurn turn(rec);
    unsigned char* entry = rec->counters;
    for (uint32_t i = 0; i < rec->size && !turn.stopped(); ++i) {
      // The SDK writes 8 bytes, aligned or not, straight into the segment.
      auto* const packets = reinterpret_cast<uint64_t*>(entry);
      auto* const bytes = reinterpret_cast<uint64_t*>(entry + offsetof(PartnerCounterEntry, bytes));
      jx_rt_key_field_set_value(key, rec->indexField, i);
      PARTNER_REQUIRE(jx_rt_table_entry_get(rec->table, rec->session, &rec->target, key, data,
                                            rec->readFlags) == JX_SUCCESS,
                      "jx_status == JX_SUCCESS", "Cannot get counter value");
      PARTNER_REQUIRE(jx_rt_data_field_get_value(data, rec->packetsField, packets) == JX_SUCCESS,
                      "jx_status == JX_SUCCESS", "Cannot get counter packets");
      PARTNER_REQUIRE(jx_rt_data_field_get_value(data, rec->bytesField, bytes) == JX_SUCCESS,
                      "jx_status == JX_SUCCESS", "Cannot get counter bytes");
      entry += sizeof(PartnerCounterEntry);
    }
    if (!turn.stopped()) {
      const uint64_t now = getEpochTime();
      memcpy(rec->block + offsetof(CounterBlockHeader_t, lastReadTime), &now, sizeof(now));
    }
  }
  PARTNER_REQUIRE(jx_rt_table_key_deallocate(key) == JX_SUCCESS, "jx_status == JX_SUCCESS",
                  "Cannot free table key");
  PARTNER_REQUIRE(jx_rt_table_data_deallocate(data) == JX_SUCCESS, "jx_status == JX_SUCCESS",
                  "Cannot free table data");
  completeBarrier(rec);
}

void barrierDeserialize(uint8_t dev, uint32_t sessionArg, const void* payload, size_t len,
                        int replySocket) {
  static_cast<void>(dev);
  static_cast<void>(sessionArg);
  static_cast<void>(len);
  const auto* barrier = static_cast<const BarrierHeader_t*>(payload);
  const uint32_t tableId = barrier->tableId;
  const uint64_t timestamp = barrier->timestamp;
  CounterReadStruct_t* rec = nullptr;
  {
    const std::lock_guard<std::mutex> lock(countersMutex);
    rec = findRecord(tableId);
    if (rec != nullptr && rec->pendingBarrier != 0) {
      storeFenced(rec->nextBarrier, timestamp);
      return;
    }
    if (rec != nullptr) {
      storeFenced(rec->pendingBarrier, timestamp);
      storeFenced(rec->nextBarrier, 0);
      ++syncStates[rec].uses;
    }
  }
  if (rec == nullptr) {
    answerBarrier(replySocket, timestamp);
    return;
  }
  const jx_status_t jx_status = requestSync(rec);
  PARTNER_CHECK(jx_status == JX_SUCCESS, "Cannot request periodic counter-sync on table: ", tableId,
                " with barrier sync");
}

bool PeriodicHybridCounterUpdate() {
  for (CounterReadStruct_t* const rec : recordsToSync()) {
    const uint32_t tableId = rec->tableId;
    const jx_status_t jx_status = requestSync(rec);
    PARTNER_CHECK(jx_status == JX_SUCCESS,
                  "Cannot request periodic counter-sync on table: ", tableId);
  }
  return true;
}

bool PeriodicHybridCounterUpdateModel() {
  for (CounterReadStruct_t* const rec : recordsToSync()) {
    // The first sync may come back, and a stopped record go, before the second is asked for.
    const uint32_t tableId = rec->tableId;
    const jx_rt_table_hdl* const table = rec->table;
    const jx_rt_target_t target = rec->target;
    jx_rt_session_hdl* const session = rec->session;
    jx_status_t jx_status = requestSync(rec);
    PARTNER_CHECK(jx_status == JX_SUCCESS,
                  "Cannot request periodic counter-sync on table: ", tableId);
    jx_status = registerCounterSyncCallback(target, session, tableId, table, nullptr, nullptr);
    PARTNER_CHECK(jx_status == JX_SUCCESS,
                  "Cannot request periodic counter-sync on table: ", tableId);
  }
  return true;
}

}  // namespace PartnerLib

extern "C" void counter_sync_callback(jx_rt_target_t* target, void* cookie) {
  static_cast<void>(target);
  auto* rec = static_cast<PartnerLib::CounterReadStruct_t*>(cookie);
  PartnerLib::processCounterRead(rec);
  const std::lock_guard<std::mutex> lock(PartnerLib::countersMutex);
  PartnerLib::endUse(rec);
}
