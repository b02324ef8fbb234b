// The device that a call about ports, packets or events means.
#pragma once

#include <grpcpp/support/status.h>

#include <memory>
#include <optional>

#include "model/device/registry.h"
#include "model/switch/switch.h"

namespace jxmodel::control {

/// A physical device, kept in place for one call.
struct PhysicalDevice {
  std::shared_ptr<Device> device;
  Switch* packets = nullptr;
};

/// The one with this number, or else the only one of the process.
grpc::Status findPhysical(std::optional<jx_dev_id_t> device, PhysicalDevice* place);

template <typename Request>
grpc::Status find(const Request& request, PhysicalDevice* place) {
  if (!request.has_device()) return findPhysical(std::nullopt, place);
  return findPhysical(request.device(), place);
}

/// What a call answers whose device went away.
grpc::Status gone(const PhysicalDevice& place);

}  // namespace jxmodel::control
