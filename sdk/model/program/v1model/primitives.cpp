#include "model/program/v1model/primitives.h"

#include <algorithm>

#include "model/program/v1model/values.h"

namespace jxmodel::v1model {
namespace {

/// A primitive with all that its readers need.
struct Call {
  const Node& node;
  std::vector<Node> params;
  const Scope& scope;
  size_t step, steps;
  Draft* draft;

  Expression expression(size_t param) const { return readExpression(params[param], scope, draft); }
  Target target(size_t param) const { return readTarget(params[param], scope, draft); }
  HeaderRef header(size_t param) const { return readHeaderRef(params[param], scope, draft); }

  /// Index of what a parameter of this type names.
  uint32_t named(size_t param, const char* type, const Names& names) const {
    const Node inner = unwrapped(params[param]);
    if (typeOf(inner) != type) {
      inner.fail("must be a " + std::string(type) + ", not " + shown(typeOf(inner)));
    }
    return names.resolve(inner.at("value"));
  }

  uint32_t constant(size_t param, const char* what, uint32_t max) const {
    const Node inner = unwrapped(params[param]);
    if (typeOf(inner) != "hexstr") inner.fail("must be a constant");
    return readSmallHex(inner.at("value"), what, max);
  }

  /// An index that is known must lie in the array; another one is checked when a packet comes.
  Expression index(size_t param, const std::string& array, uint32_t size) const {
    const auto known = constantOf(params[param]);
    if (known && (known->negative || bitsOf(*known) > 32 || !below(*known, size))) {
      params[param].fail("index " + textOf(*known) + " is outside " + array + ", which has " +
                         std::to_string(size) + " cells");
    }
    return expression(param);
  }

 private:
  static bool below(const Number& number, uint32_t size) {
    uint64_t value = 0;
    for (const uint8_t byte : number.magnitude) value = value << 8 | byte;
    return value < size;
  }
};

// --- assignments

MachineStep assign(const Call& call) {
  return readAssign(call.params[0], call.params[1], call.scope, call.draft);
}

MachineStep assignVarbit(const Call& call) {
  const auto target = varbitOf(call.params[0], *call.draft);
  const auto source = varbitOf(call.params[1], *call.draft);
  if (!target) call.params[0].fail("must be a varbit");
  if (!source) call.params[1].fail("must be a varbit");
  return AssignVarbitStep{*target, *source};
}

uint32_t typeOfRef(const HeaderRef& ref, const Draft& draft) {
  const auto* const element = std::get_if<HeaderElement>(&ref);
  const uint32_t header = element == nullptr ? std::get<uint32_t>(ref)
                                             : draft.machine.stacks[element->stack].headers.front();
  return draft.symbols.type_of[header];
}

MachineStep assignHeader(const Call& call) {
  AssignHeaderStep step{call.header(0), call.header(1)};
  if (typeOfRef(step.target, *call.draft) != typeOfRef(step.source, *call.draft)) {
    call.node.fail("the headers have different types");
  }
  return step;
}

uint32_t typeOfStack(uint32_t stack, const Draft& draft) {
  return draft.symbols.type_of[draft.machine.stacks[stack].headers.front()];
}

MachineStep assignStack(const Call& call) {
  const Draft& draft = *call.draft;
  const Names& names = draft.symbols.stacks.names;
  const AssignStackStep step{call.named(0, "header_stack", names),
                             call.named(1, "header_stack", names)};
  const auto& stacks = draft.machine.stacks;
  if (typeOfStack(step.target, draft) != typeOfStack(step.source, draft) ||
      stacks[step.target].headers.size() != stacks[step.source].headers.size()) {
    call.node.fail("the header stacks have different types");
  }
  return step;
}

MachineStep assignUnion(const Call& call) {
  const Symbols& symbols = call.draft->symbols;
  const AssignUnionStep step{call.named(0, "header_union", symbols.unions.names),
                             call.named(1, "header_union", symbols.unions.names)};
  if (symbols.type_of_union[step.target] != symbols.type_of_union[step.source]) {
    call.node.fail("the header unions have different types");
  }
  return step;
}

MachineStep assignUnionStack(const Call& call) {
  const Symbols& symbols = call.draft->symbols;
  const AssignUnionStackStep step{call.named(0, "header_union_stack", symbols.union_stacks.names),
                                  call.named(1, "header_union_stack", symbols.union_stacks.names)};
  const auto& target = call.draft->machine.union_stacks[step.target].unions;
  const auto& source = call.draft->machine.union_stacks[step.source].unions;
  if (symbols.type_of_union[target.front()] != symbols.type_of_union[source.front()] ||
      target.size() != source.size()) {
    call.node.fail("the header union stacks have different types");
  }
  return step;
}

// --- headers

MachineStep addHeader(const Call& call) { return AddHeaderStep{call.header(0)}; }

MachineStep removeHeader(const Call& call) { return RemoveHeaderStep{call.header(0)}; }

// How many elements a push or a pop moves; older files leave the count out.
template <typename Step>
MachineStep moveStack(const Call& call) {
  const uint32_t stack = call.named(0, "header_stack", call.draft->symbols.stacks.names);
  const uint32_t count = call.params.size() < 2 ? 1 : call.constant(1, "count", UINT32_MAX);
  const auto size = static_cast<uint32_t>(call.draft->machine.stacks[stack].headers.size());
  return Step{stack, std::min(count, size)};
}

// The struct that the program names may be a copy of the standard metadata.
MachineStep markToDrop(const Call& call) {
  const Machine& machine = call.draft->machine;
  const uint32_t header = call.params.empty()
                              ? machine.standard.header
                              : call.named(0, "header", call.draft->symbols.headers.names);
  const auto& numbers = call.draft->symbols.types[call.draft->symbols.type_of[header]].numbers;
  const uint32_t first = machine.headers[header].first_field;
  const auto egress_spec = numbers.find("egress_spec");
  if (egress_spec == numbers.end()) {
    call.node.fail("header " + shown(machine.headers[header].name) + " has no field egress_spec");
  }
  MarkToDropStep step{first + egress_spec->second, std::nullopt};
  const auto group = numbers.find("mcast_grp");
  if (group != numbers.end()) {
    step.mcast_grp = first + group->second;
  } else if (header == machine.standard.header) {
    step.mcast_grp = machine.standard.mcast_grp;
  }
  return step;
}

// --- control

uint32_t readJump(const Call& call, size_t param) {
  const uint32_t step = call.constant(param, "jump", UINT32_MAX);
  if (step > call.steps) {
    call.params[param].fail("jump to " + std::to_string(step) + ", but it has " +
                            std::to_string(call.steps) + " steps");
  }
  return step;
}

void refuseInParser(const Call& call) {
  if (call.scope.parser)
    call.node.fail("primitive " + call.node.at("op").string() + " is for actions only");
}

MachineStep jump(const Call& call) {
  refuseInParser(call);
  return JumpStep{readJump(call, 0)};
}

MachineStep jumpIfZero(const Call& call) {
  refuseInParser(call);
  return JumpIfZeroStep{call.expression(0), readJump(call, 1)};
}

MachineStep exitPipeline(const Call& call) {
  refuseInParser(call);
  return ExitStep{};
}

// Steps keep their numbers, which jumps name.
MachineStep nothing(const Call& call) { return JumpStep{static_cast<uint32_t>(call.step) + 1}; }

// --- values that others compute

MachineStep hash(const Call& call) {
  return HashStep{call.target(0), call.expression(1),
                  call.named(2, "calculation", call.draft->symbols.calculations.names),
                  call.expression(3)};
}

MachineStep randomValue(const Call& call) {
  return RandomStep{call.target(0), call.expression(1), call.expression(2)};
}

// Old forms: target, operand, or target and two operands.
template <ExprOp kOp>
MachineStep compute(const Call& call) {
  const bool in_place = call.params.size() == 2;
  Expression value = call.expression(in_place ? 0 : 1);
  const Expression right = call.expression(in_place ? 1 : 2);
  value.insert(value.end(), right.begin(), right.end());
  value.push_back({kOp, 0, 0});
  return AssignStep{call.target(0), std::move(value)};
}

// --- what stays from packet to packet

MachineStep registerRead(const Call& call) {
  const uint32_t reg = call.named(1, "register_array", call.draft->symbols.registers.names);
  const MachineRegister& array = call.draft->machine.registers[reg];
  return RegisterReadStep{call.target(0), reg,
                          call.index(2, "register " + shown(array.name), array.size)};
}

MachineStep registerWrite(const Call& call) {
  const uint32_t reg = call.named(0, "register_array", call.draft->symbols.registers.names);
  const MachineRegister& array = call.draft->machine.registers[reg];
  return RegisterWriteStep{reg, call.index(1, "register " + shown(array.name), array.size),
                           call.expression(2)};
}

void refuseDirect(const Call& call, const DeclaredArray& array) {
  if (array.binding) call.node.fail(shown(array.name) + " belongs to the entries of a table");
}

MachineStep count(const Call& call) {
  const uint32_t counter = call.named(0, "counter_array", call.draft->symbols.counters.names);
  const DeclaredArray& array = call.draft->counters[counter];
  refuseDirect(call, array);
  return CountStep{counter, call.index(1, "counter " + shown(array.name), array.size)};
}

MachineStep executeMeter(const Call& call) {
  const uint32_t meter = call.named(0, "meter_array", call.draft->symbols.meters.names);
  const DeclaredArray& array = call.draft->meters[meter];
  refuseDirect(call, array);
  return ExecuteMeterStep{meter, call.index(1, "meter " + shown(array.name), array.size),
                          call.target(2)};
}

// --- packets

MachineStep digest(const Call& call) {
  const uint32_t id = call.constant(1, "learn list", UINT32_MAX);
  const auto learn = call.draft->symbols.learns.find(id);
  if (!learn) call.params[1].fail("learn list " + std::to_string(id) + " does not exist");
  return DigestStep{*learn};
}

// A list that does not exist is an empty one.
std::optional<uint32_t> fieldList(const Call& call, size_t param) {
  if (call.params.size() <= param) return std::nullopt;
  return call.draft->symbols.field_lists.find(call.constant(param, "field list", UINT32_MAX));
}

template <bool kEgress>
MachineStep clonePacket(const Call& call) {
  return CloneStep{kEgress, call.expression(0), fieldList(call, 1)};
}

MachineStep resubmit(const Call& call) { return ResubmitStep{fieldList(call, 0)}; }

MachineStep recirculate(const Call& call) { return RecirculateStep{fieldList(call, 0)}; }

MachineStep truncatePacket(const Call& call) { return TruncateStep{call.expression(0)}; }

// --- messages

// Without values the compiler writes an object or null for the list.
std::vector<Node> readVector(const Node& operand) {
  if (typeOf(operand) != "parameters_vector") operand.fail("must be a parameters_vector");
  const auto value = operand.findValue("value");
  return value && value->isList() ? itemsOf(*value) : std::vector<Node>{};
}

MachineStep logMessage(const Call& call) {
  LogStep step;
  if (typeOf(call.params[0]) != "string") call.params[0].fail("must be a string");
  step.format = call.params[0].at("value").string();
  if (call.params.size() < 2) return step;
  for (const Node& value : readVector(call.params[1])) {
    step.values.push_back(readExpression(value, call.scope, call.draft));
  }
  return step;
}

MachineStep assertion(const Call& call) {
  return AssertStep{readCondition(call.params[0], call.scope, call.draft)};
}

struct PrimitiveRow {
  const char* name;
  size_t min_params, max_params;
  MachineStep (*read)(const Call&);
};
constexpr PrimitiveRow kPrimitives[] = {
    {"assign", 2, 2, assign},
    {"assign_VL", 2, 2, assignVarbit},
    {"assign_header", 2, 2, assignHeader},
    {"assign_header_stack", 2, 2, assignStack},
    {"assign_union", 2, 2, assignUnion},
    {"assign_union_stack", 2, 2, assignUnionStack},
    {"add_header", 1, 1, addHeader},
    {"remove_header", 1, 1, removeHeader},
    {"push", 1, 2, moveStack<PushStep>},
    {"pop", 1, 2, moveStack<PopStep>},
    {"mark_to_drop", 0, 1, markToDrop},
    {"_jump", 1, 1, jump},
    {"_jump_if_zero", 2, 2, jumpIfZero},
    {"exit", 0, 0, exitPipeline},
    {"modify_field_with_hash_based_offset", 4, 4, hash},
    {"modify_field_rng_uniform", 3, 3, randomValue},
    {"register_read", 3, 3, registerRead},
    {"register_write", 3, 3, registerWrite},
    {"count", 2, 2, count},
    {"execute_meter", 3, 3, executeMeter},
    {"generate_digest", 2, 2, digest},
    {"clone_ingress_pkt_to_egress", 1, 2, clonePacket<false>},
    {"clone_egress_pkt_to_egress", 1, 2, clonePacket<true>},
    {"resubmit", 0, 1, resubmit},
    {"recirculate", 0, 1, recirculate},
    {"truncate", 1, 1, truncatePacket},
    {"log_msg", 1, 2, logMessage},
    {"assert", 1, 1, assertion},
    {"assume", 1, 1, assertion},
    // Names of older compilers.
    {"modify_field", 2, 2, assign},
    {"copy_header", 2, 2, assignHeader},
    {"drop", 0, 0, markToDrop},
    {"no_op", 0, 0, nothing},
    {"add_to_field", 2, 2, compute<ExprOp::kAdd>},
    {"subtract_from_field", 2, 2, compute<ExprOp::kSubtract>},
    {"add", 3, 3, compute<ExprOp::kAdd>},
    {"subtract", 3, 3, compute<ExprOp::kSubtract>},
    {"bit_and", 3, 3, compute<ExprOp::kAnd>},
    {"bit_or", 3, 3, compute<ExprOp::kOr>},
    {"bit_xor", 3, 3, compute<ExprOp::kXor>},
    {"shift_left", 3, 3, compute<ExprOp::kShiftLeft>},
    {"shift_right", 3, 3, compute<ExprOp::kShiftRight>},
};

}  // namespace

MachineStep readAssign(const Node& target, const Node& value, const Scope& scope, Draft* draft) {
  const auto target_varbit = varbitOf(target, *draft);
  const auto source_varbit = varbitOf(value, *draft);
  if (target_varbit && source_varbit) return AssignVarbitStep{*target_varbit, *source_varbit};
  return AssignStep{readTarget(target, scope, draft), readExpression(value, scope, draft)};
}

MachineStep readPrimitive(const Node& primitive, const Scope& scope, size_t step, size_t steps,
                          Draft* draft) {
  const std::string& name = primitive.at("op").string();
  const auto* const row =
      std::find_if(std::begin(kPrimitives), std::end(kPrimitives),
                   [&name](const PrimitiveRow& candidate) { return name == candidate.name; });
  if (row == std::end(kPrimitives)) primitive.fail("primitive " + shown(name) + " is not known");
  const auto list = primitive.findValue("parameters");
  Call call{primitive, {}, scope, step, steps, draft};
  if (list) call.params = itemsOf(*list);
  if (call.params.size() < row->min_params || call.params.size() > row->max_params) {
    primitive.fail("primitive " + name + " takes " + std::to_string(row->max_params) +
                   " parameters, not " + std::to_string(call.params.size()));
  }
  return row->read(call);
}

}  // namespace jxmodel::v1model
