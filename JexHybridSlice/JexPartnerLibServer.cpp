#include "JexPartnerLibServer.h"

#include <nanomsg/nn.h>
#include <nanomsg/pair.h>

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <vector>

#include "JexPartnerLibCounter.h"
#include "JexPartnerLibDigest.h"
#include "JexPartnerLibIdle.h"
#include "JexPartnerLibMatchCallback.h"
#include "JexPartnerLibMatchTable.h"
#include "JexPartnerLibMatchTypes.h"
#include "JexPartnerLibSocket.h"
#include "JexPartnerLibStop.h"
#include "JexPartnerLibWire.h"
#include "jxsdk/drv.h"
#include "jxsdk/pipe_mgr.h"

namespace PartnerLib {

std::unordered_map<int, int>& pidSocketMap = *new std::unordered_map<int, int>;

namespace {

/// Guards pidSocketMap; never held across a call into a socket.
std::mutex pidSocketMutex;

/// Whether the environment asks for test mode. What follows "true" does not matter.
bool testModeWanted() {
  const char* value = getenv("JEXPARTNER_TEST");
  return value != nullptr && strncmp(value, "true", strlen("true")) == 0;
}

/// MSG_REGISTER: connects to the address in the payload and enters the Partner's process id.
void registerPartner(uint32_t pid, const char* payload, size_t size, const StopPlace& place) {
  const int sock = nn_socket(AF_SP, NN_PAIR);
  if (sock < 0) return;
  boundSends(sock);
  // A payload without terminator ends where the message ends.
  const std::string address(payload, strnlen(payload, size));
  PARTNER_REQUIRE_AT(place, nn_connect(sock, address.c_str()) >= 0, "( endpoint >= 0 )",
                     "Cannot open socket for reverse path from server");
  const std::lock_guard<std::mutex> lock(pidSocketMutex);
  const auto res = pidSocketMap.insert({static_cast<int>(pid), sock});
  PARTNER_REQUIRE_AT(place, res.second, "res.second == true", "Cannot insert notify cookie struct");
}

/// One turn of the SliceAgent's loop: waits for a request and handles it.
void serveRequest(PartnerSocket* socket, PartnerMessage* message, uint8_t dev, uint32_t sessHdl,
                  int32_t timeout) {
  void* buf = nullptr;
  int nbytes = 0;
  if (socket->recvWithTimeout(&buf, &nbytes, timeout)) {
    message->deSerialize(dev, sessHdl, buf, static_cast<size_t>(nbytes));
    socket->freeBuffer(buf);
  }
}

}  // namespace

bool PartnerLibSetup(const jxrt::JxRtSession& session, jx_rt_target_t target,
                     jx_dev_type_t dev_type, jx_device_profile_t* profile) {
  const bool testMode = testModeWanted();
  if (!moduleInitDone) {
    PARTNER_CHECK(jx_drv_init() == JX_SUCCESS, "Cannot init driver");
    PARTNER_CHECK(pipe_mgr_init() == PIPE_SUCCESS, "Cannot init pipe_mgr");
    const jx_status_t rc = jx_rt_module_init(0, 0, nullptr, nullptr);
    PARTNER_CHECK(rc == JX_SUCCESS, "Failed to initialize JXRT returns: ", statusText(rc));
    moduleInitDone = true;
  }
  const jx_status_t rc = jx_virtual_device_add(target.dev_id, profile, dev_type);
  PARTNER_CHECK(rc == JX_SUCCESS, "Failed to add virtual device returns: ", statusText(rc));
  PARTNER_CHECK(pSocket == nullptr && pMessage == nullptr,
                "Already initialized the hybrid library");
  pSocket = new PartnerSocket(1);
  pMessage = new PartnerMessage(pSocket);
  PARTNER_REQUIRE(pSocket->init(DEFAULT_SOCKET_NAME, testMode),
                  "pSocket->init( DEFAULT_SOCKET_NAME, testMode ) == true", "Socket init Failed");
  callbackSetUp(session, target, *pMessage);
  return true;
}

bool PartnerLibServerSetup(jx_rt_session_hdl* session, uint8_t dev, int32_t timeout) {
  PartnerSocket socket(0);
  PartnerMessage message(&socket);
  PARTNER_REQUIRE(socket.init(DEFAULT_SOCKET_NAME, false),
                  "pSocket->init( DEFAULT_SOCKET_NAME, false ) == true", " Socket Init failed");
  const uint32_t sessHdl = jx_rt_session_pipe_handle_get(session);
  try {
    for (;;) serveRequest(&socket, &message, dev, sessHdl, timeout);
  } catch (const std::bad_alloc&) {
    PARTNER_STOP_WITHOUT_MEMORY("false", "Cannot handle a request: Cannot allocate memory");
  }
}

bool PartnerMessage::deSerialize(uint8_t dev, uint32_t sessHdl, const void* buf, size_t nbytes) {
  // A message too short for a header never has the length that it would have to say.
  PARTNER_REQUIRE(nbytes >= sizeof(PartnerMsgHeader_t), "nbytes == tl->len",
                  "Deserialize from socket msg size mismatch Exp: ", sizeof(PartnerMsgHeader_t),
                  " Got: ", nbytes);
  const auto* tl = static_cast<const PartnerMsgHeader_t*>(buf);
  const uint64_t len = tl->len;
  PARTNER_REQUIRE(nbytes == len, "nbytes == tl->len",
                  "Deserialize from socket msg size mismatch Exp: ", len, " Got: ", nbytes);
  const void* payload = tl + 1;
  const size_t size = nbytes - sizeof(PartnerMsgHeader_t);
  const auto pid = static_cast<int>(tl->pid);
  switch (tl->type) {
    case MSG_MATCH_TABLE:
      matchTableDeserialize(dev, sessHdl, payload, size);
      return true;
    case MSG_ADT:
      adtDeserialize(dev, sessHdl, payload, size);
      return true;
    case MSG_SEL:
      selDeserialize(dev, sessHdl, payload, size);
      return true;
    case MSG_REGISTER:
      registerPartner(tl->pid, static_cast<const char*>(payload), size, PARTNER_HERE);
      return true;
    case MSG_PING:
      return true;
    case MSG_IDLE_CONFIG:
      idleDeserialize(dev, sessHdl, payload, static_cast<uint32_t>(size), findSendSocket(pid));
      return true;
    case MSG_COUNTER_CONFIG:
      counterConfigDeserialize(dev, sessHdl, payload, size, findSendSocket(pid), pid);
      return true;
    case MSG_COUNTER_READ:
      counterReadDeserialize(dev, sessHdl, payload, size, findSendSocket(pid));
      return true;
    case MSG_DIGEST_CONFIG:
      digestDeserialize(dev, sessHdl, payload, static_cast<uint32_t>(size), findSendSocket(pid));
      return true;
    case MSG_BARRIER:
      barrierDeserialize(dev, sessHdl, payload, size, findSendSocket(pid));
      return true;
    default: {
      const uint32_t type = tl->type;
      PARTNER_STOP("false", "Deserialize from socket unsupported for msg Type: ", type);
    }
  }
}

int findSendSocket(int pid) {
  const std::lock_guard<std::mutex> lock(pidSocketMutex);
  const auto found = pidSocketMap.find(pid);
  return found == pidSocketMap.end() ? -1 : found->second;
}

bool PeriodicHeartbeatUpdate() {
  std::vector<int> sockets;
  {
    const std::lock_guard<std::mutex> lock(pidSocketMutex);
    for (const auto& [pid, sock] : pidSocketMap) sockets.push_back(sock);
  }
  for (const int sock : sockets) socketSend(sock, &HEARTBEAT_NOTIFY, sizeof(HEARTBEAT_NOTIFY));
  return true;
}

}  // namespace PartnerLib

extern "C" void PartnerLibServerStartup(jx_rt_session_hdl* session, uint8_t dev, int32_t timeout) {
  PartnerLib::PartnerLibServerSetup(session, dev, timeout);
}
