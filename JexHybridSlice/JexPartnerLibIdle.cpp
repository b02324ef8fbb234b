#include "JexPartnerLibIdle.h"

#include <cstring>
#include <memory>
#include <string>

#include "JexPartnerLibMatchTypes.h"
#include "JexPartnerLibShared.h"
#include "JexPartnerLibSocket.h"
#include "JexPartnerLibStop.h"
#include "JexPartnerLibWire.h"

namespace PartnerLib {

std::unordered_map<uint32_t, NotifyCookieStruct*>& notifyCallbackMap =
    *new std::unordered_map<uint32_t, NotifyCookieStruct*>;

namespace {

/// What the attributes of an idle table are set with.
constexpr uint64_t kIdleAttributeFlags = 16;

void saveCookie(uint32_t key, NotifyCookieStruct* cookie, const StopPlace& place) {
  const auto res = notifyCallbackMap.insert({key, cookie});
  PARTNER_REQUIRE_AT(place, res.second, "res.second == true", "Cannot insert notify cookie struct");
}

std::unique_ptr<NotifyCookieStruct> takeCookie(uint32_t key, const StopPlace& place) {
  const auto found = notifyCallbackMap.find(key);
  PARTNER_REQUIRE_AT(place, found != notifyCallbackMap.end(), "false",
                     "Cannot find notify cookie struct to delete");
  std::unique_ptr<NotifyCookieStruct> cookie(found->second);
  notifyCallbackMap.erase(found);
  return cookie;
}

}  // namespace

void idleDeserialize(uint8_t dev, uint32_t session, const void* payload, uint32_t nbytes,
                     int sendSocket) {
  static_cast<void>(nbytes);
  const auto* config = static_cast<const IdleConfigHeader_t*>(payload);
  jx_rt_session_hdl* const sessionHdl = jxrt::JxRtSession::sessionInstantiate(session, 0);
  setIdleTimeoutNotfications({dev, config->pipeId, 0, 0}, *config, sessionHdl, sendSocket,
                             (config->enable & 0xFF) != 0);
}

void setIdleTimeoutNotfications(jx_rt_target_t target, const IdleConfigHeader_t& config,
                                jx_rt_session_hdl* session, int sendSocket, bool enable) {
  const std::string p4Name = textOf(config.p4Name);
  const uint32_t tableId = config.tableId;
  const jx_rt_info_hdl* info = nullptr;
  jx_status_t status = jx_rt_info_get(target.dev_id, p4Name.c_str(), &info);
  PARTNER_CHECK(status == JX_SUCCESS, "Cannot find p4 program: ", p4Name);
  const jx_rt_table_hdl* table = nullptr;
  status = jx_rt_table_from_id_get(info, tableId, &table);
  PARTNER_CHECK(status == JX_SUCCESS, "Cannot find table with id: ", tableId);

  const uint32_t key = notifyKey(sendSocket, tableId);
  NotifyCookieStruct* cookie = nullptr;
  // The SDK may be reporting with a given-up cookie until the table has been disarmed.
  std::unique_ptr<NotifyCookieStruct> givenUp;
  if (enable) {
    cookie = new NotifyCookieStruct{sendSocket, table, tableId};
    saveCookie(key, cookie, PARTNER_HERE);
  } else {
    givenUp = takeCookie(key, PARTNER_HERE);
  }

  jx_rt_table_attributes_hdl* attr = nullptr;
  status = jx_rt_table_idle_table_attributes_allocate(table, JX_RT_IDLE_MODE_NOTIFY, &attr);
  PARTNER_CHECK(status == JX_SUCCESS, "Cannot allocate idle table attrib");
  status = jx_rt_attributes_idle_table_notify_mode_set(attr, enable, idletime_c_callback,
                                                       config.ttlQueryInterval, config.maxTtl,
                                                       config.minTtl, cookie);
  PARTNER_CHECK(status == JX_SUCCESS, "Cannot set idle notify attrib");
  status = jx_rt_table_attributes_set(table, session, &target, kIdleAttributeFlags, attr);
  PARTNER_CHECK(status == JX_SUCCESS,
                "Cannot set idle notify attrib on table. status: ", jxStatusError(status));
  jx_rt_table_attributes_deallocate(attr);
}

}  // namespace PartnerLib

extern "C" jx_status_t idletime_c_callback(jx_rt_target_t* target, const jx_rt_table_key_hdl* key,
                                           void* cookie) {
  const auto* notifyCookie = static_cast<const PartnerLib::NotifyCookieStruct*>(cookie);
  PartnerIdleNotify notify = {};
  notify.type = PARTNER_NOTIFY_IDLE;
  notify.devId = static_cast<uint8_t>(target->dev_id);
  notify.tableId = notifyCookie->tableId;
  // The SDK keeps an entry's handle in the first word of its key.
  memcpy(&notify.entryKey, key, sizeof(notify.entryKey));
  notify.time = PartnerLib::getEpochTime();
  PARTNER_REQUIRE(notifyCookie->sendSocket >= 0,
                  "( ( NotifyCookieStruct * )cookie )->sendSocket >= 0",
                  "Invalid SliceAgent Send socket");
  PartnerLib::socketSend(notifyCookie->sendSocket, &notify, sizeof(notify));
  return JX_SUCCESS;
}
