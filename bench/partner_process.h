// A bench's process as a partner: the library started, on a virtual device.
#pragma once

#include <memory>
#include <string>

#include "jxsdk/rt.hpp"
#include "switch_side.h"

namespace bench {

inline constexpr jx_dev_id_t kPhysical = 0;
inline constexpr jx_dev_id_t kVirtual = 1;

/// Blocks until an agent serves; does not end.
class PartnerProcess {
 public:
  explicit PartnerProcess(const std::string& program);
  jx_rt_session_hdl* session() const { return session_->cHandle(); }

 private:
  const std::shared_ptr<jxrt::JxRtSession> session_;
};

/// Makes this process an agent that serves in a thread of its own; returns when it does.
void serveAsAgent(const std::string& program);

}  // namespace bench
