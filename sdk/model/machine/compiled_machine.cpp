#include "model/machine/compiled_machine.h"

#include <algorithm>
#include <set>

#include "model/base/clock.h"
#include "model/base/wire_value.h"
#include "model/machine/action_compiler.h"

namespace jxmodel {
namespace {

uint64_t nextId() {
  static std::atomic<uint64_t> last{0};
  return ++last;
}

/// What the inputs of a calculation are made of.
struct CalculationInputs {
  const StateLayout& layout;
  std::vector<FieldPieces::Item> items;
  std::set<uint32_t> headers;
  uint32_t max_bits = 0;
  bool known = true;  // how many bits there are, where the headers are valid
  bool payload = false;

  explicit CalculationInputs(const StateLayout& of) : layout(of) {}

  void operator()(const FieldInput& input) { add(layout.fields[input.field]); }
  void operator()(const HeaderInput& input) {
    const MachineHeader& header = layout.machine.headers[input.header];
    for (uint32_t i = 0; i < header.field_count; ++i) add(layout.fields[header.first_field + i]);
    headers.insert(input.header);
  }
  void operator()(const ConstantInput& input) {
    max_bits += input.width;
    const std::vector<uint8_t>& value = input.value.magnitude;
    known = known && input.width <= 64;
    uint64_t fixed = 0;
    bytesToLimbs(value.data(), static_cast<uint32_t>(value.size()), &fixed, 1);
    items.push_back({input.width, kNoIndex, fixed & maskOf(input.width)});
  }
  void operator()(const PayloadInput&) { payload = true; }

  void add(const FieldSlot& slot) {
    max_bits += slot.width;
    known = known && slot.varbit == kNoIndex;
    items.push_back({slot.width, slot.limb, 0});
    headers.insert(slot.header);
  }
};

uint32_t orNone(const std::optional<uint32_t>& index) { return index.value_or(kNoIndex); }

}  // namespace

CompiledMachine::CompiledMachine(const Program& described, const std::vector<TableState*>& states,
                                 const TableReader& table_reader, MachineSettings& own_settings)
    : program(described),
      machine(*described.machine),
      layout(machine),
      reader(table_reader),
      settings(own_settings),
      id(nextId()),
      started(Clock::instance().now()),
      parser_errors(machine.errors.names.size() + 1),
      read_(machine.fields.size()) {
  for (uint32_t i = 0; i < machine.headers.size(); ++i) plans.emplace_back(layout, i);
  for (const FieldSlot& slot : layout.fields) max_limbs = std::max(max_limbs, slot.limbs);
  for (const MachineRegister& one : machine.registers) {
    max_limbs = std::max(max_limbs, limbsOf(one.width));
  }
  bindStandard();
  for (const MachineAction& source : machine.actions) {
    CompiledAction& action = actions.emplace_back();
    action.source = &source;
    ActionCompiler compiler(*this, source.param_widths);
    for (size_t i = 0; i < source.steps.size(); ++i) {
      action.steps.push_back(compiler.compile(source.steps[i]));
      if (i < source.places.size()) action.steps.back().place = &source.places[i];
    }
  }
  compileParser();
  compileNodes(states);
  for (const Calculation& source : machine.calculations) compileCalculation(source);
  for (const Checksum& source : machine.checksums) {
    checksums.push_back({&source, source.condition ? expression(*source.condition) : nullptr});
  }
  for (const MachineCounter& counter : machine.counters) {
    counters.push_back(states[counter.table]->counters.get());
  }
  findTimeReaders();
}

const CompiledExpression* CompiledMachine::expression(const Expression& source,
                                                      const std::vector<uint32_t>& params) {
  for (const ExprCode& code : source) {
    if (code.op == ExprOp::kField) read_[code.a] = true;
  }
  expressions_.push_back(ExpressionCompiler(layout).compile(source, params));
  depth = std::max(depth, expressions_.back().depth);
  return &expressions_.back();
}

uint32_t CompiledMachine::target(const Target& source, const std::vector<uint32_t>& params) {
  CompiledTarget made;
  if (const auto* field = std::get_if<FieldTarget>(&source)) {
    made.field = field->field;
  } else if (const auto* last = std::get_if<StackLastTarget>(&source)) {
    made.kind = CompiledTarget::Kind::kStackLast;
    made.stack = last->stack;
    made.field = last->field_number;
  } else {
    const auto& element = std::get<ElementTarget>(source);
    made.kind = CompiledTarget::Kind::kElement;
    made.stack = element.stack;
    made.field = element.field_number;
    made.index = expression(element.index, params);
  }
  targets.push_back(made);
  return static_cast<uint32_t>(targets.size()) - 1;
}

uint32_t CompiledMachine::ref(const HeaderRef& source, const std::vector<uint32_t>& params) {
  CompiledHeaderRef made;
  if (const auto* header = std::get_if<uint32_t>(&source)) {
    made.header = *header;
  } else {
    const auto& element = std::get<HeaderElement>(source);
    made.stack = element.stack;
    made.index = expression(element.index, params);
  }
  refs.push_back(made);
  return static_cast<uint32_t>(refs.size()) - 1;
}

CompiledKeyPart CompiledMachine::keyPart(const Expression& source, uint32_t width) {
  CompiledKeyPart part;
  part.x = expression(source);
  part.width = width;
  part.bytes = bytesOf(width);
  max_limbs = std::max(max_limbs, limbsOf(width));
  using Kind = CompiledKeyPart::Kind;
  if (part.x->shape == CompiledExpression::Shape::kHeaderValid) {
    part.kind = Kind::kHeaderValid;
    part.place = part.x->code.front().a;
  }
  if (source.size() != 1 || source.front().op != ExprOp::kField) return part;
  const FieldSlot& slot = layout.fields[source.front().a];
  if (slot.width != width) return part;
  part.kind = slot.limbs == 1 ? Kind::kWord : Kind::kField;
  part.place = slot.limbs == 1 ? slot.limb : source.front().a;
  return part;
}

StandardSlot CompiledMachine::slotOf(const std::optional<uint32_t>& field) const {
  if (!field) return {};
  const FieldSlot& slot = layout.fields[*field];
  return {slot.limb, maskOf(slot.width)};
}

void CompiledMachine::bindStandard() {
  const StandardFields& fields = machine.standard;
  standard.ingress_port = slotOf(fields.ingress_port);
  standard.egress_spec = slotOf(fields.egress_spec);
  standard.egress_port = slotOf(fields.egress_port);
  standard.instance_type = slotOf(fields.instance_type);
  standard.packet_length = slotOf(fields.packet_length);
  standard.ingress_timestamp = slotOf(fields.ingress_global_timestamp);
  standard.egress_timestamp = slotOf(fields.egress_global_timestamp);
  standard.mcast_grp = slotOf(fields.mcast_grp);
  standard.egress_rid = slotOf(fields.egress_rid);
  standard.checksum_error = slotOf(fields.checksum_error);
  standard.parser_error = slotOf(fields.parser_error);
}

// --- parser

void CompiledMachine::compileParser() {
  for (const ParserState& source : machine.states) {
    CompiledState& state = parser.emplace_back();
    state.source = &source;
    for (const ParserOp& op : source.ops) compileOp(op, &state);
    for (const KeyPart& part : source.key) {
      state.key.push_back(keyPart(part.value, part.width));
      state.key_bytes += state.key.back().bytes;
    }
    max_key_bytes = std::max(max_key_bytes, state.key_bytes);
    for (const Transition& one : source.transitions) compileTransition(one, &state);
  }
}

void CompiledMachine::compileOp(const ParserOp& source, CompiledState* state) {
  using Op = CompiledParserOp::Op;
  CompiledParserOp& op = state->ops.emplace_back();
  if (const auto* extract = std::get_if<Extract>(&source)) {
    if (const auto* header = std::get_if<ExtractHeader>(&extract->what)) {
      op.op = Op::kExtract;
      op.a = header->header;
    } else if (const auto* next = std::get_if<ExtractNext>(&extract->what)) {
      op.op = Op::kExtractNext;
      op.a = next->stack;
    } else {
      const auto& member = std::get<ExtractUnionNext>(extract->what);
      op.op = Op::kExtractUnionNext;
      op.a = member.stack;
      op.b = member.member;
    }
    if (extract->varbit_bits) op.x = expression(*extract->varbit_bits);
  } else if (const auto* verify = std::get_if<Verify>(&source)) {
    op.op = Op::kVerify;
    op.x = expression(verify->condition);
    op.y = expression(verify->error);
  } else if (const auto* advance = std::get_if<Advance>(&source)) {
    op.op = Op::kAdvance;
    op.x = expression(advance->bits);
  } else {
    op.step = ActionCompiler(*this, {}).compile(std::get<MachineStep>(source));
  }
}

void CompiledMachine::compileTransition(const Transition& source, CompiledState* state) {
  CompiledTransition& made = state->transitions.emplace_back();
  made.kind = source.kind;
  made.source = &source;
  made.next = orNone(source.next);
  if (source.kind != Transition::Kind::kValue || state->key_bytes > 8) return;
  made.mask = readNumber(source.mask.data(), static_cast<uint32_t>(source.mask.size()));
  made.value =
      made.mask & readNumber(source.value.data(), static_cast<uint32_t>(source.value.size()));
}

// --- control flow

FieldPieces CompiledMachine::keyPieces(const std::vector<CompiledKeyPart>& key) const {
  std::vector<FieldPieces::Item> items;
  for (const CompiledKeyPart& part : key) {
    if (part.kind == CompiledKeyPart::Kind::kWord) {
      items.push_back({part.bytes * 8, part.place, 0});
    } else if (part.kind == CompiledKeyPart::Kind::kField) {
      items.push_back({part.bytes * 8, layout.fields[part.place].limb, 0});
    } else {
      return {};
    }
  }
  return {items, false};
}

void CompiledMachine::compileNodes(const std::vector<TableState*>& states) {
  for (const MachineNode& source : machine.nodes) {
    CompiledNode& node = nodes.emplace_back();
    node.source = &source;
    if (const auto* table = std::get_if<TableNode>(&source.node)) {
      node.kind = CompiledNode::Kind::kTable;
      node.index = static_cast<uint32_t>(tables.size());
      compileTable(*table, states);
    } else if (const auto* call = std::get_if<CallNode>(&source.node)) {
      node.kind = CompiledNode::Kind::kCall;
      node.index = static_cast<uint32_t>(calls.size());
      compileCall(*call);
    } else {
      const auto& condition = std::get<ConditionNode>(source.node);
      node.kind = CompiledNode::Kind::kCondition;
      node.index = static_cast<uint32_t>(conditions.size());
      conditions.push_back(
          {expression(condition.condition), orNone(condition.on_true), orNone(condition.on_false)});
    }
  }
}

void CompiledMachine::compileTable(const TableNode& source,
                                   const std::vector<TableState*>& states) {
  CompiledTable& made = tables.emplace_back();
  const Table& table = program.tables[source.table];
  made.state = states[source.table];
  if (table.default_action) made.default_action = &*table.default_action;
  bool masked = false;
  for (size_t i = 0; i < source.key.size(); ++i) {
    made.key.push_back(keyPart(source.key[i], table.key[i].width));
    made.key_bytes += made.key.back().bytes;
    const bool has_mask = i < source.key_masks.size() && !source.key_masks[i].empty();
    masked = masked || has_mask;
    std::vector<uint8_t> mask(made.key.back().bytes, 0xFF);
    if (has_mask) std::copy(source.key_masks[i].begin(), source.key_masks[i].end(), mask.begin());
    made.mask.insert(made.mask.end(), mask.begin(), mask.end());
  }
  if (!masked) made.mask.clear();
  made.key_pieces = keyPieces(made.key);
  max_key_bytes = std::max(max_key_bytes, made.key_bytes);
  for (size_t i = 0; i < source.actions.size(); ++i) {
    made.actions.push_back({&program.actions[table.actions[i]], &actions[source.actions[i].action],
                            orNone(source.actions[i].next)});
  }
  made.ages = table.idle_timeout;
  made.by_hit = source.by_hit;
  made.on_hit = orNone(source.on_hit);
  made.on_miss = orNone(source.on_miss);
  made.base_next = orNone(source.base_next);
  made.selector = orNone(source.selector);
  if (source.direct_meter) {
    made.direct_meter = *source.direct_meter;
    const MachineMeter& meter = machine.meters[*source.direct_meter];
    if (meter.result) made.meter_target = target(*meter.result);
  }
}

void CompiledMachine::compileCall(const CallNode& source) {
  CompiledCall& made = calls.emplace_back();
  made.next = orNone(source.next);
  if (!source.action) return;
  made.action = &actions[*source.action];
  for (const std::vector<uint8_t>& param : source.params) {
    made.params.insert(made.params.end(), param.begin(), param.end());
  }
}

// --- calculations

void CompiledMachine::compileCalculation(const Calculation& source) {
  CompiledCalculation& made = calculations.emplace_back();
  CalculationInputs inputs(layout);
  for (const auto& input : source.inputs) std::visit(inputs, input);
  // The payload follows behind the last bit, not behind padding.
  if (inputs.known) made.pieces = FieldPieces(inputs.items, !inputs.payload);
  made.headers.assign(inputs.headers.begin(), inputs.headers.end());
  made.max_bytes = (inputs.max_bits + 7) / 8;
  made.payload = inputs.payload;
}

/// Asking for the time costs as much as several steps, so packets do it only for somebody.
void CompiledMachine::findTimeReaders() {
  const auto reads = [this](const std::optional<uint32_t>& field) {
    return field && read_[*field];
  };
  const auto mark = [this](const std::vector<uint32_t>& fields) {
    for (const uint32_t field : fields) read_[field] = true;
  };
  for (const MachineLearn& learn : machine.learns) mark(learn.fields);
  for (const FieldList& list : machine.field_lists) mark(list.fields);
  for (const Calculation& calculation : machine.calculations) {
    for (const auto& input : calculation.inputs) {
      if (const auto* field = std::get_if<FieldInput>(&input)) read_[field->field] = true;
      const auto* const header = std::get_if<HeaderInput>(&input);
      if (header != nullptr && header->header == machine.standard.header) needs_time = true;
    }
  }
  for (const CompiledHeaderRef& one : refs) {
    if (one.index == nullptr && one.header == machine.standard.header) needs_time = true;
  }
  needs_time = needs_time || reads(machine.standard.ingress_global_timestamp) ||
               reads(machine.standard.egress_global_timestamp);
}

const char* nameOf(MachineEvent event) {
  switch (event) {
    case MachineEvent::kIndexOutOfRange:
      return "index out of range";
    case MachineEvent::kDivisionByZero:
      return "division by zero";
    case MachineEvent::kNegativeShift:
      return "shift by a negative amount";
    case MachineEvent::kAssertionFailed:
      return "failed assertion";
    case MachineEvent::kUnknownGroup:
      return "multicast group without ports";
    case MachineEvent::kUnknownSession:
      return "unknown clone session";
    case MachineEvent::kTooManySteps:
      return "too many steps";
    case MachineEvent::kTooManyGenerations:
      return "cut off after too many generations";
    case MachineEvent::kCloned:
      return "cloned";
    case MachineEvent::kReplicated:
      return "replicated";
    case MachineEvent::kResubmitted:
      return "resubmitted";
    case MachineEvent::kRecirculated:
      return "recirculated";
  }
  return "unknown";
}

}  // namespace jxmodel
