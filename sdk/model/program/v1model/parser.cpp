// The parser: states, what they do, where they go.
#include <algorithm>

#include "model/program/v1model/primitives.h"
#include "model/program/v1model/values.h"

namespace jxmodel::v1model {
namespace {

constexpr Scope kParserScope{nullptr, true};

void readValueSets(const Node& root, Draft* draft) {
  for (const Node& node : itemsOf(root, "parse_vsets")) {
    ValueSet set;
    set.name = draft->symbols.value_sets.declare(node);
    const std::string construct = "value set " + shown(set.name);
    within(construct, [&] {
      set.compressed_width = node.at("compressed_bitwidth").number(1, kMaxHeaderBits);
      const auto size = node.findValue("max_size");
      set.size = size ? size->number(0, UINT32_MAX) : 0;
      reserveState(size.value_or(node), construct, set.size,
                   2 * uint64_t{bytesOf(set.compressed_width)}, draft);
    });
    draft->notices.push_back(construct + ": matches nothing until members are added");
    draft->machine.value_sets.push_back(std::move(set));
  }
}

// --- what a state does

Extract readExtracted(const Node& operand, const Draft& draft) {
  const std::string type = typeOf(operand);
  const Node value = operand.at("value");
  if (type == "regular") {
    const uint32_t header = draft.symbols.headers.names.resolve(value);
    if (draft.machine.headers[header].metadata) {
      value.fail("header " + shown(value.string()) + " is metadata");
    }
    return {ExtractHeader{header}, std::nullopt};
  }
  if (type == "stack")
    return {ExtractNext{draft.symbols.stacks.names.resolve(value)}, std::nullopt};
  if (type != "union_stack") operand.fail("operand type " + shown(type) + " is not known here");
  const std::vector<Node> items = value.items(2, 2);
  const uint32_t stack = draft.symbols.union_stacks.names.resolve(items[0]);
  const uint32_t like = draft.machine.union_stacks[stack].unions.front();
  const auto& members = draft.symbols.unions_of_type[draft.symbols.type_of_union[like]].members;
  const auto member = std::find_if(members.begin(), members.end(), [&](const auto& candidate) {
    return candidate.first == items[1].string();
  });
  if (member == members.end()) {
    items[1].fail("header union " + shown(draft.machine.unions[like].name) + " has no member " +
                  shown(items[1].string()));
  }
  return {ExtractUnionNext{stack, static_cast<uint32_t>(member - members.begin())}, std::nullopt};
}

// A header of the type that is extracted.
uint32_t likeOfExtract(const Extract& extract, const Machine& machine) {
  if (const auto* header = std::get_if<ExtractHeader>(&extract.what)) return header->header;
  if (const auto* next = std::get_if<ExtractNext>(&extract.what)) {
    return machine.stacks[next->stack].headers.front();
  }
  const auto& next = std::get<ExtractUnionNext>(extract.what);
  return machine.unions[machine.union_stacks[next.stack].unions.front()].headers[next.member];
}

using Ops = std::vector<ParserOp>;

void extractFixed(const std::vector<Node>& params, Draft* draft, Ops* ops) {
  ops->emplace_back(readExtracted(params[0], *draft));
}

void extractVarbit(const std::vector<Node>& params, Draft* draft, Ops* ops) {
  Extract extract = readExtracted(params[0], *draft);
  const MachineHeader& header = draft->machine.headers[likeOfExtract(extract, draft->machine)];
  if (!header.varbit_field) params[0].fail("header " + shown(header.name) + " has no varbit");
  extract.varbit_bits = readExpression(params[1], kParserScope, draft);
  ops->emplace_back(std::move(extract));
}

void setField(const std::vector<Node>& params, Draft* draft, Ops* ops) {
  ops->emplace_back(readAssign(params[0], params[1], kParserScope, draft));
}

void verifyCondition(const std::vector<Node>& params, Draft* draft, Ops* ops) {
  ops->emplace_back(Verify{readCondition(params[0], kParserScope, draft),
                           readExpression(params[1], kParserScope, draft)});
}

void advanceBits(const std::vector<Node>& params, Draft* draft, Ops* ops) {
  ops->emplace_back(Advance{readExpression(params[0], kParserScope, draft)});
}

// Bytes, as a number or an operand.
void shiftBytes(const std::vector<Node>& params, Draft* draft, Ops* ops) {
  constexpr uint32_t kBitsOfByte = 8;
  Expression bits;
  if (params[0].isUnsigned()) {
    const uint64_t bytes = params[0].number(0, kMaxHeaderBits);
    bits = {{ExprOp::kConstant, addConstant(numberOf(bytes * kBitsOfByte), draft), 0}};
  } else {
    bits = readExpression(params[0], kParserScope, draft);
    bits.push_back({ExprOp::kConstant, addConstant(numberOf(kBitsOfByte), draft), 0});
    bits.push_back({ExprOp::kMultiply, 0, 0});
  }
  ops->emplace_back(Advance{std::move(bits)});
}

// A step as actions have them. One that does nothing is left out.
void doPrimitive(const std::vector<Node>& params, Draft* draft, Ops* ops) {
  MachineStep step = readPrimitive(params[0], kParserScope, 0, 0, draft);
  if (!std::holds_alternative<JumpStep>(step)) ops->emplace_back(std::move(step));
}

struct ParserOpRow {
  const char* name;
  size_t params;
  void (*read)(const std::vector<Node>&, Draft*, Ops*);
};
constexpr ParserOpRow kParserOps[] = {
    {"extract", 1, extractFixed},   {"extract_VL", 2, extractVarbit}, {"set", 2, setField},
    {"verify", 2, verifyCondition}, {"advance", 1, advanceBits},      {"shift", 1, shiftBytes},
    {"primitive", 1, doPrimitive},
};

void readParserOp(const Node& node, Draft* draft, Ops* ops) {
  const std::string& name = node.at("op").string();
  const auto* const row =
      std::find_if(std::begin(kParserOps), std::end(kParserOps),
                   [&name](const ParserOpRow& candidate) { return name == candidate.name; });
  if (row == std::end(kParserOps)) node.fail("operation " + shown(name) + " is not known");
  row->read(node.at("parameters").items(row->params, row->params), draft, ops);
}

// --- where it goes

uint32_t widthOfField(const FieldUse& use, const Machine& machine) {
  const MachineField* const field = likeOf(use, machine);
  return field == nullptr ? 1 : field->width;
}

KeyPart readKeyPart(const Node& node, Draft* draft) {
  const Node operand = unwrapped(node);
  KeyPart part;
  if (isFieldUse(operand)) {
    part.width = widthOfField(readFieldUse(operand, *draft), draft->machine);
  } else if (typeOf(operand) == "lookahead") {
    part.width = operand.at("value").items(2, 2)[1].number(1, kMaxArithmeticWidth);
  } else {
    operand.fail("operand type " + shown(typeOf(operand)) + " is not known here");
  }
  part.value = readExpression(operand, kParserScope, draft);
  return part;
}

size_t keyBytes(const ParserState& state) {
  size_t bytes = 0;
  for (const KeyPart& part : state.key) bytes += bytesOf(part.width);
  return bytes;
}

void useValueSet(const Node& reference, const ParserState& state, Draft* draft,
                 Transition* transition) {
  transition->kind = Transition::Kind::kValueSet;
  transition->value_set = draft->symbols.value_sets.names.resolve(reference);
  ValueSet& set = draft->machine.value_sets[transition->value_set];
  std::vector<uint32_t> widths;
  uint64_t bits = 0;
  for (const KeyPart& part : state.key) {
    widths.push_back(part.width);
    bits += part.width;
  }
  if (bits != set.compressed_width) {
    reference.fail("value set " + shown(set.name) + " has " + std::to_string(set.compressed_width) +
                   " bits, the key " + std::to_string(bits));
  }
  if (!set.widths.empty() && set.widths != widths) {
    reference.fail("value set " + shown(set.name) + " is used with keys of different fields");
  }
  set.widths = std::move(widths);
}

Transition readTransition(const Node& node, const ParserState& state, Draft* draft) {
  Transition transition;
  const Node type_node = node.at("type");
  const std::string& type = type_node.string();
  const size_t bytes = keyBytes(state);
  if (type == "hexstr") {
    transition.kind = Transition::Kind::kValue;
    transition.value = readPaddedHex(node.at("value"), bytes);
  } else if (type == "parse_vset") {
    useValueSet(node.at("value"), state, draft, &transition);
  } else if (type != "default") {
    type_node.fail("transition type " + shown(type) + " is not known");
  }
  const auto mask = node.findValue("mask");
  if (transition.kind != Transition::Kind::kDefault) {
    transition.mask = mask ? readPaddedHex(*mask, bytes) : std::vector<uint8_t>(bytes, 0xFF);
  }
  const Node next = node.at("next_state");
  if (!next.isNull()) transition.next = draft->symbols.states.resolve(next);
  return transition;
}

ParserState readState(const Node& node, const std::string& name, Draft* draft) {
  ParserState state;
  state.name = name;
  state.place = readSource(node);
  for (const Node& op : itemsOf(node.at("parser_ops"))) readParserOp(op, draft, &state.ops);
  for (const Node& part : itemsOf(node.at("transition_key"))) {
    state.key.push_back(readKeyPart(part, draft));
  }
  for (const Node& transition : itemsOf(node.at("transitions"))) {
    state.transitions.push_back(readTransition(transition, state, draft));
  }
  return state;
}

}  // namespace

void readParser(const Node& root, Draft* draft) {
  readValueSets(root, draft);
  const Node parser = root.at("parsers").items(1, 1).front();
  const std::vector<Node> nodes = itemsOf(parser.at("parse_states"));
  std::vector<std::string> names;
  Ids ids("parser state");
  for (const Node& node : nodes) {
    names.push_back(draft->symbols.states.declare(node));
    ids.declare(node);
  }
  for (size_t i = 0; i < nodes.size(); ++i) {
    draft->machine.states.push_back(within("parser state " + shown(names[i]),
                                           [&] { return readState(nodes[i], names[i], draft); }));
  }
  const Node first = parser.at("init_state");
  if (!first.isNull()) draft->machine.first_state = draft->symbols.states.resolve(first);
}

}  // namespace jxmodel::v1model
