// Learn objects: what a digest consists of, and who is told of digests.
#pragma once

#include "jxsdk/rt.hpp"
#include "model/program.h"

namespace jxmodel {

class LearnChannel;

class RtLearn final : public jxrt::JxRtLearn {
 public:
  /// `channel` is null on a virtual device, where no digests come from.
  RtLearn(const Program& program, const Learn& learn, LearnChannel* channel)
      : program_(program), learn_(learn), channel_(channel) {}

  jx_status_t learnIdGet(uint32_t* id) const override;
  jx_status_t learnNameGet(std::string* name) const override;
  jx_status_t learnFieldIdListGet(std::vector<uint32_t>* ids) const override;
  jx_status_t learnFieldNameGet(uint32_t field_id, std::string* name) const override;
  jx_status_t learnFieldSizeGet(uint32_t field_id, size_t* bits) const override;
  jx_status_t callbackRegister(const std::shared_ptr<jxrt::JxRtSession>& session,
                               const jx_rt_target_t& target, const jxrt::JxRtLearnCb& callback,
                               const void* cookie) override;
  jx_status_t callbackDeregister(const std::shared_ptr<jxrt::JxRtSession>& session,
                                 const jx_rt_target_t& target) override;
  jx_status_t notifyAck(const std::shared_ptr<jxrt::JxRtSession>& session,
                        jx_rt_learn_msg_hdl* learn_msg) override;

  const Learn& description() const { return learn_; }
  /// Whether a callback is registered; never on a virtual device.
  bool hasClient() const;

 private:
  const PacketField* field(uint32_t field_id) const;

  const Program& program_;
  const Learn& learn_;
  LearnChannel* const channel_;
};

}  // namespace jxmodel
