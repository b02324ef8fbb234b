#include "model/rpc/physical_device.h"

#include <string>
#include <utility>
#include <vector>

namespace jxmodel::control {
namespace {

using grpc::StatusCode;

grpc::Status noDevice(jx_dev_id_t device) {
  return {StatusCode::NOT_FOUND, "there is no device " + std::to_string(device)};
}

/// The one physical device of the process.
grpc::Status findOnly(std::shared_ptr<Device>* only) {
  std::vector<jx_dev_id_t> ids;
  DeviceRegistry::instance().devicesGet(&ids);
  for (const jx_dev_id_t id : ids) {
    std::shared_ptr<Device> device = DeviceRegistry::instance().find(id);
    if (device == nullptr || device->isVirtual()) continue;
    if (*only != nullptr) {
      return {StatusCode::INVALID_ARGUMENT, "there are several physical devices, choose: device " +
                                                std::to_string((*only)->id()) + ", device " +
                                                std::to_string(id)};
    }
    *only = std::move(device);
  }
  if (*only == nullptr) return {StatusCode::NOT_FOUND, "there is no physical device"};
  return grpc::Status::OK;
}

}  // namespace

grpc::Status findPhysical(std::optional<jx_dev_id_t> device, PhysicalDevice* place) {
  if (!device) {
    grpc::Status found = findOnly(&place->device);
    if (!found.ok()) return found;
  } else {
    place->device = DeviceRegistry::instance().find(*device);
    if (place->device == nullptr) return noDevice(*device);
    if (place->device->isVirtual()) {
      return {StatusCode::INVALID_ARGUMENT,
              "device " + std::to_string(*device) + " is virtual and has no ports"};
    }
  }
  place->packets = place->device->packetSwitch();
  return place->packets == nullptr ? noDevice(place->device->id()) : grpc::Status::OK;
}

grpc::Status gone(const PhysicalDevice& place) {
  return {StatusCode::ABORTED, "device " + std::to_string(place.device->id()) + " was removed"};
}

}  // namespace jxmodel::control
