// The C interface of the dispatch thread: jxmodel/service.h.
#include "jxmodel/service.h"

#include "model/device/registry.h"

namespace jxmodel {
namespace {

jx_status_t findService(jx_dev_id_t dev_id, std::shared_ptr<Device>* device) {
  *device = DeviceRegistry::instance().find(dev_id);
  if (*device == nullptr) return JX_OBJECT_NOT_FOUND;
  return (*device)->dispatch() == nullptr ? JX_NOT_SUPPORTED : JX_SUCCESS;
}

}  // namespace
}  // namespace jxmodel

jx_status_t jx_model_service_hold(jx_dev_id_t dev_id, bool held) {
  std::shared_ptr<jxmodel::Device> device;
  const jx_status_t status = jxmodel::findService(dev_id, &device);
  if (status == JX_SUCCESS) device->dispatch()->hold(held);
  return status;
}

jx_status_t jx_model_service_pending(jx_dev_id_t dev_id, uint64_t* count) {
  if (count == nullptr) return JX_INVALID_ARGUMENTS;
  std::shared_ptr<jxmodel::Device> device;
  const jx_status_t status = jxmodel::findService(dev_id, &device);
  if (status == JX_SUCCESS) *count = device->dispatch()->pending();
  return status;
}
