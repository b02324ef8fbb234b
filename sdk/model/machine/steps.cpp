// The steps of actions.
#include "model/machine/machine_run.h"

namespace jxmodel {

void MachineRun::runAction(const CompiledAction& action, const uint8_t* params) {
  input_.params = params;
  const CompiledActionStep* const steps = action.steps.data();
  const auto end = static_cast<uint32_t>(action.steps.size());
  for (uint32_t at = 0; at < end;) {
    const CompiledActionStep& step = steps[at];
    cost_left_ -= step.cost;
    if (cost_left_ < 0) {
      tally_.add(MachineEvent::kTooManySteps);
      stopped_ = exited_ = true;
      return;
    }
    if (trace_ != nullptr) traceStep(step);
    if (step.op <= CompiledActionStep::kLastOfWords) {
      runWordStep(step);
      ++at;
      continue;
    }
    at = runStep(step, at);
    if (exited_) return;
  }
}

/// An assignment of the usual kind. A write to a field of an invalid header is lost.
inline void MachineRun::runWordStep(const CompiledActionStep& step) {
  using Op = CompiledActionStep::Op;
  uint64_t value = 0;
  switch (step.op) {
    case Op::kCopyWord:
      value = state_.limbs[step.c];
      break;
    case Op::kParamWord:
      value = loadBig(input_.params + step.c, step.d);
      break;
    case Op::kStoreWord:
      value = evaluator_.low64(*step.x, input_);
      if (input_.fault != ParserFault::kNone) return;
      break;
    default:  // kSetWord
      value = step.mask;
      break;
  }
  if (state_.valid[step.b] != 0) state_.limbs[step.a] = value & step.mask;
}

uint32_t MachineRun::runStep(const CompiledActionStep& step, uint32_t at) {
  using Op = CompiledActionStep::Op;
  uint64_t* const limbs = state_.limbs.data();
  const uint32_t next = at + 1;
  switch (step.op) {
    case Op::kSetWord:
    case Op::kCopyWord:
    case Op::kParamWord:
    case Op::kStoreWord:
      runWordStep(step);
      return next;
    case Op::kCopyField: {
      const FieldSlot& slot = layout_.fields[step.a];
      if (state_.valid[slot.header] == 0) return next;
      const FieldSlot& from = layout_.fields[step.b];
      const uint32_t count = std::min(slot.limbs, from.limbs);
      std::copy_n(limbs + from.limb, count, limbs + slot.limb);
      std::fill_n(limbs + slot.limb + count, slot.limbs - count, uint64_t{0});
      cutTop(limbs + slot.limb, slot.width);
      return next;
    }
    case Op::kParamField: {
      const FieldSlot& slot = layout_.fields[step.a];
      if (state_.valid[slot.header] == 0) return next;
      bytesToLimbs(input_.params + step.b, step.c, limbs + slot.limb, slot.limbs);
      cutTop(limbs + slot.limb, slot.width);
      return next;
    }
    case Op::kAssign:
      assign(step);
      return next;
    case Op::kAssignVarbit: {
      const FieldSlot& slot = layout_.fields[step.a];
      if (state_.valid[slot.header] == 0) return next;
      state_.copyVarbit(layout_, slot.varbit, layout_.fields[step.b].varbit);
      return next;
    }
    case Op::kAssignHeader:
      copyHeader(step.a, step.b);
      return next;
    case Op::kAssignStack:
      state_.copyStack(layout_, step.a, step.b);
      return next;
    case Op::kAssignUnion:
      state_.copyUnion(layout_, step.a, step.b);
      return next;
    case Op::kAssignUnionStack:
      state_.copyUnionStack(layout_, step.a, step.b);
      return next;
    case Op::kAddHeader: {
      const uint32_t header = headerOf(step.a);
      if (header != kNoIndex) state_.add(layout_, header);
      return next;
    }
    case Op::kRemoveHeader: {
      const uint32_t header = headerOf(step.a);
      if (header != kNoIndex) state_.makeInvalid(layout_, header);
      return next;
    }
    case Op::kPush:
      state_.push(layout_, step.a, step.b);
      return next;
    case Op::kPop:
      state_.pop(layout_, step.a, step.b);
      return next;
    case Op::kMarkToDrop:
      markToDrop(step);
      return next;
    case Op::kJump:
      return step.a;
    case Op::kJumpIfZero:
      return evaluator_.isTrue(*step.x, input_) ? next : step.a;
    case Op::kExit:
      exited_ = true;
      return next;
    case Op::kHash:
      hash(step);
      return next;
    case Op::kRandom:
      random(step);
      return next;
    case Op::kRegisterRead:
      readRegister(step);
      return next;
    case Op::kRegisterWrite:
      writeRegister(step);
      return next;
    case Op::kCount:
      countInto(step);
      return next;
    case Op::kExecuteMeter:
      executeMeter(step);
      return next;
    case Op::kDigest:
      requests_.digest = step.a;
      return next;
    case Op::kClone:
      requests_.clone = {evaluator_.index(*step.x, input_), step.a};
      return next;
    case Op::kResubmit:
      requests_.resubmit = step.a;
      return next;
    case Op::kRecirculate:
      requests_.recirculate = step.a;
      return next;
    case Op::kTruncate: {
      const uint64_t bytes = evaluator_.index(*step.x, input_);
      if (bytes < requests_.max_bytes) requests_.max_bytes = static_cast<uint32_t>(bytes);
      return next;
    }
    case Op::kLog:
      return next;
    case Op::kAssert:
      if (!evaluator_.isTrue(*step.x, input_)) tally_.add(MachineEvent::kAssertionFailed);
      return next;
  }
  return next;
}

/// The field that a target is now; kNoIndex where a write to it is lost.
uint32_t MachineRun::fieldOf(const CompiledTarget& target) {
  const Machine& machine = machine_.machine;
  uint32_t field = target.field;
  if (target.kind != CompiledTarget::Kind::kField) {
    const std::vector<uint32_t>& elements = machine.stacks[target.stack].headers;
    uint64_t index = 0;
    if (target.kind == CompiledTarget::Kind::kElement) {
      index = evaluator_.index(*target.index, input_);
    } else if (state_.next[target.stack] == 0) {
      if (input_.in_parser) input_.fault = ParserFault::kStackOutOfBounds;
      return kNoIndex;
    } else {
      index = state_.next[target.stack] - 1;
    }
    if (index >= elements.size()) {
      tally_.add(MachineEvent::kIndexOutOfRange);
      return kNoIndex;
    }
    field = machine.headers[elements[index]].first_field + target.field;
  }
  return state_.valid[layout_.fields[field].header] != 0 ? field : kNoIndex;
}

/// Values are cut to `width` bits; they are those of the target, or narrower and not negative.
void MachineRun::store(uint32_t target, const uint64_t* limbs, uint32_t width) {
  const uint32_t field = fieldOf(machine_.targets[target]);
  if (field == kNoIndex) return;
  const FieldSlot& slot = layout_.fields[field];
  const uint32_t count = std::min(slot.limbs, limbsOf(width));
  uint64_t* const to = state_.limbs.data() + slot.limb;
  std::copy_n(limbs, count, to);
  std::fill_n(to + count, slot.limbs - count, uint64_t{0});
  cutTop(to, slot.width);
}

void MachineRun::store64(uint32_t target, uint64_t value) { store(target, &value, 64); }

void MachineRun::assign(const CompiledActionStep& step) {
  const CompiledTarget& target = machine_.targets[step.target];
  uint32_t field = target.field;
  if (target.kind != CompiledTarget::Kind::kField) {
    field += machine_.machine.headers[machine_.machine.stacks[target.stack].headers[0]].first_field;
  }
  const uint32_t width = layout_.fields[field].width;
  evaluator_.value(*step.x, input_, width, scratch_.limbs.data());
  if (input_.fault == ParserFault::kNone) store(step.target, scratch_.limbs.data(), width);
}

/// The header that is meant now; kNoIndex beyond a stack.
uint32_t MachineRun::headerOf(uint32_t ref) {
  const CompiledHeaderRef& meant = machine_.refs[ref];
  if (meant.index == nullptr) return meant.header;
  const std::vector<uint32_t>& elements = machine_.machine.stacks[meant.stack].headers;
  const uint64_t index = evaluator_.index(*meant.index, input_);
  if (index < elements.size()) return elements[index];
  tally_.add(MachineEvent::kIndexOutOfRange);
  return kNoIndex;
}

/// An element beyond a stack is an invalid header.
void MachineRun::copyHeader(uint32_t target, uint32_t source) {
  const uint32_t to = headerOf(target);
  const uint32_t from = headerOf(source);
  if (to == kNoIndex) return;
  if (from == kNoIndex) return state_.makeInvalid(layout_, to);
  state_.copy(layout_, to, from);
}

void MachineRun::markToDrop(const CompiledActionStep& step) {
  const FieldSlot& egress_spec = layout_.fields[step.a];
  if (state_.valid[egress_spec.header] == 0) return;
  state_.limbs[egress_spec.limb] = kDropPort & maskOf(egress_spec.width);
  if (step.b != kNoIndex) state_.limbs[layout_.fields[step.b].limb] = 0;
}

void MachineRun::hash(const CompiledActionStep& step) {
  const uint64_t base = evaluator_.low64(*step.x, input_);
  const uint64_t max = evaluator_.low64(*step.y, input_);
  const uint64_t value = calculate(step.a);
  store64(step.target, base + (max == 0 ? 0 : value % max));
}

void MachineRun::random(const CompiledActionStep& step) {
  const Wide low = evaluator_.wide(*step.x, input_);
  const Wide high = evaluator_.wide(*step.y, input_);
  if (low > high) return;
  RandomNumbers& numbers = asked_random_ ? *asked_random_ : settings_.random;
  const Wide last = high - low;
  Wide drawn;
  if (last <= UINT64_MAX) {
    drawn = numbers.upTo(last.convert_to<uint64_t>());
  } else {
    // One word more than the range has: then its lowest numbers are hardly likelier.
    std::vector<uint64_t> words(msb(last) / 64 + 2);
    for (uint64_t& word : words) word = numbers.next();
    drawn = wideOf(words.data(), static_cast<uint32_t>(words.size()));
    drawn %= last + 1;
  }
  toLimbs(low + drawn, scratch_.limbs.data(), machine_.max_limbs);
  store(step.target, scratch_.limbs.data(), machine_.max_limbs * 64);
}

void MachineRun::readRegister(const CompiledActionStep& step) {
  const RegisterArray& array = registers_.array(step.a);
  const uint64_t index = evaluator_.index(*step.x, input_);
  if (index >= array.size()) return tally_.add(MachineEvent::kIndexOutOfRange);
  registers_.read(step.a, static_cast<uint32_t>(index), scratch_.limbs.data());
  store(step.target, scratch_.limbs.data(), array.width());
}

void MachineRun::writeRegister(const CompiledActionStep& step) {
  const RegisterArray& array = registers_.array(step.a);
  const uint64_t index = evaluator_.index(*step.x, input_);
  if (index >= array.size()) return tally_.add(MachineEvent::kIndexOutOfRange);
  evaluator_.value(*step.y, input_, array.width(), scratch_.limbs.data());
  registers_.write(step.a, static_cast<uint32_t>(index), scratch_.limbs.data());
}

void MachineRun::countInto(const CompiledActionStep& step) {
  CounterTable* const counters = machine_.counters[step.a];
  const uint64_t index = evaluator_.index(*step.x, input_);
  if (index > UINT32_MAX || counters == nullptr || index >= counters->size()) {
    return tally_.add(MachineEvent::kIndexOutOfRange);
  }
  if (trace_ == nullptr) counters->count(static_cast<uint32_t>(index), facts_.received);
}

void MachineRun::executeMeter(const CompiledActionStep& step) {
  const uint64_t index = evaluator_.index(*step.x, input_);
  if (index >= settings_.meters[step.a].size()) {
    return tally_.add(MachineEvent::kIndexOutOfRange);
  }
  const Colour colour = meter(step.a, static_cast<uint32_t>(index));
  store64(step.target, static_cast<uint64_t>(colour));
}

Colour MachineRun::meter(uint32_t number, uint32_t index) {
  MeterArray& cells = settings_.meters[number];
  if (!cells.limits()) return Colour::kGreen;
  return trace_ == nullptr ? cells.execute(index, facts_.received, now())
                           : cells.ask(index, facts_.received, now());
}

}  // namespace jxmodel
