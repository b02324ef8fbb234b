// A physical device with a pipeline, and short ways to write its tables.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "model/device/device.h"
#include "model/pipeline/pipeline.h"
#include "model/runtime/rt_info.h"
#include "unit/pipeline/frame.h"

namespace jxpipelinetest {

/// A packed key or packed parameters, value by value.
class Packed {
 public:
  Packed& add(uint64_t value, size_t bytes) {
    for (size_t i = bytes; i-- > 0;) bytes_.push_back(static_cast<uint8_t>(value >> (8 * i)));
    return *this;
  }
  const uint8_t* data() const { return bytes_.data(); }

 private:
  Bytes bytes_;
};

class Testbed {
 public:
  /// A description in JSON.
  explicit Testbed(const std::string& json);
  /// A delivered program: "router".
  static std::unique_ptr<Testbed> delivered(const std::string& name);

  jxmodel::Device& device() { return *device_; }
  const jxmodel::Pipeline& pipeline() const { return *pipeline_; }
  jxmodel::TableState& table(const std::string& name) const;
  jxmodel::BoundAction action(const std::string& name, const Packed& params) const;

  // Writes, each under the device's mutex. Handles are chosen by the caller. They return slots.
  uint32_t add(const std::string& name, uint32_t handle, const Packed& key, uint32_t priority,
               const jxmodel::MatchResult& result);
  uint32_t addAction(const std::string& name, uint32_t handle, const Packed& key,
                     const std::string& action, const Packed& params, uint32_t priority = 0);
  uint32_t addMember(const std::string& name, uint32_t handle, const std::string& action,
                     const Packed& params);
  uint32_t addGroup(const std::string& name, uint32_t handle, const std::vector<uint32_t>& members);

  /// Runs a frame, which is rewritten.
  jxmodel::Outcome run(Bytes* frame, uint32_t ingress_port = 1, jxmodel::Trace* trace = nullptr);
  /// Of all frames run.
  std::vector<jxmodel::Digest> digests;

 private:
  explicit Testbed(std::shared_ptr<const jxmodel::Program> program);

  std::shared_ptr<jxmodel::Device> device_;
  std::unique_ptr<jxmodel::Pipeline> pipeline_;
};

jxmodel::MatchResult memberResult(uint32_t slot);
jxmodel::MatchResult groupResult(uint32_t slot);

}  // namespace jxpipelinetest
