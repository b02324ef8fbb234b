// The C interface of learn messages and ageing: jxmodel/notify.h.
#include "jxmodel/notify.h"

#include <chrono>
#include <memory>
#include <string>

#include "model/device/registry.h"
#include "model/runtime/rt_info.h"
#include "model/tables/key_codec.h"

namespace jxmodel {
namespace {

/// Keeps the device in place for one call.
struct Place {
  std::shared_ptr<Device> device;
  const RtInfo* info = nullptr;
  LearnChannel* channel = nullptr;
};

jx_status_t findDevice(jx_dev_id_t dev_id, Place* place) {
  place->device = DeviceRegistry::instance().find(dev_id);
  if (place->device == nullptr) return JX_OBJECT_NOT_FOUND;
  return place->device->isVirtual() ? JX_NOT_SUPPORTED : JX_SUCCESS;
}

jx_status_t findProgram(jx_dev_id_t dev_id, const char* p4_name, Place* place) {
  const jx_status_t status = findDevice(dev_id, place);
  if (status != JX_SUCCESS) return status;
  place->info = place->device->findInfo(p4_name);
  return place->info == nullptr ? JX_OBJECT_NOT_FOUND : JX_SUCCESS;
}

jx_status_t findChannel(jx_dev_id_t dev_id, const char* p4_name, const char* learn_name,
                        Place* place) {
  if (p4_name == nullptr || learn_name == nullptr) return JX_INVALID_ARGUMENTS;
  const jx_status_t status = findProgram(dev_id, p4_name, place);
  if (status != JX_SUCCESS) return status;
  const std::vector<Learn>& learns = place->info->program().learns;
  for (size_t i = 0; i < learns.size(); ++i) {
    if (learns[i].name != learn_name) continue;
    place->channel = place->info->channels()[i].get();
    return JX_SUCCESS;
  }
  return JX_OBJECT_NOT_FOUND;
}

bool areValid(const jx_model_learn_options_t& options) {
  constexpr uint32_t kMaxBatch = 65536;
  return options.batch != 0 && options.batch <= kMaxBatch && options.max_unacked != 0 &&
         options.max_waiting != 0;
}

bool fit(const LearnLayout& layout, const uint8_t* values, size_t count) {
  for (size_t i = 0; i < count; ++i, values += layout.bytes) {
    for (const LearnLayout::Field& field : layout.fields) {
      if (!withinWidth(values + field.offset, field.width)) return false;
    }
  }
  return true;
}

}  // namespace
}  // namespace jxmodel

using jxmodel::Place;

jx_status_t jx_model_learn_options_get(jx_dev_id_t dev_id, const char* p4_name,
                                       const char* learn_name, jx_model_learn_options_t* options) {
  if (options == nullptr) return JX_INVALID_ARGUMENTS;
  Place place;
  const jx_status_t status = jxmodel::findChannel(dev_id, p4_name, learn_name, &place);
  if (status == JX_SUCCESS) *options = place.channel->options();
  return status;
}

jx_status_t jx_model_learn_options_set(jx_dev_id_t dev_id, const char* p4_name,
                                       const char* learn_name,
                                       const jx_model_learn_options_t* options) {
  if (options == nullptr || !jxmodel::areValid(*options)) return JX_INVALID_ARGUMENTS;
  Place place;
  const jx_status_t status = jxmodel::findChannel(dev_id, p4_name, learn_name, &place);
  if (status == JX_SUCCESS) place.channel->setOptions(*options);
  return status;
}

jx_status_t jx_model_learn_counts_get(jx_dev_id_t dev_id, const char* p4_name,
                                      const char* learn_name, jx_model_learn_counts_t* counts) {
  if (counts == nullptr) return JX_INVALID_ARGUMENTS;
  Place place;
  const jx_status_t status = jxmodel::findChannel(dev_id, p4_name, learn_name, &place);
  if (status == JX_SUCCESS) *counts = place.channel->counts();
  return status;
}

jx_status_t jx_model_learn_inject(jx_dev_id_t dev_id, const char* p4_name, const char* learn_name,
                                  const uint8_t* values, size_t count) {
  if (values == nullptr && count != 0) return JX_INVALID_ARGUMENTS;
  Place place;
  const jx_status_t status = jxmodel::findChannel(dev_id, p4_name, learn_name, &place);
  if (status != JX_SUCCESS) return status;
  if (place.device->dispatch()->onThread()) return JX_IN_USE;
  if (!jxmodel::fit(place.channel->layout(), values, count)) return JX_INVALID_ARGUMENTS;
  return place.channel->inject(values, count);
}

jx_status_t jx_model_idle_expire(jx_dev_id_t dev_id, const char* p4_name, const char* table_name,
                                 uint32_t entry_handle) {
  if (p4_name == nullptr || table_name == nullptr) return JX_INVALID_ARGUMENTS;
  Place place;
  const jx_status_t status = jxmodel::findProgram(dev_id, p4_name, &place);
  if (status != JX_SUCCESS) return status;
  const std::vector<jxmodel::Table>& tables = place.info->program().tables;
  for (size_t i = 0; i < tables.size(); ++i) {
    if (tables[i].name != table_name) continue;
    jxmodel::IdleWatch* const watch = place.info->watches()[i].get();
    return watch == nullptr ? JX_NOT_SUPPORTED : watch->expire(entry_handle);
  }
  return JX_OBJECT_NOT_FOUND;
}

jx_status_t jx_model_notify_wait_idle(jx_dev_id_t dev_id, uint32_t timeout_ms) {
  Place place;
  const jx_status_t status = jxmodel::findDevice(dev_id, &place);
  if (status != JX_SUCCESS) return status;
  jxmodel::DispatchThread& dispatch = *place.device->dispatch();
  if (dispatch.onThread()) return JX_IN_USE;
  const std::chrono::milliseconds patience(timeout_ms);
  return dispatch.waitUntilIdle(patience) ? JX_SUCCESS : JX_NOT_READY;
}
