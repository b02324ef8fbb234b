#include "model/pipeline/compiled.h"

#include <variant>

#include "model/machine/compiled_machine.h"

namespace jxmodel {
namespace {

std::string widthRefusal(const PacketField& field) {
  const std::optional<FieldId> id = findField(field.name);
  if (!id || fieldWidth(*id) == field.width) return {};
  return "field " + field.name + " has " + std::to_string(field.width) +
         " bits, of packets it has " + std::to_string(fieldWidth(*id));
}

std::string changeRefusal(const Program& program, const Primitive& primitive) {
  if (primitive.op != PrimitiveOp::kSet && primitive.op != PrimitiveOp::kDecrement) return {};
  const std::string& name = program.fields[primitive.field].name;
  const std::optional<FieldId> id = findField(name);
  return !id || fieldWritable(*id) ? std::string{} : "field " + name + " cannot be changed";
}

std::string blockRefusal(const Program& program, const ControlBlock& block);

struct StepRefusal {
  const Program& program;

  std::string operator()(const ApplyTable& apply) const {
    const std::string reason = blockRefusal(program, apply.on_hit);
    return reason.empty() ? blockRefusal(program, apply.on_miss) : reason;
  }
  std::string operator()(const Branch& branch) const {
    const auto* valid = std::get_if<HeaderValid>(&branch.condition);
    if (valid != nullptr && !findHeader(valid->header)) {
      return "no packet has a header " + valid->header;
    }
    const std::string reason = blockRefusal(program, branch.then_block);
    return reason.empty() ? blockRefusal(program, branch.else_block) : reason;
  }
  std::string operator()(const Primitive& primitive) const {
    return changeRefusal(program, primitive);
  }
};

std::string blockRefusal(const Program& program, const ControlBlock& block) {
  for (const ControlStep& step : block) {
    std::string reason = std::visit(StepRefusal{program}, step.step);
    if (!reason.empty()) return reason;
  }
  return {};
}

}  // namespace

std::string packetRefusal(const Program& program) {
  if (program.machine != nullptr) return machineRefusal(program);
  for (const PacketField& field : program.fields) {
    std::string reason = widthRefusal(field);
    if (!reason.empty()) return reason;
  }
  for (const Action& action : program.actions) {
    for (const Primitive& primitive : action.body) {
      const std::string reason = changeRefusal(program, primitive);
      if (!reason.empty()) return "action " + action.name + ": " + reason;
    }
  }
  return blockRefusal(program, program.control);
}

CompiledProgram::CompiledProgram(const Program& description, const std::vector<TableState*>& states)
    : program(description), states_(states) {
  bindFields();
  for (const Action& action : program.actions) {
    std::vector<CompiledPrimitive>& body = actions.emplace_back();
    for (const Primitive& one : action.body) body.push_back(primitive(one, &action));
  }
  first = block(program.control, kEnd);
}

void CompiledProgram::bindFields() {
  for (const PacketField& field : program.fields) {
    CompiledField bound;
    bound.id = findField(field.name);
    bound.width = field.width;
    bound.bytes = bytesOf(field.width);
    bound.offset = metadata_bytes;
    if (!bound.id) metadata_bytes += bound.bytes;
    fields.push_back(bound);
  }
}

CompiledOperand CompiledProgram::operand(const Operand& source, const Action* action) const {
  if (const auto* field = std::get_if<FieldRef>(&source)) {
    return {CompiledOperand::Kind::kField, field->index, fields[field->index].bytes, nullptr};
  }
  if (const auto* ref = std::get_if<ParamRef>(&source)) {
    const Param& param = action->params[ref->index];
    return {CompiledOperand::Kind::kParam, param.offset, bytesOf(param.width), nullptr};
  }
  const std::vector<uint8_t>& value = std::get<Constant>(source).value;
  return {CompiledOperand::Kind::kConstant, 0, static_cast<uint32_t>(value.size()), value.data()};
}

CompiledPrimitive CompiledProgram::primitive(const Primitive& description,
                                             const Action* action) const {
  CompiledPrimitive compiled;
  compiled.description = &description;
  compiled.op = description.op;
  compiled.field = description.field;
  compiled.learn = description.learn;
  compiled.source = operand(description.source, action);
  if (description.op == PrimitiveOp::kCount) {
    compiled.counters = states_[description.table]->counters.get();
  }
  return compiled;
}

/// From the last step to the first, so that each knows the one behind it. Returns the first.
uint32_t CompiledProgram::block(const ControlBlock& steps_of, uint32_t next) {
  for (auto it = steps_of.rbegin(); it != steps_of.rend(); ++it) {
    next = std::visit([this, next](const auto& one) { return step(one, next); }, it->step);
  }
  return next;
}

uint32_t CompiledProgram::add(CompiledStep::Kind kind, size_t index, uint32_t yes, uint32_t no,
                              const Branch* branch) {
  steps.push_back({kind, static_cast<uint32_t>(index), yes, no, branch});
  return static_cast<uint32_t>(steps.size()) - 1;
}

uint32_t CompiledProgram::step(const ApplyTable& apply, uint32_t next) {
  CompiledApply compiled;
  compiled.state = states_[apply.table];
  const Table& table = *compiled.state->table;
  if (table.default_action) compiled.default_action = &*table.default_action;
  if (table.selector_table) {
    compiled.hash_fields = program.tables[*table.selector_table].hash_fields;
    for (const uint32_t field : compiled.hash_fields) compiled.hash_bytes += fields[field].bytes;
  }
  applies.push_back(std::move(compiled));
  const size_t index = applies.size() - 1;
  const uint32_t hit = block(apply.on_hit, next);
  return add(CompiledStep::Kind::kApply, index, hit, block(apply.on_miss, next), nullptr);
}

uint32_t CompiledProgram::step(const Branch& branch, uint32_t next) {
  const uint32_t yes = block(branch.then_block, next);
  const uint32_t no = block(branch.else_block, next);
  if (const auto* valid = std::get_if<HeaderValid>(&branch.condition)) {
    const auto header = static_cast<size_t>(*findHeader(valid->header));
    return add(CompiledStep::Kind::kValid, header, yes, no, &branch);
  }
  const auto& comparison = std::get<Comparison>(branch.condition);
  compares.push_back({operand(comparison.left, nullptr), operand(comparison.right, nullptr),
                      comparison.op, comparison.mask});
  return add(CompiledStep::Kind::kCompare, compares.size() - 1, yes, no, &branch);
}

uint32_t CompiledProgram::step(const Primitive& description, uint32_t next) {
  primitives.push_back(primitive(description, nullptr));
  return add(CompiledStep::Kind::kPrimitive, primitives.size() - 1, next, next, nullptr);
}

}  // namespace jxmodel
