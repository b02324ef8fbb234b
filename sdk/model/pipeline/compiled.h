// A control flow in the form in which packets run through it: steps that name the next one, fields
// bound to the bytes of packets or to the program's own metadata, tables bound to those of a
// device.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "model/packet/fields.h"
#include "model/program/program.h"
#include "model/tables/table_state.h"

namespace jxmodel {

/// Why no packet could take this program's way, empty if packets can: fields that packets have
/// under other widths, steps that change what cannot be changed, headers that no packet has.
std::string packetRefusal(const Program& program);

struct CompiledField {
  std::optional<FieldId> id;  // empty: metadata of the program
  uint32_t offset = 0;        // in the metadata
  uint32_t width = 0;         // bits
  uint32_t bytes = 0;
};

struct CompiledOperand {
  enum class Kind : uint8_t { kField, kParam, kConstant };
  Kind kind = Kind::kConstant;
  uint32_t index = 0;                 // kField: of the field; kParam: offset in the parameters
  uint32_t bytes = 0;                 // of the value
  const uint8_t* constant = nullptr;  // kConstant: in the description
};

struct CompiledPrimitive {
  const Primitive* description = nullptr;
  PrimitiveOp op = PrimitiveOp::kDrop;
  uint32_t field = 0;                // kSet, kDecrement
  CounterTable* counters = nullptr;  // kCount; null on a virtual device
  uint32_t learn = 0;                // kDigest
  CompiledOperand source;
};

struct CompiledApply {
  const TableState* state = nullptr;
  const ActionCall* default_action = nullptr;  // the description's, null if it has none
  std::vector<uint32_t> hash_fields;           // of the selector behind it
  uint32_t hash_bytes = 0;
};

struct CompiledCompare {
  CompiledOperand left, right;
  CompareOp op = CompareOp::kEqual;
  std::optional<std::vector<uint8_t>> mask;
};

struct CompiledStep {
  enum class Kind : uint8_t { kApply, kValid, kCompare, kPrimitive };
  Kind kind = Kind::kPrimitive;
  uint32_t index = 0;  // into the list of the kind; kValid: the Header
  uint32_t yes = 0;    // next step: after a hit, where the condition holds, after a primitive
  uint32_t no = 0;     // next step: after a miss, where it does not
  const Branch* branch = nullptr;  // kValid, kCompare: the description
};

struct CompiledProgram {
  /// `states` are the device's, as Program::tables. The program passed packetRefusal().
  CompiledProgram(const Program& program, const std::vector<TableState*>& states);

  static constexpr uint32_t kEnd = 0xFFFFFFFF;  // the step after the last

  const Program& program;
  std::vector<CompiledField> fields;  // as Program::fields
  uint32_t metadata_bytes = 0;
  std::vector<std::vector<CompiledPrimitive>> actions;  // as Program::actions
  std::vector<CompiledApply> applies;
  std::vector<CompiledCompare> compares;
  std::vector<CompiledPrimitive> primitives;  // of the control flow itself
  std::vector<CompiledStep> steps;
  uint32_t first = kEnd;

 private:
  void bindFields();
  CompiledOperand operand(const Operand& source, const Action* action) const;
  CompiledPrimitive primitive(const Primitive& primitive, const Action* action) const;
  uint32_t block(const ControlBlock& block, uint32_t next);
  uint32_t step(const ApplyTable& apply, uint32_t next);
  uint32_t step(const Branch& branch, uint32_t next);
  uint32_t step(const Primitive& primitive, uint32_t next);
  uint32_t add(CompiledStep::Kind kind, size_t index, uint32_t yes, uint32_t no,
               const Branch* branch);

  const std::vector<TableState*>& states_;
};

}  // namespace jxmodel
