// One packet on its way through a pipeline.
#pragma once

#include <absl/container/inlined_vector.h>

#include <optional>

#include "model/base/read_copy_update.h"
#include "model/packet/fields.h"
#include "model/pipeline/pipeline.h"

namespace jxmodel {

class PacketRun {
 public:
  /// Runs the packet.
  PacketRun(const Pipeline& pipeline, const Pipeline::Packet& packet, std::vector<Digest>* digests,
            Trace* trace);

  const Outcome& outcome() const { return outcome_; }

 private:
  using Bytes = absl::InlinedVector<uint8_t, 64>;

  void runSteps(const CompiledProgram& program);
  bool apply(const CompiledApply& apply);
  MatchTable::Applied lookUp(const CompiledApply& apply);
  uint32_t hashOf(const CompiledApply& apply);
  /// The action of what was found, no action if there is none. Fills in the trace's step.
  BoundAction actionOf(const CompiledApply& apply, const MatchTable::Applied& applied,
                       Trace::Step* step);
  void runAction(const BoundAction& action);
  /// False where it ends the packet.
  bool run(const CompiledPrimitive& primitive, const uint8_t* params);
  bool decrement(uint32_t field);
  void countInto(const CompiledPrimitive& primitive, const uint8_t* params);
  void digest(uint32_t learn);
  bool compare(const CompiledCompare& compare) const;

  /// Fields by index. Values have CompiledField::bytes bytes.
  void load(uint32_t field, uint8_t* value) const;
  void store(uint32_t field, const uint8_t* value);
  bool present(uint32_t field) const;
  /// Writes a value into `bytes` bytes, with zeroes in front.
  void read(const CompiledOperand& operand, const uint8_t* params, uint8_t* out,
            uint32_t bytes) const;
  uint32_t number(const CompiledOperand& operand, const uint8_t* params) const;

  void drop(DropReason reason);
  uint64_t now();

  const Pipeline& pipeline_;
  const CompiledProgram& program_;
  const uint32_t wire_size_;
  std::vector<Digest>* const digests_;
  Trace* const trace_;
  PacketView view_;
  Bytes metadata_;
  std::optional<uint64_t> now_;  // the packet's time, once it was asked for
  bool ended_ = false;
  Outcome outcome_;
};

}  // namespace jxmodel
