#include "JexPartnerLib.h"

#include <concurrentqueue/concurrentqueue.h>

#include <algorithm>
#include <boost/bimap.hpp>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <stdexcept>
#include <vector>

#include "JexPartnerLibClient.h"
#include "JexPartnerLibCounter.h"
#include "JexPartnerLibMatchTypes.h"
#include "JexPartnerLibServer.h"
#include "JexPartnerLibSocket.h"
#include "JexPartnerLibStop.h"
#include "JexPartnerLibWire.h"

using PartnerLib::CounterShm;
using PartnerLib::getEpochTime;
using PartnerLib::pMessage;
using PartnerLib::pSocket;
using PartnerLib::StopPlace;
using PartnerLib::storeFenced;
using NotifyQueue = moodycamel::ConcurrentQueue<void*>;

namespace {

/// A text that the caller has to give.
std::string givenText(const char* text) {
  if (text == nullptr) throw std::logic_error("basic_string::_M_construct null not valid");
  return text;
}

uint64_t loadFenced(const uint64_t& variable) {
  return __atomic_load_n(&variable, __ATOMIC_SEQ_CST);
}

/// The program `p4Name` of device `dev`.
const jxrt::JxRtInfo* findProgram(uint8_t dev, const std::string& p4Name, const StopPlace& place) {
  const jxrt::JxRtInfo* info = nullptr;
  const jx_status_t jx_status = jxrt::JxRtDevMgr::getInstance().jxRtInfoGet(dev, p4Name, &info);
  PARTNER_CHECK_AT(place, jx_status == JX_SUCCESS, "Unable to get any jxrtInfo for ", p4Name,
                   " returns: ", jx_status);
  return info;
}

/// A request of this process, zero behind its header.
template <typename Message>
Message newRequest(PartnerLib::PartnerMsgType type, int pid = PartnerLib::myPid) {
  Message message = {};
  message.header = {type, static_cast<uint32_t>(pid), sizeof(message)};
  return message;
}

}  // namespace

extern "C" bool PartnerLibStartup(const jxrt::JxRtSession& session, jx_rt_target_t target,
                                  jx_dev_type_t dev_type, jx_device_profile_t* profile) {
  return PartnerLib::PartnerLibSetup(session, target, dev_type, profile);
}

extern "C" void PartnerLibShutdown(jx_dev_id_t dev) {
  const jx_status_t rc = jx_device_remove(dev);
  PARTNER_CHECK(rc == JX_SUCCESS,
                "Failed to add virtual device returns: ", PartnerLib::statusText(rc));
  delete pMessage;
  pMessage = nullptr;
  if (pSocket != nullptr) {
    pSocket->shutdown(true);
    delete pSocket;
    pSocket = nullptr;
  }
}

const jxrt::JxRtTable* findJxRtTableFromName(uint8_t dev, std::string p4Name,
                                             std::string tableName) {
  const jxrt::JxRtInfo* const info = findProgram(dev, p4Name, PARTNER_HERE);
  const jxrt::JxRtTable* table = nullptr;
  if (info != nullptr) info->tableFromNameGet(tableName, &table);
  return table;
}

void sendPing() {
  const PartnerLib::PartnerMsgHeader_t ping = {
      PartnerLib::MSG_PING, static_cast<uint32_t>(PartnerLib::myPid), sizeof(ping)};
  // While a ping waits for room the receive thread goes on receiving. A heartbeat that it takes
  // meanwhile is answered after the ping that waits, by the call that sends that one.
  static thread_local uint64_t owed = 0;
  if (++owed > 1) return;
  for (; owed > 0; --owed) pSocket->send(&ping, sizeof(ping));
}

// ---- counters ---------------------------------------------------------------------------------

std::unordered_map<uint32_t, CounterHandleStruct*>& partnerCounterMap =
    *new std::unordered_map<uint32_t, CounterHandleStruct*>;

void sendEnableCounters(jx_rt_target_t target, const char* programName, uint32_t tableId,
                        bool enable) {
  auto msg = newRequest<PartnerLib::CounterConfigMsg_t>(PartnerLib::MSG_COUNTER_CONFIG);
  msg.config.tableId = tableId;
  msg.config.enable = enable ? 1 : 0;
  msg.config.pipeId = target.pipe_id;
  memcpy(msg.config.programName, programName, sizeof(msg.config.programName));
  pSocket->send(&msg, sizeof(msg));
}

extern "C" bool PartnerCounterInit(const char* programName, const char* tableName,
                                   jx_rt_target_t target, jx_rt_session_hdl* session,
                                   void** handle) {
  using boost::interprocess::managed_shared_memory;
  const jxrt::JxRtTable* table = findJxRtTableFromName(
      static_cast<uint8_t>(target.dev_id), givenText(programName), givenText(tableName));
  PARTNER_REQUIRE(table != nullptr, "table != NULL", "Cannot find table: ", tableName);
  uint32_t tableId = 0;
  const jx_status_t jx_status = table->tableIdGet(&tableId);
  PARTNER_CHECK(jx_status == JX_SUCCESS, "Cannot get table id for table ", tableId);
  const auto started = partnerCounterMap.find(tableId);
  if (started != partnerCounterMap.end()) return started->second != nullptr;

  if (CounterShm::segment == nullptr) {
    boost::interprocess::shared_memory_object::remove(CounterShm::kName);
    CounterShm::segment = new managed_shared_memory(
        boost::interprocess::open_or_create, CounterShm::kName, CounterShm::kSize, nullptr,
        boost::interprocess::permissions(CounterShm::kPermissions));
  }
  size_t size = 0;
  table->tableSizeGet(*jxrt::JxRtSession::fromHandle(session), target, 0, &size);
  const std::string name = CounterShm::blockName(tableId);
  auto* const ptr = CounterShm::segment->construct<unsigned char>(
      name.c_str())[CounterShm::blockBytes(size)](static_cast<unsigned char>(0));
  PARTNER_CHECK(ptr != nullptr, "Cannot allocate block of counters", name);

  auto* const counter = new CounterHandleStruct();
  counter->tableId = tableId;
  counter->block = ptr;
  counter->counters = ptr + sizeof(PartnerLib::CounterBlockHeader_t);
  counter->target = target;
  memcpy(counter->programName, programName, sizeof(counter->programName));
  const auto res = partnerCounterMap.insert({tableId, counter});
  PARTNER_REQUIRE(res.second, "res.second == true", "Cannot insert counter struct");
  sendEnableCounters(target, programName, tableId, true);
  *handle = counter;
  return true;
}

extern "C" bool PartnerCounterRead(PartnerCounterTableHandle handle, uint32_t first, uint32_t count,
                                   void* out, uint64_t* timestamp) {
  const auto* counter = static_cast<const CounterHandleStruct*>(handle);
  if (counter->counters == nullptr) return false;
  memcpy(out, counter->counters + first * sizeof(PartnerCounterEntry),
         count * sizeof(PartnerCounterEntry));
  memcpy(timestamp, counter->block + offsetof(PartnerLib::CounterBlockHeader_t, lastReadTime),
         sizeof(*timestamp));
  return true;
}

extern "C" void PartnerCounterFree(PartnerCounterTableHandle handle) {
  const auto* counter = static_cast<const CounterHandleStruct*>(handle);
  const uint32_t tableId = counter->tableId;
  sendEnableCounters(counter->target, counter->programName, tableId, false);
  if (CounterShm::segment != nullptr)
    CounterShm::segment->destroy<unsigned char>(CounterShm::blockName(tableId).c_str());
  const auto found = partnerCounterMap.find(tableId);
  PARTNER_REQUIRE(found != partnerCounterMap.end(), "false",
                  "Cannot find counter handle in map to delete");
  delete found->second;
  partnerCounterMap.erase(found);
}

// ---- barriers ---------------------------------------------------------------------------------

uint64_t requestedTime = 0;
uint64_t lastResponse = 0;
uint64_t maxProcTime = 0;
uint64_t latencyBins[32] = {};

namespace {

constexpr uint32_t kLatencyBins = sizeof(latencyBins) / sizeof(latencyBins[0]);
constexpr uint64_t kLatencyBinMs = 5;
/// How much later the second of a double barrier is stamped, so that the replies differ.
constexpr uint64_t kDoubleBarrierMs = 10;

uint64_t sendBarrierFor(uint32_t tableId) {
  const uint64_t t = getEpochTime();
  sendBarrier(tableId, t, PartnerLib::myPid);
  storeFenced(requestedTime, t);
  return t;
}

void barrierAnswered(const void* buf, int nbytes) {
  PartnerLib::BarrierReply_t reply = {};
  memcpy(&reply, buf, std::min(static_cast<size_t>(nbytes), sizeof(reply)));
  storeFenced(lastResponse, reply.timestamp);
  // A barrier that the application sends meanwhile stays the requested one.
  uint64_t answered = reply.timestamp;
  __atomic_compare_exchange_n(&requestedTime, &answered, 0, false, __ATOMIC_SEQ_CST,
                              __ATOMIC_SEQ_CST);
  __atomic_thread_fence(__ATOMIC_SEQ_CST);
  const uint64_t delta = getEpochTime() - reply.timestamp;
  const auto q = static_cast<int32_t>(delta / kLatencyBinMs);
  const int32_t index = q == 0 ? 0 : std::min(q, static_cast<int32_t>(kLatencyBins)) - 1;
  storeFenced(latencyBins[index], latencyBins[index] + 1);
  if (delta > maxProcTime) storeFenced(maxProcTime, delta);
}

}  // namespace

extern "C" void sendBarrier(uint32_t tableId, uint64_t timestamp, int pid) {
  auto msg = newRequest<PartnerLib::BarrierMsg_t>(PartnerLib::MSG_BARRIER, pid);
  msg.barrier.tableId = tableId;
  msg.barrier.timestamp = timestamp;
  pSocket->send(&msg, sizeof(msg));
}

extern "C" uint64_t PartnerGetTimestamp(void) { return getEpochTime(); }

extern "C" uint64_t PartnerBarrierSend(void) { return sendBarrierFor(0); }

extern "C" uint64_t PartnerBarrierSendWithCounterSync(PartnerCounterTableHandle handle) {
  return sendBarrierFor(static_cast<const CounterHandleStruct*>(handle)->tableId);
}

extern "C" uint64_t PartnerBarrierSendWithCounterSyncDouble(PartnerCounterTableHandle handle) {
  const uint32_t tableId =
      handle == nullptr ? 0 : static_cast<const CounterHandleStruct*>(handle)->tableId;
  const uint64_t t = getEpochTime();
  sendBarrier(tableId, t, PartnerLib::myPid);
  sendBarrier(tableId, t + kDoubleBarrierMs, PartnerLib::myPid);
  storeFenced(requestedTime, t + kDoubleBarrierMs);
  return t + kDoubleBarrierMs;
}

extern "C" uint64_t PartnerBarrierGetLastComplete(void) { return loadFenced(lastResponse); }

extern "C" uint64_t PartnerBarrierGetMaxProcTime(uint32_t* binCount, uint64_t** bins) {
  *binCount = kLatencyBins;
  *bins = latencyBins;
  return loadFenced(maxProcTime);
}

// ---- notification queues ----------------------------------------------------------------------

namespace {

/// Guards the registry: queues may be created and destroyed by several threads.
std::mutex queuesMutex;
/// Names and their queues, owned. Never destroyed: an application's threads may go on while exit()
/// runs.
boost::bimaps::bimap<std::string, PartnerNotificationQueueHandle>& PartnerNotificationQueue =
    *new boost::bimaps::bimap<std::string, PartnerNotificationQueueHandle>;

}  // namespace

extern "C" bool PartnerNotificationQueueCreate(const char* name, size_t size, void** handle) {
  const std::string text = givenText(name);
  const std::lock_guard<std::mutex> lock(queuesMutex);
  const auto found = PartnerNotificationQueue.left.find(text);
  if (found != PartnerNotificationQueue.left.end()) {
    *handle = found->second;
    return true;
  }
  *handle = new NotifyQueue(size);
  const auto res = PartnerNotificationQueue.insert({text, *handle});
  PARTNER_REQUIRE(res.second, "res.second == true", "Cannot save queue: ", text);
  return true;
}

extern "C" moodycamel::ProducerToken* PartnerNotificationQueueCreateToken(void* queue) {
  auto token = std::unique_ptr<moodycamel::ProducerToken>(
      new (std::nothrow) moodycamel::ProducerToken(*static_cast<NotifyQueue*>(queue)));
  // A token without a producer behind it would be found out only when something is enqueued.
  return token != nullptr && token->valid() ? token.release() : nullptr;
}

extern "C" void PartnerNotificationQueueDeleteToken(moodycamel::ProducerToken* token) {
  delete token;
}

extern "C" size_t PartnerNotificationQueueTryDequeue(void* queue, void** values, size_t maxCount) {
  return static_cast<NotifyQueue*>(queue)->try_dequeue_bulk(values, maxCount);
}

extern "C" void PartnerNotificationQueueValuesFree(void** values, size_t count) {
  for (size_t i = 0; i < count; ++i) delete[] static_cast<uint8_t*>(values[i]);
}

extern "C" bool PartnerNotificationQueueDestroy(void* queue) {
  const std::lock_guard<std::mutex> lock(queuesMutex);
  PartnerNotificationQueue.right.erase(queue);
  delete static_cast<NotifyQueue*>(queue);
  return true;
}

// ---- registrations ----------------------------------------------------------------------------

std::unordered_map<uint32_t, std::unique_ptr<NotifyRegStruct>>& partnerNotificationQueueMap =
    *new std::unordered_map<uint32_t, std::unique_ptr<NotifyRegStruct>>;
std::unordered_map<uint32_t, std::unique_ptr<DigestNotifyRegStruct>>&
    partnerDigestNotificationQueueMap =
        *new std::unordered_map<uint32_t, std::unique_ptr<DigestNotifyRegStruct>>;

namespace {

/// Guards both maps, and the registrations while the receive thread uses one.
std::mutex registrationsMutex;

/// Gives a registration up; its entry in the map stays, empty.
template <typename Registrations>
void giveUpRegistration(Registrations* registrations, uint32_t id) {
  const std::lock_guard<std::mutex> lock(registrationsMutex);
  const auto found = registrations->find(id);
  if (found != registrations->end() && found->second != nullptr) {
    PartnerNotificationQueueDeleteToken(found->second->token);
    found->second.reset();
  }
}

template <typename Registration>
bool saveRegistration(std::unordered_map<uint32_t, std::unique_ptr<Registration>>* registrations,
                      uint32_t id, const Registration& registration) {
  const std::lock_guard<std::mutex> lock(registrationsMutex);
  return registrations->try_emplace(id, std::make_unique<Registration>(registration)).second;
}

void copyName(char (&field)[PARTNER_PROGRAM_NAME_BYTES], const char* name) {
  snprintf(field, sizeof(field), "%s", name);
}

/// Lets the entries of a table of the virtual device age, told to nobody: the reports come from the
/// SliceAgent's.
void setTableIdleTimeoutCallback(const jxrt::JxRtTable& table, const jx_rt_target_t& target,
                                 jx_rt_session_hdl* session, uint32_t ttlQueryInterval,
                                 uint32_t maxTtl, uint32_t minTtl, const char* tableName) {
  std::unique_ptr<jxrt::JxRtTableAttributes> attributes;
  jx_status_t status = table.idleTableAttributesAllocate(JX_RT_IDLE_MODE_NOTIFY, &attributes);
  PARTNER_CHECK(status == JX_SUCCESS, "Cannot allocate attribute for table: ", tableName);
  status = attributes->idleTableNotifyModeSet(true, dummyHlpIdletimeCallback, ttlQueryInterval,
                                              maxTtl, minTtl, nullptr);
  PARTNER_CHECK(status == JX_SUCCESS, "Unable to set the Idle table Notify on table: ", tableName);
  status =
      table.tableAttributesSet(*jxrt::JxRtSession::fromHandle(session), target, 0, *attributes);
  PARTNER_CHECK(status == JX_SUCCESS, "Cannot set table attribute for table: ", tableName,
                " status: ", PartnerLib::statusText(status));
}

}  // namespace

extern "C" jx_status_t dummyHlpIdletimeCallback(const jx_rt_target_t& target,
                                                const jxrt::JxRtTableKey* key, const void* cookie) {
  static_cast<void>(target);
  static_cast<void>(key);
  static_cast<void>(cookie);
  return JX_SUCCESS;
}

extern "C" void sendEnableIdleNotifications(jx_rt_target_t target, const char* p4Name,
                                            unsigned tableId, unsigned ttlQueryInterval,
                                            unsigned maxTtl, unsigned minTtl, bool enable) {
  auto msg = newRequest<PartnerLib::IdleConfigMsg_t>(PartnerLib::MSG_IDLE_CONFIG);
  msg.config.tableId = tableId;
  copyName(msg.config.p4Name, p4Name);
  msg.config.pipeId = target.pipe_id;
  msg.config.ttlQueryInterval = ttlQueryInterval;
  msg.config.maxTtl = maxTtl;
  msg.config.minTtl = minTtl;
  msg.config.enable = enable ? 1 : 0;
  pSocket->send(&msg, sizeof(msg));
}

extern "C" bool PartnerRegisterIdleNotification(const char* p4Name, const char* tableName,
                                                uint32_t ttlQueryInterval, uint32_t maxTtl,
                                                uint32_t minTtl, jx_rt_target_t target,
                                                jx_rt_session_hdl* session,
                                                PartnerNotificationQueueHandle queue) {
  const jxrt::JxRtTable* table = findJxRtTableFromName(static_cast<uint8_t>(target.dev_id),
                                                       givenText(p4Name), givenText(tableName));
  PARTNER_REQUIRE(table != nullptr, "table != NULL", "Cannot find table: ", tableName);
  uint32_t table_id = 0;
  PARTNER_REQUIRE(table->tableIdGet(&table_id) == JX_SUCCESS,
                  "table->tableIdGet( &table_id ) == JX_SUCCESS", "Cannot get table id");
  setTableIdleTimeoutCallback(*table, target, session, ttlQueryInterval, maxTtl, minTtl, tableName);
  moodycamel::ProducerToken* const token = PartnerNotificationQueueCreateToken(queue);
  PARTNER_CHECK(token != nullptr, "Cannot create client queue");
  PARTNER_REQUIRE(saveRegistration(&partnerNotificationQueueMap, table_id,
                                   NotifyRegStruct{queue, token, session, table}),
                  "res.second == true", "Cannot insert into map table->notify reg");
  sendEnableIdleNotifications(target, p4Name, table_id, ttlQueryInterval, maxTtl, minTtl, true);
  return true;
}

extern "C" bool PartnerDeregisterIdleNotification(const char* p4Name, const char* tableName,
                                                  jx_rt_target_t target) {
  const jxrt::JxRtTable* table = findJxRtTableFromName(static_cast<uint8_t>(target.dev_id),
                                                       givenText(p4Name), givenText(tableName));
  PARTNER_REQUIRE(table != nullptr, "table != NULL", "Cannot find table: ", tableName);
  uint32_t table_id = 0;
  PARTNER_REQUIRE(table->tableIdGet(&table_id) == JX_SUCCESS,
                  "table->tableIdGet( &table_id ) == JX_SUCCESS", "Cannot get table id");
  sendEnableIdleNotifications(target, p4Name, table_id, 0, 0, 0, false);
  giveUpRegistration(&partnerNotificationQueueMap, table_id);
  return false;
}

extern "C" jxrt::JxRtLearn* findJxRtLearnFromName(uint8_t dev, std::string p4Name,
                                                  std::string learnName) {
  const jxrt::JxRtInfo* const info = findProgram(dev, p4Name, PARTNER_HERE);
  jxrt::JxRtLearn* learn = nullptr;
  if (info != nullptr) info->learnFromNameGet(learnName, &learn);
  return learn;
}

extern "C" void sendEnableDigestNotifications(jx_rt_target_t target, const char* p4Name,
                                              unsigned learnId, unsigned size, bool enable) {
  auto msg = newRequest<PartnerLib::DigestConfigMsg_t>(PartnerLib::MSG_DIGEST_CONFIG);
  msg.config.learnId = learnId;
  msg.config.pipeId = target.pipe_id;
  copyName(msg.config.p4Name, p4Name);
  msg.config.size = size;
  msg.config.enable = enable ? 1 : 0;
  pSocket->send(&msg, sizeof(msg));
}

extern "C" bool PartnerRegisterDigestNotification(const char* p4Name, const char* digestName,
                                                  jx_rt_target_t target, jx_rt_session_hdl* session,
                                                  PartnerNotificationQueueHandle queue) {
  const jxrt::JxRtLearn* learn = findJxRtLearnFromName(static_cast<uint8_t>(target.dev_id),
                                                       givenText(p4Name), givenText(digestName));
  PARTNER_REQUIRE(learn != nullptr, "learn != NULL", "Cannot find digest: ", digestName);
  uint32_t learn_id = 0;
  PARTNER_REQUIRE(learn->learnIdGet(&learn_id) == JX_SUCCESS,
                  "learn->learnIdGet( &learn_id ) == JX_SUCCESS",
                  "Cannot get learn id: ", digestName);
  std::vector<uint32_t> fields;
  jx_status_t status = learn->learnFieldIdListGet(&fields);
  PARTNER_CHECK(status == JX_SUCCESS, "Cannot get learn field list for ", digestName);
  size_t totalBits = 0;
  for (const uint32_t field : fields) {
    size_t bits = 0;
    status = learn->learnFieldSizeGet(field, &bits);
    PARTNER_CHECK(status == JX_SUCCESS, "Cannot get learn field sizes for ", digestName);
    totalBits += bits;
  }
  moodycamel::ProducerToken* const token = PartnerNotificationQueueCreateToken(queue);
  PARTNER_CHECK(token != nullptr, "Cannot create client queue for ", digestName);
  PARTNER_REQUIRE(saveRegistration(&partnerDigestNotificationQueueMap, learn_id,
                                   DigestNotifyRegStruct{queue, token, session, learn}),
                  "res.second == true", "Cannot insert into map digest->notify reg for ",
                  digestName);
  sendEnableDigestNotifications(target, p4Name, learn_id, static_cast<unsigned>(totalBits), true);
  return true;
}

extern "C" bool PartnerDeregisterDigestNotification(const char* p4Name, const char* digestName,
                                                    jx_rt_target_t target) {
  const jxrt::JxRtLearn* learn = findJxRtLearnFromName(static_cast<uint8_t>(target.dev_id),
                                                       givenText(p4Name), givenText(digestName));
  PARTNER_REQUIRE(learn != nullptr, "learn != NULL", "Cannot find digest: ", digestName);
  uint32_t learn_id = 0;
  PARTNER_REQUIRE(learn->learnIdGet(&learn_id) == JX_SUCCESS,
                  "learn->learnIdGet( &learn_id ) == JX_SUCCESS", "Cannot get learn id for ",
                  digestName);
  sendEnableDigestNotifications(target, p4Name, learn_id, 0, false);
  giveUpRegistration(&partnerDigestNotificationQueueMap, learn_id);
  return true;
}

// ---- the receiver -----------------------------------------------------------------------------

namespace {

/// Puts what `makeCopy` returns into the queue of the registration of `id`. Does nothing where that
/// has been given up. Stops are made at `place`, where there never was a registration (the texts
/// are `unknown` and the id) or no memory for the queue (`refused`).
template <typename Registrations, typename MakeCopy>
void deliver(const Registrations& registrations, uint32_t id, const MakeCopy& makeCopy,
             const char* unknown, const char* refused, const StopPlace& place) {
  // Held while the registration is used, so that nobody can give it up meanwhile.
  const std::lock_guard<std::mutex> lock(registrationsMutex);
  const auto found = registrations.find(id);
  PARTNER_REQUIRE_AT(place, found != registrations.end(), "false", unknown, id);
  if (found->second == nullptr) return;
  auto* const queue = static_cast<NotifyQueue*>(found->second->queue);
  const bool ok = queue->enqueue(*found->second->token, makeCopy());
  PARTNER_REQUIRE_AT(place, ok, "ok == true", refused);
}

void receiveIdle(const void* buf, int nbytes, const StopPlace& place) {
  PARTNER_REQUIRE_AT(place, nbytes == sizeof(PartnerIdleNotify),
                     "nbytes == sizeof( PartnerIdleNotify )", " Incorrect Idle message from Slice");
  PartnerIdleNotify notify;
  memcpy(&notify, buf, sizeof(notify));
  const auto copy = [&notify] {
    auto* const bytes = new uint8_t[sizeof(notify)];
    memcpy(bytes, &notify, sizeof(notify));
    return bytes;
  };
  deliver(partnerNotificationQueueMap, notify.tableId, copy,
          "Cannot find table in notify map: ", "Cannot enqueue notify msg", place);
}

/// A copy of a digest as long as it says it is. What the message does not hold of it is zero.
uint8_t* copyDigest(const void* buf, size_t nbytes) {
  PartnerDigestNotify notify;
  memcpy(&notify, buf, sizeof(notify));
  const size_t length = std::max<size_t>(notify.length, sizeof(notify));
  notify.valueSize = static_cast<uint32_t>(length - sizeof(notify));
  auto* const copy = new uint8_t[length];
  memcpy(copy, &notify, sizeof(notify));
  const size_t held = std::min(length, nbytes) - sizeof(notify);
  memcpy(copy + sizeof(notify), static_cast<const uint8_t*>(buf) + sizeof(notify), held);
  memset(copy + sizeof(notify) + held, 0, length - sizeof(notify) - held);
  return copy;
}

void receiveDigest(const void* buf, int nbytes, const StopPlace& place) {
  PARTNER_REQUIRE_AT(place, nbytes >= static_cast<int>(sizeof(PartnerDigestNotify)),
                     "( nbytes >= ( int )sizeof( PartnerDigestNotify ) )",
                     "Incorrect digest message from Slice");
  uint32_t learnId = 0;
  memcpy(&learnId, static_cast<const uint8_t*>(buf) + offsetof(PartnerDigestNotify, learnId),
         sizeof(learnId));
  const auto copy = [buf, nbytes] { return copyDigest(buf, static_cast<size_t>(nbytes)); };
  deliver(partnerDigestNotificationQueueMap, learnId, copy,
          "Cannot find table in digest notify map: ", "Cannot enqueue digest notify msg", place);
}

}  // namespace

void processClientMessageFromSocket(void* buf, int nbytes, PartnerLib::PartnerSocket* socket) {
  static_cast<void>(socket);
  const uint8_t kind = *static_cast<const uint8_t*>(buf);
  switch (kind) {
    case PARTNER_NOTIFY_IDLE:
      receiveIdle(buf, nbytes, PARTNER_HERE);
      return;
    case PARTNER_NOTIFY_DIGEST:
      receiveDigest(buf, nbytes, PARTNER_HERE);
      return;
    case PartnerLib::kBarrierNotify:
      barrierAnswered(buf, nbytes);
      return;
    case PartnerLib::HEARTBEAT_NOTIFY:
      sendPing();
      return;
    default:
      PARTNER_STOP("false", "mismatch Notify msg size server and client. type: ",
                   std::string(1, static_cast<char>(kind)));
  }
}
