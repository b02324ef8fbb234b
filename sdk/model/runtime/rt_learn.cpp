#include "model/runtime/rt_learn.h"

#include "model/base/faults.h"
#include "model/notify/learn_channel.h"
#include "model/runtime/learn_data.h"

namespace jxmodel {
namespace {

jx_rt_learn_msg_hdl* toHandle(uint64_t message_id) {
  // A name, not an address: nobody follows it, and one that was used up is known as such.
  // NOLINTNEXTLINE(performance-no-int-to-ptr)
  return reinterpret_cast<jx_rt_learn_msg_hdl*>(static_cast<uintptr_t>(message_id));
}

uint64_t messageIdOf(const jx_rt_learn_msg_hdl* handle) {
  return reinterpret_cast<uintptr_t>(handle);
}

}  // namespace

const PacketField* RtLearn::field(uint32_t field_id) const {
  const LearnField* const found = findById(learn_.fields, field_id);
  return found == nullptr ? nullptr : &program_.fields[found->field];
}

bool RtLearn::hasClient() const { return channel_ != nullptr && channel_->hasClient(); }

jx_status_t RtLearn::learnIdGet(uint32_t* id) const {
  JXMODEL_ENTRY("JxRtLearn::learnIdGet");
  if (id == nullptr) return JX_INVALID_ARGUMENTS;
  *id = learn_.id;
  return JX_SUCCESS;
}

jx_status_t RtLearn::learnNameGet(std::string* name) const {
  JXMODEL_ENTRY("JxRtLearn::learnNameGet");
  if (name == nullptr) return JX_INVALID_ARGUMENTS;
  *name = learn_.name;
  return JX_SUCCESS;
}

jx_status_t RtLearn::learnFieldIdListGet(std::vector<uint32_t>* ids) const {
  JXMODEL_ENTRY("JxRtLearn::learnFieldIdListGet");
  if (ids == nullptr) return JX_INVALID_ARGUMENTS;
  ids->clear();
  for (const LearnField& learn_field : learn_.fields) ids->push_back(learn_field.id);
  return JX_SUCCESS;
}

jx_status_t RtLearn::learnFieldNameGet(uint32_t field_id, std::string* name) const {
  JXMODEL_ENTRY("JxRtLearn::learnFieldNameGet");
  if (name == nullptr) return JX_INVALID_ARGUMENTS;
  const PacketField* const found = field(field_id);
  if (found == nullptr) return JX_OBJECT_NOT_FOUND;
  *name = found->name;
  return JX_SUCCESS;
}

jx_status_t RtLearn::learnFieldSizeGet(uint32_t field_id, size_t* bits) const {
  JXMODEL_ENTRY("JxRtLearn::learnFieldSizeGet");
  if (bits == nullptr) return JX_INVALID_ARGUMENTS;
  const PacketField* const found = field(field_id);
  if (found == nullptr) return JX_OBJECT_NOT_FOUND;
  *bits = found->width;
  return JX_SUCCESS;
}

jx_status_t RtLearn::callbackRegister(const std::shared_ptr<jxrt::JxRtSession>& session,
                                      const jx_rt_target_t& target,
                                      const jxrt::JxRtLearnCb& callback, const void* cookie) {
  JXMODEL_ENTRY("JxRtLearn::callbackRegister");
  if (channel_ == nullptr) return JX_NOT_SUPPORTED;
  if (session == nullptr || callback == nullptr || target.dev_id != channel_->device().id()) {
    return JX_INVALID_ARGUMENTS;
  }
  channel_->setClient([=](const std::shared_ptr<const LearnMessage>& message) {
    std::vector<std::unique_ptr<jxrt::JxRtTableData>> data;
    data.reserve(message->count);
    for (uint32_t i = 0; i < message->count; ++i) {
      data.push_back(std::make_unique<LearnData>(message, i));
    }
    callback(target, session, std::move(data), toHandle(message->id), cookie);
  });
  return JX_SUCCESS;
}

jx_status_t RtLearn::callbackDeregister(const std::shared_ptr<jxrt::JxRtSession>& session,
                                        const jx_rt_target_t& target) {
  JXMODEL_ENTRY("JxRtLearn::callbackDeregister");
  if (channel_ == nullptr) return JX_NOT_SUPPORTED;
  if (session == nullptr || target.dev_id != channel_->device().id()) return JX_INVALID_ARGUMENTS;
  channel_->clearClient();
  return JX_SUCCESS;
}

jx_status_t RtLearn::notifyAck(const std::shared_ptr<jxrt::JxRtSession>& session,
                               jx_rt_learn_msg_hdl* learn_msg) {
  JXMODEL_ENTRY("JxRtLearn::notifyAck");
  if (channel_ == nullptr) return JX_NOT_SUPPORTED;
  if (session == nullptr || learn_msg == nullptr) return JX_INVALID_ARGUMENTS;
  return channel_->acknowledge(messageIdOf(learn_msg));
}

}  // namespace jxmodel
