#include "model/machine/action_compiler.h"

namespace jxmodel {

CompiledActionStep ActionCompiler::compile(const MachineStep& source) {
  made_ = CompiledActionStep{};
  made_.source = &source;
  std::visit([this](const auto& step) { add(step); }, source);
  for (const CompiledExpression* const one : {made_.x, made_.y}) {
    if (one != nullptr) made_.cost += static_cast<uint32_t>(one->code.size());
  }
  return made_;
}

void ActionCompiler::simple(Op op, uint32_t a, uint32_t b) {
  made_.op = op;
  made_.a = a;
  made_.b = b;
}

/// A field as it stands into another. False where that is no copy of words.
bool ActionCompiler::addField(const FieldSlot& slot, uint32_t field, const FieldSlot& from,
                              uint32_t source) {
  if (from.is_signed && slot.width > from.width) return false;  // the sign is spread
  if (slot.limbs == 1) {
    made_.op = Op::kCopyWord;
    made_.c = from.limb;
    return true;
  }
  simple(Op::kCopyField, field, source);
  return true;
}

void ActionCompiler::addParam(const FieldSlot& slot, uint32_t field, uint32_t param) {
  uint32_t offset = 0;
  for (uint32_t i = 0; i < param; ++i) offset += bytesOf(params_[i]);
  const uint32_t bytes = bytesOf(params_[param]);
  if (slot.limbs == 1) {
    made_.op = Op::kParamWord;
    const uint32_t used = std::min(bytes, 8U);
    made_.c = offset + bytes - used;
    made_.d = used;
    return;
  }
  simple(Op::kParamField, field, offset);
  made_.c = bytes;
}

/// The value as it stands, without arithmetic; false where there is some.
bool ActionCompiler::addPlain(const FieldSlot& slot, uint32_t field, const Expression& value) {
  if (value.size() != 1) return false;
  const ExprCode& code = value.front();
  if (code.op == ExprOp::kParam) {
    addParam(slot, field, code.a);
    return true;
  }
  return code.op == ExprOp::kField && addField(slot, field, machine_.layout.fields[code.a], code.a);
}

void ActionCompiler::add(const AssignStep& step) {
  made_.x = expression(step.value);
  made_.target = target(step.target);
  made_.op = Op::kAssign;
  const auto* const plain = std::get_if<FieldTarget>(&step.target);
  if (plain == nullptr) return;
  const FieldSlot& slot = machine_.layout.fields[plain->field];
  made_.a = slot.limb;
  made_.b = slot.header;
  made_.mask = maskOf(slot.width);
  if (addPlain(slot, plain->field, step.value)) {
    made_.x = nullptr;
    return;
  }
  if (slot.limbs != 1 || made_.x->arithmetic != CompiledExpression::Arithmetic::k64) return;
  if (made_.x->shape == CompiledExpression::Shape::kWord) {
    made_.op = Op::kCopyWord;
    made_.c = made_.x->code.front().a;
    made_.x = nullptr;
    return;
  }
  const CompiledExpression::Instruction& first = made_.x->code.front();
  if (first.code == CompiledExpression::Code::kImmediate && made_.x->code.size() == 2) {
    made_.op = Op::kSetWord;
    made_.mask &= static_cast<uint64_t>(first.immediate);
    made_.x = nullptr;
    return;
  }
  made_.op = Op::kStoreWord;
}

void ActionCompiler::add(const AssignVarbitStep& step) {
  simple(Op::kAssignVarbit, step.target, step.source);
}

void ActionCompiler::add(const AssignHeaderStep& step) {
  const uint32_t to = machine_.ref(step.target, params_);
  simple(Op::kAssignHeader, to, machine_.ref(step.source, params_));
}

void ActionCompiler::add(const AddHeaderStep& step) {
  simple(Op::kAddHeader, machine_.ref(step.header, params_), 0);
}

void ActionCompiler::add(const RemoveHeaderStep& step) {
  simple(Op::kRemoveHeader, machine_.ref(step.header, params_), 0);
}

void ActionCompiler::add(const MarkToDropStep& step) {
  simple(Op::kMarkToDrop, step.egress_spec, step.mcast_grp.value_or(kNoIndex));
}

void ActionCompiler::add(const JumpIfZeroStep& step) {
  simple(Op::kJumpIfZero, step.step, 0);
  made_.x = expression(step.condition);
}

void ActionCompiler::add(const HashStep& step) {
  simple(Op::kHash, step.calculation, 0);
  made_.x = expression(step.base);
  made_.y = expression(step.max);
  made_.target = target(step.target);
}

void ActionCompiler::add(const RandomStep& step) {
  simple(Op::kRandom, 0, 0);
  made_.x = expression(step.low);
  made_.y = expression(step.high);
  made_.target = target(step.target);
}

void ActionCompiler::add(const RegisterReadStep& step) {
  simple(Op::kRegisterRead, step.reg, 0);
  made_.x = expression(step.index);
  made_.target = target(step.target);
}

void ActionCompiler::add(const RegisterWriteStep& step) {
  simple(Op::kRegisterWrite, step.reg, 0);
  made_.x = expression(step.index);
  made_.y = expression(step.value);
}

void ActionCompiler::add(const CountStep& step) {
  simple(Op::kCount, step.counter, 0);
  made_.x = expression(step.index);
}

void ActionCompiler::add(const ExecuteMeterStep& step) {
  simple(Op::kExecuteMeter, step.meter, 0);
  made_.x = expression(step.index);
  made_.target = target(step.target);
}

void ActionCompiler::add(const CloneStep& step) {
  simple(Op::kClone, step.field_list.value_or(kNoIndex), 0);
  made_.x = expression(step.session);
}

void ActionCompiler::add(const TruncateStep& step) {
  simple(Op::kTruncate, 0, 0);
  made_.x = expression(step.bytes);
}

void ActionCompiler::add(const AssertStep& step) {
  simple(Op::kAssert, 0, 0);
  made_.x = expression(step.condition);
}

}  // namespace jxmodel
