#include "model/runtime/session.h"

#include <array>
#include <atomic>
#include <vector>

#include "model/base/faults.h"
#include "model/base/mutex.h"

namespace jxmodel {
namespace {

/// Living sessions by handle minus 1. Readers look without a lock.
struct Sessions {
  Mutex mutex;  // held to create and to end
  std::array<std::atomic<RtSession*>, kMaxSessions> living{};
  // Where the search for a free place begins: handles come back late.
  uint32_t next ABSL_GUARDED_BY(mutex) = 0;
  // Made through the C face, until destroyed.
  std::vector<std::shared_ptr<RtSession>> owned ABSL_GUARDED_BY(mutex);
};

/// Never destroyed: sessions may live until the process ends.
Sessions& sessions() {
  static auto* const instance = new Sessions;
  return *instance;
}

RtSession* living(uint32_t handle) {
  if (handle == 0 || handle > kMaxSessions) return nullptr;
  return sessions().living[handle - 1].load(std::memory_order_acquire);
}

}  // namespace

std::shared_ptr<RtSession> RtSession::create() {
  Sessions& all = sessions();
  const MutexLock lock(all.mutex);
  for (uint32_t tried = 0; tried < kMaxSessions; ++tried) {
    const uint32_t place = (all.next + tried) % kMaxSessions;
    if (all.living[place].load(std::memory_order_relaxed) != nullptr) continue;
    auto session = std::make_shared<RtSession>(place + 1);
    all.living[place].store(session.get(), std::memory_order_release);
    all.next = place + 1;
    return session;
  }
  return nullptr;
}

RtSession::~RtSession() {
  // A free place is found by its null alone.
  sessions().living[handle_ - 1].store(nullptr, std::memory_order_release);
}

uint32_t RtSession::sessHandleGet() const {
  (void)fault::check("JxRtSession::sessHandleGet");
  return handle_;
}

jx_rt_session_hdl* RtSession::cHandle() const {
  (void)fault::check("JxRtSession::cHandle");
  return toHandle(this);
}

bool sessionLives(uint32_t handle) { return living(handle) != nullptr; }

jx_rt_session_hdl* toHandle(const jxrt::JxRtSession* session) {
  return reinterpret_cast<jx_rt_session_hdl*>(const_cast<jxrt::JxRtSession*>(session));
}

jxrt::JxRtSession* fromHandle(const jx_rt_session_hdl* session) {
  return reinterpret_cast<jxrt::JxRtSession*>(const_cast<jx_rt_session_hdl*>(session));
}

}  // namespace jxmodel

using jxmodel::sessions;

std::shared_ptr<jxrt::JxRtSession> jxrt::JxRtSession::sessionCreate() {
  if (jxmodel::fault::check("JxRtSession::sessionCreate").isNull()) return nullptr;
  return jxmodel::RtSession::create();
}

jx_rt_session_hdl* jxrt::JxRtSession::sessionInstantiate(uint32_t sess_hdl, uint64_t flags) {
  if (jxmodel::fault::check("JxRtSession::sessionInstantiate").isNull() || flags != 0) {
    return nullptr;
  }
  const auto* const session = jxmodel::living(sess_hdl);
  return session == nullptr ? nullptr : jxmodel::toHandle(session);
}

jx_status_t jx_rt_session_create(jx_rt_session_hdl** session) {
  if (session == nullptr) return JX_INVALID_ARGUMENTS;
  JXMODEL_ENTRY_OUT("jx_rt_session_create", session);
  auto made = jxmodel::RtSession::create();
  if (!made) return JX_MAX_SESSIONS_EXCEEDED;
  *session = jxmodel::toHandle(made.get());
  const jxmodel::MutexLock lock(sessions().mutex);
  sessions().owned.push_back(std::move(made));
  return JX_SUCCESS;
}

jx_status_t jx_rt_session_destroy(jx_rt_session_hdl* session) {
  JXMODEL_ENTRY("jx_rt_session_destroy");
  if (session == nullptr) return JX_INVALID_ARGUMENTS;
  std::shared_ptr<jxmodel::RtSession> ended;  // ends after the lock
  const jxmodel::MutexLock lock(sessions().mutex);
  auto& owned = sessions().owned;
  for (auto& candidate : owned) {
    if (jxmodel::toHandle(candidate.get()) != session) continue;
    ended = std::move(candidate);
    candidate = std::move(owned.back());
    owned.pop_back();
    return JX_SUCCESS;
  }
  return JX_SESSION_NOT_FOUND;
}

uint32_t jx_rt_session_pipe_handle_get(const jx_rt_session_hdl* session) {
  (void)jxmodel::fault::check("jx_rt_session_pipe_handle_get");
  return session == nullptr ? 0 : jxmodel::fromHandle(session)->sessHandleGet();
}

const jxrt::JxRtSession* jxrt::JxRtSession::fromHandle(const jx_rt_session_hdl* session) {
  if (jxmodel::fault::check("JxRtSession::fromHandle").isNull()) return nullptr;
  return jxmodel::fromHandle(session);
}
