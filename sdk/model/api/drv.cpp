// The driver: bring-up, devices, and the packing of placement data.
#include "jxsdk/drv.h"

#include <cstdio>
#include <cstring>

#include "model/base/faults.h"
#include "model/device/registry.h"
#include "model/placement/placement.h"

namespace jxmodel {
namespace {

jx_status_t addDevice(jx_dev_id_t dev_id, Device::Kind kind, const jx_device_profile_t* profile,
                      jx_dev_type_t type) {
  if (type == JX_DEV_TYPE_CHIP) return JX_INVALID_ARGUMENTS;  // this driver stands on the model
  if (profile == nullptr || (profile->num_programs != 0 && profile->program_files == nullptr)) {
    return JX_INVALID_ARGUMENTS;
  }
  if (DeviceRegistry::instance().find(dev_id) != nullptr) return JX_ALREADY_EXISTS;
  std::string error;
  auto device = Device::create(dev_id, kind, *profile, &error);
  if (device == nullptr) {
    std::fprintf(stderr, "%s\n", error.c_str());
    return JX_INVALID_ARGUMENTS;
  }
  return DeviceRegistry::instance().add(std::move(device));
}

}  // namespace
}  // namespace jxmodel

using jxmodel::BringUp;
using jxmodel::Device;
using jxmodel::Placement;

jx_status_t jx_drv_init(void) {
  JXMODEL_ENTRY("jx_drv_init");
  return jxmodel::bringUp(BringUp::kDriver);
}

jx_status_t jx_device_add(jx_dev_id_t dev_id, const jx_device_profile_t* profile,
                          jx_dev_type_t type) {
  JXMODEL_ENTRY("jx_device_add");
  if (!jxmodel::broughtUp(BringUp::kDriver)) return JX_NOT_READY;
  return jxmodel::addDevice(dev_id, Device::Kind::kPhysical, profile, type);
}

jx_status_t jx_virtual_device_add(jx_dev_id_t dev_id, const jx_device_profile_t* profile,
                                  jx_dev_type_t type) {
  JXMODEL_ENTRY("jx_virtual_device_add");
  if (!jxmodel::broughtUp(BringUp::kPipeManager)) return JX_NOT_READY;
  return jxmodel::addDevice(dev_id, Device::Kind::kVirtual, profile, type);
}

jx_status_t jx_device_remove(jx_dev_id_t dev_id) {
  JXMODEL_ENTRY("jx_device_remove");
  if (!jxmodel::broughtUp(BringUp::kDriver)) return JX_NOT_READY;
  return jxmodel::DeviceRegistry::instance().remove(dev_id);
}

jx_status_t jx_drv_plcmt_pack_data_size(const void* data, size_t* size) {
  JXMODEL_ENTRY("jx_drv_plcmt_pack_data_size");
  Placement placement;
  if (size == nullptr || !jxmodel::readPlacement(data, &placement)) return JX_INVALID_ARGUMENTS;
  *size = placement.header.total_bytes;
  return JX_SUCCESS;
}

jx_status_t jx_drv_plcmt_copy_pack(const void* data, uint8_t* packed) {
  JXMODEL_ENTRY("jx_drv_plcmt_copy_pack");
  Placement placement;
  if (packed == nullptr || !jxmodel::readPlacement(data, &placement)) return JX_INVALID_ARGUMENTS;
  jxmodel::packPlacement(placement, packed);
  return JX_SUCCESS;
}

jx_status_t jx_drv_plcmt_unpack_data_size(const uint8_t* packed, size_t* size) {
  JXMODEL_ENTRY("jx_drv_plcmt_unpack_data_size");
  if (packed == nullptr || size == nullptr) return JX_INVALID_ARGUMENTS;
  const uint32_t bytes = jxmodel::packedBytes(packed);
  if (bytes == 0) return JX_INVALID_ARGUMENTS;
  *size = bytes;
  return JX_SUCCESS;
}

jx_status_t jx_drv_plcmt_copy_unpack(const uint8_t* packed, uint8_t* data) {
  JXMODEL_ENTRY("jx_drv_plcmt_copy_unpack");
  if (packed == nullptr || data == nullptr) return JX_INVALID_ARGUMENTS;
  Placement placement;
  if (!jxmodel::decodePlacement(packed, jxmodel::packedBytes(packed), &placement)) {
    return JX_INVALID_ARGUMENTS;
  }
  std::memcpy(data, packed, placement.header.total_bytes);
  return JX_SUCCESS;
}
