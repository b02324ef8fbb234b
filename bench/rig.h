// A physical device with one program, whose tables are written without a control plane.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "model/device/device.h"
#include "model/pipeline/pipeline.h"

namespace bench {

class Rig {
 public:
  using Bytes = std::vector<uint8_t>;
  /// A part of a key: its value, and its second number where it has one (mask, prefix length, end
  /// of a range). Numbers have at most 64 bits.
  struct Part {
    uint64_t value = 0;
    uint64_t more = 0;
  };
  struct Call {
    std::string action;
    std::vector<uint64_t> params;
  };

  /// `spec` is what loadProgram() takes. Throws std::runtime_error.
  explicit Rig(const std::string& spec);

  // Tables by the last part of their names: "station" is also "ingress.station".

  void add(const std::string& table, const std::vector<Part>& key, const Call& call,
           uint32_t priority = 0);
  /// Returns the member's slot.
  uint32_t addMember(const std::string& table, const Call& call);
  /// An entry that refers to the member of a slot.
  void addReference(const std::string& table, const std::vector<Part>& key, uint32_t member);

  const jxmodel::Pipeline& pipeline() const { return *pipeline_; }

 private:
  jxmodel::TableState& table(const std::string& name) const;
  Bytes packed(const std::vector<jxmodel::KeyField>& fields, const std::vector<Part>& key) const;
  Bytes packed(const Call& call) const;
  const jxmodel::Action& action(const std::string& name) const;
  void add(const std::string& name, const std::vector<Part>& key, uint32_t priority,
           const jxmodel::MatchResult& result);

  std::shared_ptr<jxmodel::Device> device_;
  std::unique_ptr<jxmodel::Pipeline> pipeline_;
  std::map<const jxmodel::TableState*, uint32_t> handles_;  // the last of each table
};

}  // namespace bench
