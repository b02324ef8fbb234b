// The parser. Functions that can fail return the number of the program's error, which is that of
// NoError where all is well.
#include "model/machine/machine_run.h"

namespace jxmodel {

/// From the packet's bytes to headers, with what the machine knows of the packet.
void MachineRun::parse() {
  const StandardSlots& standard = machine_.standard;
  facts_.payload = 0;
  put(standard.ingress_port, facts_.ingress_port);
  put(standard.instance_type, static_cast<uint64_t>(facts_.type));
  put(standard.packet_length, facts_.received);
  if (machine_.needs_time) put(standard.ingress_timestamp, timestamp());

  input_.data = frame_.data();
  input_.size = static_cast<uint32_t>(frame_.size());
  input_.offset = 0;
  input_.in_parser = true;
  const uint32_t error = runParser();
  input_.in_parser = false;
  input_.fault = ParserFault::kNone;
  facts_.payload = input_.offset;
  verifyChecksums();
  put(standard.parser_error, error);
  if (error == machine_.machine.errors.no_error) return;
  if (trace_ != nullptr) return traceParserError(error);
  countParserError(error);
}

uint32_t MachineRun::runParser() {
  const ParserErrors& errors = machine_.machine.errors;
  uint32_t at = machine_.machine.first_state.value_or(kNoIndex);
  for (uint32_t entered = 0; at != kNoIndex; ++entered) {
    if (entered == kMaxStates) return errors.parser_timeout;
    const CompiledState& state = machine_.parser[at];
    const uint32_t error = runState(state);
    if (error != errors.no_error) return error;
    if (state.transitions.empty() && state.key.empty()) break;  // nothing to choose: the end
    const CompiledTransition* const transition = choose(state);
    if (input_.fault != ParserFault::kNone) return errorOf(input_.fault);
    if (transition == nullptr) return errors.no_match;
    at = transition->next;
  }
  return errors.no_error;
}

uint32_t MachineRun::runState(const CompiledState& state) {
  extracted_.clear();
  uint32_t error = machine_.machine.errors.no_error;
  for (const CompiledParserOp& op : state.ops) {
    error = runOp(op);
    if (error != machine_.machine.errors.no_error) break;
  }
  if (trace_ != nullptr) traceState(state);
  return error;
}

uint32_t MachineRun::errorOf(ParserFault fault) const {
  const ParserErrors& errors = machine_.machine.errors;
  return fault == ParserFault::kPacketTooShort ? errors.packet_too_short
                                               : errors.stack_out_of_bounds;
}

uint32_t MachineRun::runOp(const CompiledParserOp& op) {
  const Machine& machine = machine_.machine;
  switch (op.op) {
    case CompiledParserOp::Op::kExtract:
      return extract(op.a, op.x);
    case CompiledParserOp::Op::kExtractNext: {
      const std::vector<uint32_t>& elements = machine.stacks[op.a].headers;
      const uint32_t next = state_.next[op.a];
      if (next >= elements.size()) return machine.errors.stack_out_of_bounds;
      const uint32_t error = extract(elements[next], op.x);
      if (error == machine.errors.no_error) state_.next[op.a] = next + 1;
      return error;
    }
    case CompiledParserOp::Op::kExtractUnionNext: {
      const std::vector<uint32_t>& elements = machine.union_stacks[op.a].unions;
      const uint32_t next = state_.union_next[op.a];
      if (next >= elements.size()) return machine.errors.stack_out_of_bounds;
      const uint32_t error = extract(machine.unions[elements[next]].headers[op.b], op.x);
      if (error == machine.errors.no_error) state_.union_next[op.a] = next + 1;
      return error;
    }
    case CompiledParserOp::Op::kVerify: {
      const bool holds = evaluator_.isTrue(*op.x, input_);
      if (input_.fault != ParserFault::kNone) return errorOf(input_.fault);
      return holds ? machine.errors.no_error
                   : static_cast<uint32_t>(evaluator_.low64(*op.y, input_));
    }
    case CompiledParserOp::Op::kAdvance:
      return advance(*op.x);
    case CompiledParserOp::Op::kStep:
      runStep(op.step, 0);
      return input_.fault == ParserFault::kNone ? machine.errors.no_error : errorOf(input_.fault);
  }
  return machine.errors.no_error;
}

/// Reads a number of bits that lie ahead in the packet: whole bytes, and not more than are left.
std::optional<uint32_t> MachineRun::readLength(const CompiledExpression& expression,
                                               uint64_t* bits) {
  const ParserErrors& errors = machine_.machine.errors;
  *bits = evaluator_.low64(expression, input_);
  if (input_.fault != ParserFault::kNone) return errorOf(input_.fault);
  if (*bits % 8 != 0) return errors.parser_invalid_argument;
  // A negative number is a huge one here. What has more than 64 bits needs a second look.
  const bool narrow = expression.arithmetic == CompiledExpression::Arithmetic::k64;
  if (!narrow) *bits = evaluator_.index(expression, input_);
  if (*bits / 8 > input_.size - input_.offset) return errors.packet_too_short;
  return std::nullopt;
}

uint32_t MachineRun::extract(uint32_t header, const CompiledExpression* varbit_bits) {
  const ParserErrors& errors = machine_.machine.errors;
  const HeaderSlot& slot = layout_.headers[header];
  const uint64_t left = input_.size - input_.offset;
  uint64_t bits = 0;  // of the varbit
  if (varbit_bits != nullptr) {
    if (const auto error = readLength(*varbit_bits, &bits)) return *error;
  }
  const uint64_t bytes = (slot.fixed_bits + bits) / 8;
  if (bytes > left) return errors.packet_too_short;
  if (varbit_bits != nullptr) {
    const bool fits = slot.varbit != kNoIndex && bits / 8 <= layout_.varbits[slot.varbit].max_bytes;
    if (!fits || bytes > machine_.machine.headers[header].max_bytes) return errors.header_too_short;
  }
  state_.add(layout_, header);
  machine_.plans[header].read(input_.data + input_.offset, static_cast<uint32_t>(bits), state_);
  input_.offset += static_cast<uint32_t>(bytes);
  if (trace_ != nullptr) extracted_.push_back(header);
  return errors.no_error;
}

uint32_t MachineRun::advance(const CompiledExpression& expression) {
  uint64_t bits = 0;
  if (const auto error = readLength(expression, &bits)) return *error;
  input_.offset += static_cast<uint32_t>(bits / 8);
  return machine_.machine.errors.no_error;
}

/// The first transition that matches; null if there is none, or the key cannot be read.
const CompiledTransition* MachineRun::choose(const CompiledState& state) {
  uint64_t key = 0;
  if (state.key_bytes > 8) {
    writeKey(state.key, scratch_.key.data());
  } else {
    for (const CompiledKeyPart& part : state.key) {
      const uint64_t value = part.kind == CompiledKeyPart::Kind::kWord
                                 ? state_.limbs[part.place]
                                 : evaluator_.low64(*part.x, input_) & maskOf(part.width);
      key = part.bytes == 8 ? value : key << 8 * part.bytes | value;
    }
  }
  if (input_.fault != ParserFault::kNone) return nullptr;
  for (const CompiledTransition& transition : state.transitions) {
    if (matches(state, transition, key)) return &transition;
  }
  return nullptr;
}

/// `key` is that of at most 8 bytes; a longer one is in the scratch memory.
bool MachineRun::matches(const CompiledState& state, const CompiledTransition& transition,
                         uint64_t key) {
  if (transition.kind == Transition::Kind::kDefault) return true;
  const bool is_short = state.key_bytes <= 8;
  const Transition& source = *transition.source;
  if (transition.kind == Transition::Kind::kValue) {
    if (is_short) return (key & transition.mask) == transition.value;
    for (size_t i = 0; i < state.key_bytes; ++i) {
      if (((scratch_.key[i] ^ source.value[i]) & source.mask[i]) != 0) return false;
    }
    return true;
  }
  std::vector<uint8_t> bytes(scratch_.key.begin(), scratch_.key.begin() + state.key_bytes);
  if (is_short && state.key_bytes != 0) storeBig(key, bytes.data(), state.key_bytes);
  for (size_t i = 0; i < source.mask.size() && i < bytes.size(); ++i) bytes[i] &= source.mask[i];
  return settings_.value_sets[source.value_set].has(bytes.data());
}

void MachineRun::countParserError(uint32_t error) {
  const auto& names = machine_.machine.errors.names;
  size_t at = 0;
  while (at < names.size() && names[at].second != error) ++at;
  machine_.parser_errors[at].fetch_add(1, std::memory_order_relaxed);
}

}  // namespace jxmodel
