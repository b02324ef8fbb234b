// Actions and their steps.
#include "model/program/json/draft.h"

namespace jxmodel {
namespace {

Param readParam(const Node& node, Names* names) {
  node.expectObject("a parameter", {"name", "width", "default"});
  Param param;
  param.name = names->declare(node);
  param.width = node.at("width").number(1, kMaxParamWidth);
  if (const auto value = node.find("default")) param.default_value = value->constant(param.width);
  return param;
}

void readParams(const Node& list, Action* action) {
  Names names("parameter");
  for (const Node& node : list.items(0, kMaxItems)) {
    Param param = readParam(node, &names);
    action->params.push_back(std::move(param));
  }
  layOutParams(action);
  const std::string refusal = paramSizeRefusal(*action);
  if (!refusal.empty()) list.fail(refusal);
}

void expectWidth(const Node& node, std::string_view what, const std::string& name, uint32_t width,
                 uint32_t most) {
  if (width <= most) return;
  node.fail(std::string(what) + " " + inQuotes(name) + " has " + std::to_string(width) +
            " bits, at most " + std::to_string(most) + " fit");
}

uint32_t readParamRef(const Node& node, uint32_t width, const Action* action) {
  if (action == nullptr) node.fail("there are no action parameters here");
  for (size_t i = 0; i < action->params.size(); ++i) {
    const Param& param = action->params[i];
    if (param.name != node.string()) continue;
    expectWidth(node, "parameter", param.name, param.width, width);
    return static_cast<uint32_t>(i);
  }
  node.fail("action " + inQuotes(action->name) + " has no parameter " + inQuotes(node.string()));
}

uint32_t bigEndian(const std::vector<uint8_t>& bytes) {
  uint32_t value = 0;
  for (const uint8_t byte : bytes) value = value << 8 | byte;
  return value;
}

// A constant index is checked here, once; other ones when a packet comes.
void readCount(const Node& step, const Draft& draft, const Action* action, Primitive* primitive) {
  const Node reference = step.at("table");
  primitive->table = draft.tables.resolve(reference);
  const Table& table = draft.program.tables[primitive->table];
  if (table.type != JX_RT_TABLE_COUNTER) {
    reference.fail("table " + inQuotes(table.name) + " is no counter table");
  }
  const Node index = step.at("index");
  primitive->source = readOperand(index, kIndexWidth, draft, action);
  const auto* constant = std::get_if<Constant>(&primitive->source);
  if (constant != nullptr && bigEndian(constant->value) >= table.size) {
    index.fail("index " + std::to_string(bigEndian(constant->value)) +
               " is not below the size of " + inQuotes(table.name) + ", " +
               std::to_string(table.size));
  }
}

struct PrimitiveRow {
  const char* name;
  PrimitiveOp op;
};
constexpr PrimitiveRow kPrimitives[] = {
    {"set", PrimitiveOp::kSet},
    {"forward", PrimitiveOp::kForward},
    {"flood", PrimitiveOp::kFlood},
    {"drop", PrimitiveOp::kDrop},
    {"decrement", PrimitiveOp::kDecrement},
    {"count", PrimitiveOp::kCount},
    {"digest", PrimitiveOp::kDigest},
};

}  // namespace

Operand readOperand(const Node& node, uint32_t width, const Draft& draft, const Action* action) {
  if (!node.isObject()) return Constant{node.constant(width)};
  node.expectObject("an operand", {"field", "param"});
  const auto field = node.find("field");
  const auto param = node.find("param");
  if (field.has_value() == param.has_value()) node.fail("must have either 'field' or 'param'");
  if (param) return ParamRef{readParamRef(*param, width, action)};
  const uint32_t index = draft.fields.resolve(*field);
  const PacketField& packet_field = draft.program.fields[index];
  expectWidth(*field, "field", packet_field.name, packet_field.width, width);
  return FieldRef{index};
}

Primitive readPrimitive(const Node& step, const Draft& draft, const Action* action) {
  if (!step.isObject()) step.fail("must be an object");
  Primitive primitive;
  primitive.op = step.at("op").choice("op", kPrimitives).op;
  switch (primitive.op) {
    case PrimitiveOp::kSet:
      step.expectObject("a set step", {"op", "field", "from"});
      primitive.field = draft.fields.resolve(step.at("field"));
      primitive.source =
          readOperand(step.at("from"), draft.program.fields[primitive.field].width, draft, action);
      break;
    case PrimitiveOp::kForward:
      step.expectObject("a forward step", {"op", "port"});
      primitive.source = readOperand(step.at("port"), kIndexWidth, draft, action);
      break;
    case PrimitiveOp::kFlood:
      step.expectObject("a flood step", {"op"});
      break;
    case PrimitiveOp::kDrop:
      step.expectObject("a drop step", {"op"});
      break;
    case PrimitiveOp::kDecrement:
      step.expectObject("a decrement step", {"op", "field"});
      primitive.field = draft.fields.resolve(step.at("field"));
      break;
    case PrimitiveOp::kCount:
      step.expectObject("a count step", {"op", "table", "index"});
      readCount(step, draft, action, &primitive);
      break;
    case PrimitiveOp::kDigest:
      step.expectObject("a digest step", {"op", "learn"});
      primitive.learn = draft.learns.resolve(step.at("learn"));
      break;
  }
  return primitive;
}

void declareActions(const Node& list, Draft* draft) {
  for (const Node& node : list.items(0, kMaxItems)) {
    node.expectObject("an action", {"name", "params", "body"});
    Action action;
    action.id = idAt(draft->program.id, draft->program.actions.size());
    action.name = draft->actions.declare(node);
    if (const auto params = node.find("params")) readParams(*params, &action);
    draft->program.actions.push_back(std::move(action));
  }
}

void readActionBodies(const Node& list, Draft* draft) {
  size_t next = 0;
  for (const Node& node : list.items(0, kMaxItems)) {
    Action& action = draft->program.actions[next++];
    const auto body = node.find("body");
    if (!body) continue;
    for (const Node& step : body->items(0, kMaxItems)) {
      action.body.push_back(readPrimitive(step, *draft, &action));
    }
  }
}

}  // namespace jxmodel
