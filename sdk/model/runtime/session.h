// Sessions of this process, and their handles.
#pragma once

#include <memory>

#include "jxsdk/rt.hpp"

namespace jxmodel {

inline constexpr uint32_t kMaxSessions = 1024;

class RtSession final : public jxrt::JxRtSession {
 public:
  explicit RtSession(uint32_t handle) : handle_(handle) {}
  ~RtSession() override;
  RtSession(const RtSession&) = delete;
  RtSession& operator=(const RtSession&) = delete;

  uint32_t sessHandleGet() const override;
  jx_rt_session_hdl* cHandle() const override;

  /// Null if kMaxSessions live.
  static std::shared_ptr<RtSession> create();

 private:
  uint32_t handle_;
};

/// Whether a session with this handle lives.
bool sessionLives(uint32_t handle);

/// The C face of a session and back.
jx_rt_session_hdl* toHandle(const jxrt::JxRtSession* session);
jxrt::JxRtSession* fromHandle(const jx_rt_session_hdl* session);

}  // namespace jxmodel
