#include "model/program/v1model/expressions.h"

#include <algorithm>
#include <array>
#include <utility>

#include "model/program/v1model/values.h"

namespace jxmodel::v1model {
namespace {

constexpr uint32_t kMaxMembers = 0xFFFF;  // member and field number share a code's operand
constexpr uint32_t kMaxCastWidth = 1u << 16;

// What the operands of an operator are.
enum class Operands : uint8_t {
  kNumbers,      // left and right
  kTruths,       // left and right
  kNumber,       // right
  kTruth,        // right
  kAsTruth,      // right, which becomes a truth value: 0 or 1 as a number
  kEqual,        // left and right: numbers, truth values or headers
  kSelect,       // cond, left, right
  kWidth,        // left, and a constant width on the right
  kHeader,       // right
  kUnion,        // right
  kStack,        // right
  kHeaderField,  // left, and the number of a field on the right
};
struct OperatorRow {
  const char* name;
  Operands operands;
  ExprOp op;
  bool truth;  // gives a truth value
};
constexpr OperatorRow kOperators[] = {
    {"+", Operands::kNumbers, ExprOp::kAdd, false},
    {"-", Operands::kNumbers, ExprOp::kSubtract, false},
    {"*", Operands::kNumbers, ExprOp::kMultiply, false},
    {"/", Operands::kNumbers, ExprOp::kDivide, false},
    {"%", Operands::kNumbers, ExprOp::kModulo, false},
    {"<<", Operands::kNumbers, ExprOp::kShiftLeft, false},
    {">>", Operands::kNumbers, ExprOp::kShiftRight, false},
    {"&", Operands::kNumbers, ExprOp::kAnd, false},
    {"|", Operands::kNumbers, ExprOp::kOr, false},
    {"^", Operands::kNumbers, ExprOp::kXor, false},
    {"~", Operands::kNumber, ExprOp::kNot, false},
    {"==", Operands::kEqual, ExprOp::kEqual, true},
    {"!=", Operands::kEqual, ExprOp::kNotEqual, true},
    {"<", Operands::kNumbers, ExprOp::kLess, true},
    {"<=", Operands::kNumbers, ExprOp::kLessEqual, true},
    {">", Operands::kNumbers, ExprOp::kGreater, true},
    {">=", Operands::kNumbers, ExprOp::kGreaterEqual, true},
    {"and", Operands::kTruths, ExprOp::kLogicalAnd, true},
    {"or", Operands::kTruths, ExprOp::kLogicalOr, true},
    {"not", Operands::kTruth, ExprOp::kLogicalNot, true},
    {"d2b", Operands::kAsTruth, ExprOp::kToBool, true},
    {"b2d", Operands::kAsTruth, ExprOp::kToBool, true},
    {"?", Operands::kSelect, ExprOp::kSelect, false},
    {"two_comp_mod", Operands::kWidth, ExprOp::kWrapSigned, false},
    {"usat_cast", Operands::kWidth, ExprOp::kClampUnsigned, false},
    {"sat_cast", Operands::kWidth, ExprOp::kClampSigned, false},
    {"valid", Operands::kHeader, ExprOp::kHeaderValid, true},
    {"valid_union", Operands::kUnion, ExprOp::kUnionValid, true},
    {"last_stack_index", Operands::kStack, ExprOp::kStackLastIndex, false},
    {"size_stack", Operands::kStack, ExprOp::kStackSize, false},
    {"access_field", Operands::kHeaderField, ExprOp::kField, false},
};

std::optional<std::string> operatorOf(const Node& operand) {
  if (!operand.isObject()) return std::nullopt;
  if (const auto op = operand.find("op")) return op->string();
  const auto value = operand.find("value");
  if (!value || !value->isObject() || !value->has("op")) return std::nullopt;
  return value->at("op").string();
}

// The object with "op", "left" and "right".
Node operatorObject(const Node& operand) {
  return operand.has("op") ? operand : operand.at("value");
}

bool isOperator(const Node& operand, std::string_view name) { return operatorOf(operand) == name; }

uint32_t readPlainNumber(const Node& node, const char* what, size_t count) {
  const Node plain = node.isObject() ? unwrapped(node).at("value") : node;
  const uint32_t number =
      plain.isString() ? readSmallHex(plain, what, UINT32_MAX) : plain.number(0, UINT32_MAX);
  if (number >= count) {
    node.fail(std::string(what) + " " + std::to_string(number) + " is not below " +
              std::to_string(count));
  }
  return number;
}

std::optional<uint32_t> smallOf(const Number& number) {
  if (number.negative || number.magnitude.size() > 4) return std::nullopt;
  uint32_t value = 0;
  for (const uint8_t byte : number.magnitude) value = value << 8 | byte;
  return value;
}

// The element of a constant number; empty where the packet decides.
std::optional<uint32_t> constantElement(const Node& place, const std::string& stack, size_t size) {
  const auto constant = constantOf(place);
  if (!constant) return std::nullopt;
  const auto element = smallOf(*constant);
  if (!element || *element >= size) {
    place.fail("index " + textOf(*constant) + " is outside header stack " + shown(stack) +
               ", which has " + std::to_string(size) + " elements");
  }
  return element;
}

uint32_t resolveOperand(const Node& operand, const char* type, const Names& names) {
  const Node inner = unwrapped(operand);
  if (typeOf(inner) != type) {
    inner.fail("must be a " + std::string(type) + ", not " + shown(typeOf(inner)));
  }
  return names.resolve(inner.at("value"));
}

HeaderUse elementUse(const Node& operand, const Draft& draft) {
  const Node op = operatorObject(operand);
  const uint32_t stack = resolveOperand(op.at("left"), "header_stack", draft.symbols.stacks.names);
  const HeaderStack& elements = draft.machine.stacks[stack];
  const Node place = op.at("right");
  HeaderUse use;
  if (const auto element = constantElement(place, elements.name, elements.headers.size())) {
    use.index = use.like = elements.headers[*element];
    return use;
  }
  use.kind = HeaderUse::Kind::kElement;
  use.index = stack;
  use.like = elements.headers.front();
  use.place = place;
  return use;
}

HeaderUse unionMemberUse(const Node& operand, const Draft& draft) {
  const Node op = operatorObject(operand);
  const Machine& machine = draft.machine;
  const Node subject = unwrapped(op.at("left"));
  HeaderUse use;
  uint32_t like = 0;  // a union of the same type
  if (isOperator(subject, "dereference_union_stack")) {
    const Node element_of = operatorObject(subject);
    use.index = resolveOperand(element_of.at("left"), "header_union_stack",
                               draft.symbols.union_stacks.names);
    const UnionStack& stack = machine.union_stacks[use.index];
    const Node place = element_of.at("right");
    const auto element = constantElement(place, stack.name, stack.unions.size());
    like = stack.unions[element.value_or(0)];
    if (!element) use.place = place;
  } else {
    like = resolveOperand(subject, "header_union", draft.symbols.unions.names);
  }
  const std::vector<uint32_t>& members = machine.unions[like].headers;
  use.member = readPlainNumber(op.at("right"), "member", members.size());
  use.like = members[use.member];
  if (use.place) {
    use.kind = HeaderUse::Kind::kUnionElement;
  } else {
    use.index = use.like;
  }
  return use;
}

FieldUse useOfNumber(HeaderUse header, const Node& number, const Draft& draft) {
  const uint32_t count = draft.machine.headers[header.like].field_count;
  FieldUse use;
  use.header = header;
  // The hidden field comes behind those of the header type.
  use.number = readPlainNumber(number, "field", size_t{count} + 1);
  use.validity = use.number == count;
  return use;
}

// Behind the header that is named: "field" of it.
FieldUse useOfName(HeaderUse header, const Node& name, const Draft& draft) {
  FieldUse use;
  use.header = header;
  use.validity = name.string() == "$valid$";
  if (use.validity) return use;
  const uint32_t type = draft.symbols.type_of[use.header.like];
  const auto& numbers = draft.symbols.types[type].numbers;
  const auto found = numbers.find(name.string());
  if (found == numbers.end()) {
    name.fail("header " + shown(draft.machine.headers[use.header.like].name) + " has no field " +
              shown(name.string()));
  }
  use.number = found->second;
  return use;
}

FieldUse stackFieldUse(const Node& value, const Draft& draft) {
  const std::vector<Node> items = value.items(2, 2);
  HeaderUse header;
  header.kind = HeaderUse::Kind::kLast;
  header.index = draft.symbols.stacks.names.resolve(items[0]);
  header.like = draft.machine.stacks[header.index].headers.front();
  return useOfName(header, items[1], draft);
}

FieldUse unionStackFieldUse(const Node& value, const Draft& draft) {
  const std::vector<Node> items = value.items(3, 3);
  HeaderUse header;
  header.kind = HeaderUse::Kind::kUnionLast;
  header.index = draft.symbols.union_stacks.names.resolve(items[0]);
  const uint32_t like = draft.machine.union_stacks[header.index].unions.front();
  const auto& members = draft.symbols.unions_of_type[draft.symbols.type_of_union[like]].members;
  const auto member = std::find_if(members.begin(), members.end(), [&](const auto& candidate) {
    return candidate.first == items[1].string();
  });
  if (member == members.end()) {
    items[1].fail("header union " + shown(draft.machine.unions[like].name) + " has no member " +
                  shown(items[1].string()));
  }
  header.member = static_cast<uint32_t>(member - members.begin());
  header.like = draft.machine.unions[like].headers[header.member];
  return useOfName(header, items[2], draft);
}

// Works off tasks from a list of its own, so that nesting costs no machine stack.
class ExpressionReader {
 public:
  ExpressionReader(const Node& whole, const Scope& scope, Draft* draft)
      : whole_(whole), scope_(scope), draft_(*draft) {}

  Expression run(bool truth) {
    tasks_.push_back({whole_, truth, true, std::nullopt, false});
    while (!tasks_.empty()) {
      const Task task = tasks_.back();
      tasks_.pop_back();
      if (task.code) {
        emit(*task.code, task.gives_truth, task.truth);
      } else {
        visit(task);
      }
    }
    return std::move(code_);
  }

 private:
  // An operand to read, or the code of an operator whose operands come before it.
  struct Task {
    Node operand;
    bool truth = false;  // a truth value is needed
    bool whole = false;  // is copied or compared for equality, not computed with
    std::optional<ExprCode> code;
    bool gives_truth = false;
  };

  void later(const Node& operand, bool truth, bool whole = false) {
    tasks_.push_back({operand, truth, whole, std::nullopt, false});
  }

  void finishBy(const Node& op, ExprCode code, bool gives_truth, bool truth) {
    tasks_.push_back({op, truth, false, code, gives_truth});
  }

  void emit(ExprCode code, bool gives_truth, bool truth) {
    code_.push_back(code);
    if (truth && !gives_truth) code_.push_back({ExprOp::kToBool, 0, 0});
    if (code_.size() + tasks_.size() > kMaxExpressionCodes) {
      whole_.fail("expression is longer than " + std::to_string(kMaxExpressionCodes) + " steps");
    }
  }

  void visit(const Task& task) {
    const Node operand = unwrapped(task.operand);
    if (const auto name = operatorOf(operand)) return visitOperator(operand, *name, task);
    visitOperand(operand, typeOf(operand), task);
  }

  void visitOperand(const Node& operand, const std::string& type, const Task& task) {
    if (isFieldUse(operand)) return visitField(operand, task);
    const Node value = operand.at("value");
    if (type == "hexstr") {
      return emit({ExprOp::kConstant, addConstant(readHex(value), &draft_), 0}, false, task.truth);
    }
    if (type == "bool") {
      const Number number = numberOf(value.boolean() ? 1 : 0);
      return emit({ExprOp::kConstant, addConstant(number, &draft_), 0}, true, task.truth);
    }
    if (type == "local" || type == "runtime_data") return visitParam(value, task);
    if (type == "lookahead") return visitLookahead(operand, value, task);
    if (type == "register") return visitRegister(operand, value, task);
    operand.fail("operand type " + shown(type) + " is not known here");
  }

  void visitParam(const Node& value, const Task& task) {
    if (scope_.action == nullptr) value.fail("there are no action parameters here");
    const size_t count = scope_.action->param_widths.size();
    const uint32_t param = value.number(0, UINT32_MAX);
    if (param >= count) {
      value.fail("parameter " + std::to_string(param) + " does not exist: there are " +
                 std::to_string(count));
    }
    emit({ExprOp::kParam, param, 0}, false, task.truth);
  }

  void visitLookahead(const Node& operand, const Node& value, const Task& task) {
    if (!scope_.parser) operand.fail("lookahead is for parsers");
    const std::vector<Node> items = value.items(2, 2);
    const uint32_t offset = items[0].number(0, kMaxHeaderBits);
    const uint32_t width = items[1].number(1, kMaxArithmeticWidth);
    emit({ExprOp::kLookahead, offset, width}, false, task.truth);
  }

  void visitRegister(const Node& operand, const Node& value, const Task& task) {
    const std::vector<Node> items = value.items(2, 2);
    const uint32_t reg = draft_.symbols.registers.names.resolve(items[0]);
    finishBy(operand, {ExprOp::kRegister, reg, 0}, false, task.truth);
    later(items[1], false);
  }

  void checkWidth(const FieldUse& use, const Node& operand, bool whole) const {
    const MachineField* const field = likeOf(use, draft_.machine);
    if (field == nullptr) return;
    const std::string name = "field " + nameOf(use, draft_.machine);
    if (field->varbit) operand.fail(name + " is a varbit: it has no value in an expression");
    if (whole || field->width <= kMaxArithmeticWidth) return;
    operand.fail(name + " has " + std::to_string(field->width) +
                 " bits; arithmetic is limited to " + std::to_string(kMaxArithmeticWidth));
  }

  void visitField(const Node& operand, const Task& task) {
    const FieldUse use = readFieldUse(operand, draft_);
    checkWidth(use, operand, task.whole);
    const uint32_t index = use.header.index;
    const uint32_t in_union = use.header.member << 16 | use.number;
    switch (use.header.kind) {
      case HeaderUse::Kind::kNamed:
        if (use.validity) return emit({ExprOp::kHeaderValid, index, 0}, true, task.truth);
        return emit({ExprOp::kField, draft_.machine.headers[index].first_field + use.number, 0},
                    false, task.truth);
      case HeaderUse::Kind::kLast:
        if (!use.validity) return emit({ExprOp::kStackLast, index, use.number}, false, task.truth);
        emit({ExprOp::kStackLastIndex, index, 0}, false, false);
        return emit({ExprOp::kElementValid, index, 0}, true, task.truth);
      case HeaderUse::Kind::kElement:
        finishBy(operand,
                 {use.validity ? ExprOp::kElementValid : ExprOp::kElementField, index, use.number},
                 use.validity, task.truth);
        return later(*use.header.place, false);
      case HeaderUse::Kind::kUnionLast:
        refuseUnionValidity(use, operand);
        return emit({ExprOp::kUnionStackLast, index, in_union}, false, task.truth);
      case HeaderUse::Kind::kUnionElement:
        refuseUnionValidity(use, operand);
        finishBy(operand, {ExprOp::kUnionElementField, index, in_union}, false, task.truth);
        return later(*use.header.place, false);
    }
  }

  static void refuseUnionValidity(const FieldUse& use, const Node& operand) {
    if (use.validity) operand.fail("validity of an element of a union stack is not supported");
  }

  void visitOperator(const Node& operand, const std::string& name, const Task& task) {
    const auto* const row =
        std::find_if(std::begin(kOperators), std::end(kOperators),
                     [&name](const OperatorRow& candidate) { return name == candidate.name; });
    if (row == std::end(kOperators)) operand.fail("operator " + shown(name) + " is not known here");
    const Node op = operatorObject(operand);
    switch (row->operands) {
      case Operands::kNumbers:
        return visitNumbers(*row, op, task);
      case Operands::kTruths:
        finishBy(op, {row->op, 0, 0}, row->truth, task.truth);
        later(op.at("right"), true);
        return later(op.at("left"), true);
      case Operands::kNumber:
      case Operands::kTruth:
        finishBy(op, {row->op, 0, 0}, row->truth, task.truth);
        return later(op.at("right"), row->operands == Operands::kTruth);
      case Operands::kAsTruth:
        return later(op.at("right"), true);
      case Operands::kEqual:
        return visitEqual(*row, op, task);
      case Operands::kSelect:
        finishBy(op, {row->op, 0, 0}, task.truth, task.truth);
        later(op.at("right"), task.truth);
        later(op.at("left"), task.truth);
        return later(op.at("cond"), true);
      case Operands::kWidth:
        return visitCast(*row, op, task);
      case Operands::kHeader:
        return visitValid(op, task);
      case Operands::kUnion:
        return emit(
            {row->op, resolveOperand(op.at("right"), "header_union", draft_.symbols.unions.names),
             0},
            true, task.truth);
      case Operands::kStack:
        return emit(
            {row->op, resolveOperand(op.at("right"), "header_stack", draft_.symbols.stacks.names),
             0},
            false, task.truth);
      case Operands::kHeaderField:
        return visitField(operand, task);
    }
  }

  void visitNumbers(const OperatorRow& row, const Node& op, const Task& task) {
    const Node right = op.at("right");
    if (row.op == ExprOp::kDivide || row.op == ExprOp::kModulo) refuseZero(right);
    finishBy(op, {row.op, 0, 0}, row.truth, task.truth);
    later(right, false);
    const auto left = op.findValue("left");
    if (left) return later(*left, false);
    if (row.op != ExprOp::kSubtract) op.fail("member 'left' is missing");
    emit({ExprOp::kConstant, addConstant(Number{}, &draft_), 0}, false, false);  // 0 - right
  }

  static void refuseZero(const Node& divisor) {
    const auto constant = constantOf(divisor);
    if (constant && constant->magnitude.empty()) divisor.fail("division by 0");
  }

  static bool isHeader(const Node& operand) {
    const Node inner = unwrapped(operand);
    const auto op = operatorOf(inner);
    if (op) return *op == "dereference_header_stack" || *op == "access_union_header";
    return typeOf(inner) == "header";
  }

  void visitEqual(const OperatorRow& row, const Node& op, const Task& task) {
    const Node left = op.at("left");
    const Node right = op.at("right");
    if (!isHeader(left)) {
      finishBy(op, {row.op, 0, 0}, true, task.truth);
      later(right, false, true);
      return later(left, false, true);
    }
    emit({ExprOp::kHeadersEqual, namedHeader(left), namedHeader(right)}, true, false);
    if (row.op == ExprOp::kNotEqual) emit({ExprOp::kLogicalNot, 0, 0}, true, false);
  }

  uint32_t namedHeader(const Node& operand) const {
    const HeaderUse use = readHeaderUse(operand, draft_);
    if (use.kind != HeaderUse::Kind::kNamed) {
      operand.fail("comparing headers at a computed index is not supported");
    }
    return use.index;
  }

  void visitCast(const OperatorRow& row, const Node& op, const Task& task) {
    const Node width = op.at("right");
    const auto constant = constantOf(width);
    const auto bits = constant ? smallOf(*constant) : std::nullopt;
    if (!bits || *bits == 0 || *bits > kMaxCastWidth) {
      width.fail("the width of " + shown(row.name) + " must be a constant from 1 to " +
                 std::to_string(kMaxCastWidth));
    }
    finishBy(op, {row.op, *bits, 0}, false, task.truth);
    later(op.at("left"), false);
  }

  void visitValid(const Node& op, const Task& task) {
    const Node right = op.at("right");
    const HeaderUse use = readHeaderUse(right, draft_);
    switch (use.kind) {
      case HeaderUse::Kind::kNamed:
        return emit({ExprOp::kHeaderValid, use.index, 0}, true, task.truth);
      case HeaderUse::Kind::kElement:
        finishBy(op, {ExprOp::kElementValid, use.index, 0}, true, task.truth);
        return later(*use.place, false);
      default:
        right.fail("validity of an element of a union stack is not supported");
    }
  }

  const Node whole_;
  const Scope scope_;
  Draft& draft_;
  std::vector<Task> tasks_;
  Expression code_;
};

}  // namespace

Node unwrapped(const Node& operand) {
  Node node = operand;
  while (node.isObject() && !node.has("op") && typeOf(node) == "expression") {
    const Node value = node.at("value");
    if (value.isObject() && value.has("op")) return node;
    if (!value.isObject()) value.fail("must be an operator or an operand");
    node = value;
  }
  return node;
}

std::string typeOf(const Node& operand) {
  if (!operand.isObject()) operand.fail("must be an operand");
  return operand.has("op") ? "expression" : operand.at("type").string();
}

std::optional<Number> constantOf(const Node& operand) {
  const Node inner = unwrapped(operand);
  if (typeOf(inner) != "hexstr") return std::nullopt;
  return readHex(inner.at("value"));
}

uint32_t addConstant(const Number& number, Draft* draft) {
  std::string text(number.negative ? "-" : "+");
  text.append(number.magnitude.begin(), number.magnitude.end());
  const auto next = static_cast<uint32_t>(draft->machine.constants.size());
  const auto [place, added] = draft->constants.emplace(std::move(text), next);
  if (added) draft->machine.constants.push_back(number);
  return place->second;
}

HeaderUse readHeaderUse(const Node& operand, const Draft& draft) {
  const Node inner = unwrapped(operand);
  if (isOperator(inner, "dereference_header_stack")) return elementUse(inner, draft);
  if (isOperator(inner, "access_union_header")) return unionMemberUse(inner, draft);
  HeaderUse use;
  use.index = use.like = resolveOperand(inner, "header", draft.symbols.headers.names);
  return use;
}

bool isFieldUse(const Node& operand) {
  if (isOperator(operand, "access_field")) return true;
  const std::string type = typeOf(operand);
  return type == "field" || type == "stack_field" || type == "union_stack_field";
}

FieldUse readFieldUse(const Node& operand, const Draft& draft) {
  if (isOperator(operand, "access_field")) {
    const Node op = operatorObject(operand);
    return useOfNumber(readHeaderUse(op.at("left"), draft), op.at("right"), draft);
  }
  const std::string type = typeOf(operand);
  const Node value = operand.at("value");
  if (type == "stack_field") return stackFieldUse(value, draft);
  if (type == "union_stack_field") return unionStackFieldUse(value, draft);
  if (type != "field") operand.fail("must be a field, not " + shown(type));
  const NamedField named = resolveField(value, draft);
  FieldUse use;
  use.header.index = use.header.like = named.header;
  use.number = named.number.value_or(0);
  use.validity = !named.number;
  return use;
}

const MachineField* likeOf(const FieldUse& use, const Machine& machine) {
  if (use.validity) return nullptr;
  return &machine.fields[machine.headers[use.header.like].first_field + use.number];
}

std::string nameOf(const FieldUse& use, const Machine& machine) {
  const MachineField* const field = likeOf(use, machine);
  const std::string name = field == nullptr ? "$valid$" : field->name;
  switch (use.header.kind) {
    case HeaderUse::Kind::kNamed:
      return machine.headers[use.header.index].name + "." + name;
    case HeaderUse::Kind::kLast:
    case HeaderUse::Kind::kElement:
      return machine.stacks[use.header.index].name + "." + name;
    default:
      return machine.union_stacks[use.header.index].name + "." + name;
  }
}

Expression readExpression(const Node& operand, const Scope& scope, Draft* draft) {
  return ExpressionReader(operand, scope, draft).run(false);
}

Expression readCondition(const Node& operand, const Scope& scope, Draft* draft) {
  return ExpressionReader(operand, scope, draft).run(true);
}

Target readTarget(const Node& operand, const Scope& scope, Draft* draft) {
  const Node inner = unwrapped(operand);
  const FieldUse use = readFieldUse(inner, *draft);
  const MachineField* const field = likeOf(use, draft->machine);
  if (field == nullptr) inner.fail(nameOf(use, draft->machine) + " cannot be written to");
  if (field->varbit) {
    inner.fail("field " + nameOf(use, draft->machine) + " is a varbit: it has no value to write");
  }
  switch (use.header.kind) {
    case HeaderUse::Kind::kNamed:
      return FieldTarget{draft->machine.headers[use.header.index].first_field + use.number};
    case HeaderUse::Kind::kLast:
      return StackLastTarget{use.header.index, use.number};
    case HeaderUse::Kind::kElement:
      return ElementTarget{use.header.index, readExpression(*use.header.place, scope, draft),
                           use.number};
    default:
      inner.fail("writing to an element of a union stack is not supported");
  }
}

HeaderRef readHeaderRef(const Node& operand, const Scope& scope, Draft* draft) {
  const HeaderUse use = readHeaderUse(operand, *draft);
  if (use.kind == HeaderUse::Kind::kNamed) return use.index;
  if (use.kind == HeaderUse::Kind::kElement) {
    return HeaderElement{use.index, readExpression(*use.place, scope, draft)};
  }
  operand.fail("an element of a union stack at a computed index is not supported here");
}

std::optional<uint32_t> varbitOf(const Node& operand, const Draft& draft) {
  const Node inner = unwrapped(operand);
  if (typeOf(inner) != "field") return std::nullopt;
  const NamedField named = resolveField(inner.at("value"), draft);
  if (!named.number) return std::nullopt;
  const uint32_t field = draft.machine.headers[named.header].first_field + *named.number;
  if (!draft.machine.fields[field].varbit) return std::nullopt;
  return field;
}

}  // namespace jxmodel::v1model
