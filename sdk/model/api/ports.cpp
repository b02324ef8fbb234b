// The C interface of the ports: jxmodel/ports.h.
#include "jxmodel/ports.h"

#include <algorithm>
#include <chrono>
#include <cstring>

#include "model/base/clock.h"
#include "model/device/registry.h"
#include "model/switch/switch.h"

namespace jxmodel {
namespace {

/// Keeps the device in place for one call.
struct SwitchPlace {
  std::shared_ptr<Device> device;
  Switch* target = nullptr;
};

jx_status_t findSwitch(jx_dev_id_t dev_id, SwitchPlace* place) {
  place->device = DeviceRegistry::instance().find(dev_id);
  if (place->device == nullptr) return JX_OBJECT_NOT_FOUND;
  if (place->device->isVirtual()) return JX_NOT_SUPPORTED;
  place->target = place->device->packetSwitch();
  return place->target == nullptr ? JX_OBJECT_NOT_FOUND : JX_SUCCESS;
}

/// The same for calls that wait for the I/O thread, which may be waiting for the dispatch thread.
jx_status_t findSwitchToWaitFor(jx_dev_id_t dev_id, SwitchPlace* place) {
  const jx_status_t status = findSwitch(dev_id, place);
  if (status != JX_SUCCESS) return status;
  return place->device->dispatch()->onThread() ? JX_IN_USE : JX_SUCCESS;
}

void copyText(const std::string& text, char* out, size_t bytes) {
  if (out == nullptr || bytes == 0) return;
  const size_t length = std::min(text.size(), bytes - 1);
  std::memcpy(out, text.data(), length);
  out[length] = '\0';
}

void describe(const PortStatus& status, jx_model_port_t* out) {
  const PortCounters& from = status.counters;
  *out = {};
  out->number = status.spec.number;
  out->enabled = status.enabled;
  out->carrier = status.carrier;
  out->input_left = status.input == InputState::kReading;
  copyText(toString(status.spec), out->spec, sizeof out->spec);
  copyText(status.error, out->error, sizeof out->error);
  out->counters = {from.packets_in, from.bytes_in,    from.packets_out,    from.bytes_out,
                   from.dropped_in, from.dropped_out, from.receive_errors, from.send_errors};
}

jx_status_t addPort(Switch& target, const PortSpec& spec, std::string* error) {
  const bool taken = target.ports().status(spec.number).has_value();
  if (target.ports().attach(spec, error)) return JX_SUCCESS;
  return taken ? JX_ALREADY_EXISTS : JX_IO_ERROR;
}

}  // namespace
}  // namespace jxmodel

using jxmodel::SwitchPlace;

jx_status_t jx_model_port_add(jx_dev_id_t dev_id, const char* spec, char* error,
                              size_t error_bytes) {
  if (spec == nullptr) return JX_INVALID_ARGUMENTS;
  SwitchPlace place;
  jx_status_t status = jxmodel::findSwitch(dev_id, &place);
  if (status != JX_SUCCESS) {
    jxmodel::copyText("there is no physical device " + std::to_string(dev_id), error, error_bytes);
    return status;
  }
  jxmodel::PortSpec parsed;
  std::string reason;
  status = jxmodel::parsePortSpec(spec, &parsed, &reason)
               ? jxmodel::addPort(*place.target, parsed, &reason)
               : JX_INVALID_ARGUMENTS;
  if (status != JX_SUCCESS) jxmodel::copyText(reason, error, error_bytes);
  return status;
}

jx_status_t jx_model_port_delete(jx_dev_id_t dev_id, uint32_t port) {
  SwitchPlace place;
  const jx_status_t status = jxmodel::findSwitchToWaitFor(dev_id, &place);
  if (status != JX_SUCCESS) return status;
  return place.target->ports().detach(port) ? JX_SUCCESS : JX_OBJECT_NOT_FOUND;
}

jx_status_t jx_model_port_set_enabled(jx_dev_id_t dev_id, uint32_t port, bool enabled) {
  SwitchPlace place;
  const jx_status_t status = jxmodel::findSwitch(dev_id, &place);
  if (status != JX_SUCCESS) return status;
  return place.target->ports().setEnabled(port, enabled) ? JX_SUCCESS : JX_OBJECT_NOT_FOUND;
}

jx_status_t jx_model_port_list(jx_dev_id_t dev_id, jx_model_port_t* ports, uint32_t capacity,
                               uint32_t* count) {
  if (count == nullptr || (ports == nullptr && capacity != 0)) return JX_INVALID_ARGUMENTS;
  SwitchPlace place;
  const jx_status_t status = jxmodel::findSwitch(dev_id, &place);
  if (status != JX_SUCCESS) return status;
  const std::vector<jxmodel::PortStatus> list = place.target->ports().list();
  *count = static_cast<uint32_t>(list.size());
  for (size_t i = 0; i < std::min<size_t>(capacity, list.size()); ++i) {
    jxmodel::describe(list[i], &ports[i]);
  }
  return JX_SUCCESS;
}

jx_status_t jx_model_inject(jx_dev_id_t dev_id, uint32_t port, const uint8_t* frame, size_t bytes) {
  if (frame == nullptr || bytes == 0 || port >= jxmodel::kMaxPorts) return JX_INVALID_ARGUMENTS;
  SwitchPlace place;
  const jx_status_t status = jxmodel::findSwitchToWaitFor(dev_id, &place);
  if (status != JX_SUCCESS) return status;
  std::vector<jxmodel::PacketBuffer> packets;
  packets.emplace_back(frame, bytes);
  packets.back().setTime(static_cast<int64_t>(jxmodel::Clock::instance().now()),
                         jxmodel::TimeResolution::kNanosecond);
  return place.target->inject(port, std::move(packets)) ? JX_SUCCESS : JX_NOT_READY;
}

jx_status_t jx_model_captures_hold(jx_dev_id_t dev_id, bool held) {
  SwitchPlace place;
  const jx_status_t status = jxmodel::findSwitch(dev_id, &place);
  if (status != JX_SUCCESS) return status;
  place.target->ports().holdCaptures(held);
  return JX_SUCCESS;
}

jx_status_t jx_model_ports_wait_idle(jx_dev_id_t dev_id, uint32_t timeout_ms) {
  SwitchPlace place;
  const jx_status_t status = jxmodel::findSwitchToWaitFor(dev_id, &place);
  if (status != JX_SUCCESS) return status;
  const std::chrono::milliseconds patience(timeout_ms);
  return place.target->ports().waitUntilIdle(patience) ? JX_SUCCESS : JX_NOT_READY;
}
