#include "JexPartnerLib.h"

#include <cstring>

#include "JexPartnerLibClient.h"
#include "JexPartnerLibMatchTypes.h"
#include "JexPartnerLibServer.h"
#include "JexPartnerLibSocket.h"
#include "JexPartnerLibStop.h"
#include "JexPartnerLibWire.h"

using PartnerLib::pMessage;
using PartnerLib::pSocket;

extern "C" bool PartnerLibStartup(const jxrt::JxRtSession& session, jx_rt_target_t target,
                                  jx_dev_type_t dev_type, jx_device_profile_t* profile) {
  return PartnerLib::PartnerLibSetup(session, target, dev_type, profile);
}

extern "C" void PartnerLibShutdown(jx_dev_id_t dev) {
  const jx_status_t rc = jx_device_remove(dev);
  PARTNER_REQUIRE(rc == JX_SUCCESS, "rc == JX_SUCCESS",
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
  const jxrt::JxRtInfo* info = nullptr;
  const jx_status_t jx_status = jxrt::JxRtDevMgr::getInstance().jxRtInfoGet(dev, p4Name, &info);
  PARTNER_REQUIRE(jx_status == JX_SUCCESS, "jx_status == JX_SUCCESS",
                  "Unable to get any jxrtInfo for ", p4Name, " returns: ", jx_status);
  const jxrt::JxRtTable* table = nullptr;
  if (info != nullptr) {
    info->tableFromNameGet(tableName, &table);
  }
  return table;
}

void sendPing() {
  const PartnerLib::PartnerMsgHeader_t ping = {
      PartnerLib::MSG_PING, static_cast<uint32_t>(PartnerLib::myPid), sizeof(ping)};
  pSocket->send(&ping, sizeof(ping));
}

void processClientMessageFromSocket(void* buf, int nbytes, PartnerLib::PartnerSocket* socket) {
  static_cast<void>(nbytes);
  static_cast<void>(socket);
  const uint8_t kind = *static_cast<const uint8_t*>(buf);
  switch (kind) {
    case PartnerLib::HEARTBEAT_NOTIFY:
      sendPing();
      return;
    case 0:    // idle-timeout notification
    case 1:    // digest notification
    case 254:  // barrier reply
      // The end of the dispatch for records whose handlers have not arrived yet.
      PARTNER_STOP("false", "No handler yet for Notify msg kind: ", static_cast<unsigned>(kind));
    default:
      PARTNER_STOP("false", "mismatch Notify msg size server and client. type: ",
                   std::string(1, static_cast<char>(kind)));
  }
}
