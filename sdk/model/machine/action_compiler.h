// Steps of actions to compiled steps.
#pragma once

#include "model/machine/compiled_machine.h"

namespace jxmodel {

class ActionCompiler {
 public:
  /// `params` are the widths of the action's parameters.
  ActionCompiler(CompiledMachine& machine, const std::vector<uint32_t>& params)
      : machine_(machine), params_(params) {}

  CompiledActionStep compile(const MachineStep& source);

 private:
  using Op = CompiledActionStep::Op;

  void add(const AssignStep& step);
  void add(const AssignVarbitStep& step);
  void add(const AssignHeaderStep& step);
  void add(const AssignStackStep& step) { simple(Op::kAssignStack, step.target, step.source); }
  void add(const AssignUnionStep& step) { simple(Op::kAssignUnion, step.target, step.source); }
  void add(const AssignUnionStackStep& step) {
    simple(Op::kAssignUnionStack, step.target, step.source);
  }
  void add(const AddHeaderStep& step);
  void add(const RemoveHeaderStep& step);
  void add(const PushStep& step) { simple(Op::kPush, step.stack, step.count); }
  void add(const PopStep& step) { simple(Op::kPop, step.stack, step.count); }
  void add(const MarkToDropStep& step);
  void add(const JumpStep& step) { simple(Op::kJump, step.step, 0); }
  void add(const JumpIfZeroStep& step);
  void add(const ExitStep&) { simple(Op::kExit, 0, 0); }
  void add(const HashStep& step);
  void add(const RandomStep& step);
  void add(const RegisterReadStep& step);
  void add(const RegisterWriteStep& step);
  void add(const CountStep& step);
  void add(const ExecuteMeterStep& step);
  void add(const DigestStep& step) { simple(Op::kDigest, step.learn, 0); }
  void add(const CloneStep& step);
  void add(const ResubmitStep& step) {
    simple(Op::kResubmit, step.field_list.value_or(kNoIndex), 0);
  }
  void add(const RecirculateStep& step) {
    simple(Op::kRecirculate, step.field_list.value_or(kNoIndex), 0);
  }
  void add(const TruncateStep& step);
  void add(const LogStep&) { simple(Op::kLog, 0, 0); }
  void add(const AssertStep& step);

  void simple(Op op, uint32_t a, uint32_t b);
  bool addPlain(const FieldSlot& slot, uint32_t field, const Expression& value);
  bool addField(const FieldSlot& slot, uint32_t field, const FieldSlot& from, uint32_t source);
  void addParam(const FieldSlot& slot, uint32_t field, uint32_t param);
  const CompiledExpression* expression(const Expression& source) {
    return machine_.expression(source, params_);
  }
  uint32_t target(const Target& source) { return machine_.target(source, params_); }

  CompiledMachine& machine_;
  const std::vector<uint32_t>& params_;
  CompiledActionStep made_;
};

}  // namespace jxmodel
