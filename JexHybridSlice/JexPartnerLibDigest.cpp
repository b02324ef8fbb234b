#include "JexPartnerLibDigest.h"

#include <array>
#include <cstring>
#include <numeric>
#include <string>
#include <utility>

#include "JexPartnerLibIdle.h"
#include "JexPartnerLibMatchTypes.h"
#include "JexPartnerLibShared.h"
#include "JexPartnerLibSocket.h"
#include "JexPartnerLibStop.h"
#include "JexPartnerLibWire.h"

namespace PartnerLib {

std::unordered_map<uint32_t, DigestNotifyCookieStruct*>& digestCallbackMap =
    *new std::unordered_map<uint32_t, DigestNotifyCookieStruct*>;

namespace {

/// The session of all learn callbacks, made when it is first needed and never destroyed: the SDK's
/// learn thread and the loop use it until the process has ended.
const std::shared_ptr<jxrt::JxRtSession>& learnSession() {
  static const auto& session =
      *new std::shared_ptr<jxrt::JxRtSession>(jxrt::JxRtSession::sessionCreate());
  return session;
}

/// The fields of a learn object, as they go into a record.
void listFields(DigestNotifyCookieStruct* cookie, const StopPlace& place) {
  PARTNER_REQUIRE_AT(place, cookie->learn->learnFieldIdListGet(&cookie->fieldIds) == JX_SUCCESS,
                     "jx_status == JX_SUCCESS", "Cannot get learn field list");
  for (const uint32_t id : cookie->fieldIds) {
    size_t bits = 0;
    PARTNER_REQUIRE_AT(place, cookie->learn->learnFieldSizeGet(id, &bits) == JX_SUCCESS,
                       "jx_status == JX_SUCCESS", "Cannot get learn field size");
    cookie->fieldSizes.push_back(static_cast<uint32_t>((bits + 7) / 8));
  }
}

void removeCookie(uint32_t key, const StopPlace& place) {
  const auto found = digestCallbackMap.find(key);
  PARTNER_REQUIRE_AT(place, found != digestCallbackMap.end(), "false",
                     "Cannot find digest notify cookie struct to delete");
  delete found->second;
  digestCallbackMap.erase(found);
}

/// Room for one record. The bound of PACK_BUFFER_SIZE does not see that fields of a few bits take a
/// byte each, so there are records that need more than the buffer on the stack.
class RecordBuffer {
 public:
  explicit RecordBuffer(size_t bytes) {
    if (bytes > fixed_.size()) bigger_.resize(bytes);
  }
  uint8_t* data() { return bigger_.empty() ? fixed_.data() : bigger_.data(); }

 private:
  std::array<uint8_t, PACK_BUFFER_SIZE> fixed_;
  std::vector<uint8_t> bigger_;
};

}  // namespace

void digestDeserialize(uint8_t dev, uint32_t session, const void* payload, uint32_t nbytes,
                       int sendSocket) {
  static_cast<void>(session);
  static_cast<void>(nbytes);
  const auto* config = static_cast<const DigestConfigHeader_t*>(payload);
  setDigestNotfications({dev, config->pipeId, 0, 0}, *config, sendSocket,
                        (config->enable & 0xFF) != 0);
}

void setDigestNotfications(jx_rt_target_t target, const DigestConfigHeader_t& config,
                           int sendSocket, bool enable) {
  const std::string p4Name = textOf(config.p4Name);
  const uint32_t learnId = config.learnId;
  const jxrt::JxRtInfo* jxRtInfo = nullptr;
  jx_status_t jx_status =
      jxrt::JxRtDevMgr::getInstance().jxRtInfoGet(target.dev_id, p4Name, &jxRtInfo);
  PARTNER_CHECK(jx_status == JX_SUCCESS && jxRtInfo != nullptr, "Cannot find p4 program");
  jxrt::JxRtLearn* learnObj = nullptr;
  jx_status = jxRtInfo->learnFromIdGet(learnId, &learnObj);
  PARTNER_CHECK(jx_status == JX_SUCCESS && learnObj != nullptr, "Cannot find learn object from id");

  const uint32_t key = notifyKey(sendSocket, learnId);
  if (enable) {
    auto cookie = std::make_unique<DigestNotifyCookieStruct>();
    cookie->sendSocket = sendSocket;
    cookie->learn = learnObj;
    cookie->learnId = learnId;
    cookie->size = config.size / 8;
    listFields(cookie.get(), PARTNER_HERE);
    const auto res = digestCallbackMap.insert({key, cookie.get()});
    PARTNER_REQUIRE(res.second, "res.second == true", "Cannot insert digest notify cookie struct");
    jx_status =
        learnObj->callbackRegister(learnSession(), target, learnCppCallback, cookie.release());
    PARTNER_CHECK(jx_status == JX_SUCCESS, "Cannot register digest callback for digest id");
  } else {
    // First: once this has returned, nobody uses the cookie.
    jx_status = learnObj->callbackDeregister(learnSession(), target);
    PARTNER_CHECK(jx_status == JX_SUCCESS, "Cannot deregister digest callback for digest id");
    removeCookie(key, PARTNER_HERE);
  }
}

jx_status_t learnCppCallback(const jx_rt_target_t& target,
                             std::shared_ptr<jxrt::JxRtSession> session,
                             std::vector<std::unique_ptr<jxrt::JxRtTableData>> data,
                             jx_rt_learn_msg_hdl* const learnMsg, const void* cookie) {
  const auto* notifyCookie = static_cast<const DigestNotifyCookieStruct*>(cookie);
  const uint32_t learnId = notifyCookie->learnId;
  PARTNER_REQUIRE((sizeof(PartnerDigestNotify) + notifyCookie->size) < PACK_BUFFER_SIZE,
                  "( ( sizeof( PartnerDigestNotify ) + notifyCookie->size ) < PACK_BUFFER_SIZE )",
                  "Digest too big for: ", learnId,
                  " got size of: ", notifyCookie->size + sizeof(PartnerDigestNotify),
                  " expecting atmost: ", PACK_BUFFER_SIZE);
  const std::vector<uint32_t>& sizes = notifyCookie->fieldSizes;
  const size_t length = std::accumulate(sizes.begin(), sizes.end(), sizeof(PartnerDigestNotify));
  RecordBuffer record(length);
  for (const auto& entry : data) {
    PartnerDigestNotify notify = {};
    notify.type = PARTNER_NOTIFY_DIGEST;
    notify.devId = static_cast<uint8_t>(target.dev_id);
    notify.length = static_cast<uint16_t>(length);
    notify.learnId = learnId;
    notify.time = getEpochTime();
    memcpy(record.data(), &notify, sizeof(notify));
    uint8_t* value = record.data() + sizeof(notify);
    for (size_t j = 0; j < sizes.size(); ++j) {
      const uint32_t fieldId = notifyCookie->fieldIds[j];
      const jx_status_t jx_status = entry->getValue(fieldId, sizes[j], value);
      PARTNER_CHECK(jx_status == JX_SUCCESS, "Cannot get learn field value id: ", learnId,
                    " fld: ", fieldId);
      value += sizes[j];
    }
    PARTNER_REQUIRE(notifyCookie->sendSocket >= 0, "( notifyCookie->sendSocket >= 0 )",
                    "Invalid SliceAgent Send socket");
    socketSend(notifyCookie->sendSocket, record.data(), length);
  }
  const jx_status_t jx_status = notifyCookie->learn->notifyAck(session, learnMsg);
  PARTNER_CHECK(jx_status == JX_SUCCESS, "Unable to Ack Learn with driver: ", learnId);
  return JX_SUCCESS;
}

}  // namespace PartnerLib
