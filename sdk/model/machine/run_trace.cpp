// What a run shows to somebody who asks.
#include "model/machine/machine_run.h"

namespace jxmodel {
namespace {

std::string hexOf(const uint64_t* limbs, uint32_t width) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::vector<uint8_t> bytes(std::max(1U, bytesOf(width)));
  limbsToBytes(limbs, limbsOf(width), bytes.data(), static_cast<uint32_t>(bytes.size()));
  std::string text = "0x";
  for (const uint8_t byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

Trace::Source sourceOf(const SourcePlace* place) {
  if (place == nullptr) return {};
  return {place->file, place->line, place->fragment};
}

/// "h.f := 0x0a".
struct StepText {
  std::string operator()(const MarkToDropStep&) const { return "mark to drop"; }
  std::string operator()(const ExitStep&) const { return "exit"; }
  std::string operator()(const LogStep& step) const { return "log: " + step.format; }
  std::string operator()(const DigestStep&) const { return "ask for a digest"; }
  std::string operator()(const ResubmitStep&) const { return "ask to resubmit"; }
  std::string operator()(const RecirculateStep&) const { return "ask to recirculate"; }
  template <typename Other>
  std::string operator()(const Other&) const {
    return {};
  }
};

}  // namespace

void MachineRun::traceEvent(std::string what) {
  Trace::Step& step = trace_->steps.emplace_back();
  step.kind = Trace::Step::Kind::kStep;
  step.what = std::move(what);
}

void MachineRun::traceState(const CompiledState& state) {
  std::string what = "parser state " + state.source->name;
  const char* separator = ": extract ";
  for (const uint32_t header : extracted_) {
    what += separator + machine_.machine.headers[header].name;
    separator = ", ";
  }
  traceEvent(std::move(what));
  trace_->steps.back().source = sourceOf(&state.source->place);
}

void MachineRun::traceParserError(uint32_t error) {
  for (const auto& [name, number] : machine_.machine.errors.names) {
    if (number == error) return traceEvent("parser error " + name);
  }
  traceEvent("parser error " + std::to_string(error));
}

std::string MachineRun::textOf(const CompiledActionStep& step) {
  using Op = CompiledActionStep::Op;
  switch (step.op) {
    case Op::kClone:
      return "ask to clone to session " + std::to_string(evaluator_.index(*step.x, input_));
    case Op::kTruncate:
      return "truncate to " + std::to_string(evaluator_.index(*step.x, input_)) + " bytes";
    case Op::kAssert:
      return evaluator_.isTrue(*step.x, input_) ? std::string{} : "assertion failed";
    case Op::kRegisterWrite: {
      const uint32_t width = registers_.array(step.a).width();
      std::vector<uint64_t> limbs(std::max(1U, limbsOf(width)));
      evaluator_.value(*step.y, input_, width, limbs.data());
      return "register " + machine_.machine.registers[step.a].name + '[' +
             std::to_string(evaluator_.index(*step.x, input_)) +
             "] := " + hexOf(limbs.data(), width);
    }
    default:
      return std::visit(StepText{}, *step.source);
  }
}

/// Only the steps that do more than compute.
void MachineRun::traceStep(const CompiledActionStep& step) {
  const MachineTally tally = tally_;
  std::string text = textOf(step);
  tally_ = tally;
  if (text.empty()) return;
  traceEvent(std::move(text));
  trace_->steps.back().source = sourceOf(step.place);
}

void MachineRun::traceTable(const CompiledTable& table, const CompiledNode& node,
                            const MatchTable::Applied& applied, const TableReader::Found& found) {
  Trace::Step& step = trace_->steps.emplace_back();
  step.what = table.state->table->name;
  step.source = sourceOf(&node.source->place);
  step.taken = applied.hit;
  step.entry_handle = applied.handle;
  step.member_handle = found.member_handle;
  step.group_handle = found.group_handle;
  if (found.action.action == nullptr) return;
  step.action = found.action.action->name;
  for (const Param& param : found.action.action->params) {
    const uint8_t* const value = found.action.params + param.offset;
    step.parameters.push_back({param.name, {value, value + bytesOf(param.width)}});
  }
}

void MachineRun::traceNode(const CompiledNode& node, bool is_condition, bool holds) {
  const SourcePlace& place = node.source->place;
  Trace::Step& step = trace_->steps.emplace_back();
  step.kind = is_condition ? Trace::Step::Kind::kBranch : Trace::Step::Kind::kStep;
  step.what = place.fragment.empty() ? node.source->name : place.fragment;
  step.taken = holds;
  step.source = sourceOf(&place);
}

}  // namespace jxmodel
