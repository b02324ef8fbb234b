#include "v1model_text.h"

namespace jxmodel {
namespace {

// As ExprOp, from kAdd on.
constexpr const char* kWords[] = {
    "+",      "-",  "*",  "/", "%",  "<<", ">>", "&",   "|",  "^",   "~",    "wrap", "uclamp",
    "sclamp", "==", "!=", "<", "<=", ">",  ">=", "and", "or", "not", "bool", "?"};

std::string numberText(const Number& number) {
  std::string text = number.negative ? "-" : "";
  if (number.magnitude.size() > 8) {
    return text + "number of " + std::to_string(number.magnitude.size()) + " bytes";
  }
  uint64_t value = 0;
  for (const uint8_t byte : number.magnitude) value = value << 8 | byte;
  return text + std::to_string(value);
}

std::string fieldText(uint32_t field, const Machine& machine) {
  return machine.headers[machine.fields[field].header].name + "." + machine.fields[field].name;
}

std::string codeText(const ExprCode& code, const Machine& m) {
  const std::string a = std::to_string(code.a), b = std::to_string(code.b);
  switch (code.op) {
    case ExprOp::kConstant:
      return numberText(m.constants[code.a]);
    case ExprOp::kField:
      return fieldText(code.a, m);
    case ExprOp::kHeaderValid:
      return "valid(" + m.headers[code.a].name + ")";
    case ExprOp::kUnionValid:
      return "valid(" + m.unions[code.a].name + ")";
    case ExprOp::kParam:
      return "p" + a;
    case ExprOp::kLookahead:
      return "ahead(" + a + "," + b + ")";
    case ExprOp::kStackLast:
      return m.stacks[code.a].name + "[last]." + b;
    case ExprOp::kStackLastIndex:
      return m.stacks[code.a].name + ".last";
    case ExprOp::kStackSize:
      return m.stacks[code.a].name + ".next";
    case ExprOp::kUnionStackLast:
      return m.union_stacks[code.a].name + "[last]." + std::to_string(code.b >> 16) + "." +
             std::to_string(code.b & 0xFFFF);
    case ExprOp::kElementField:
      return m.stacks[code.a].name + "[]." + b;
    case ExprOp::kElementValid:
      return "valid(" + m.stacks[code.a].name + "[])";
    case ExprOp::kUnionElementField:
      return m.union_stacks[code.a].name + "[]." + std::to_string(code.b >> 16) + "." +
             std::to_string(code.b & 0xFFFF);
    case ExprOp::kHeadersEqual:
      return "equal(" + m.headers[code.a].name + "," + m.headers[code.b].name + ")";
    case ExprOp::kRegister:
      return m.registers[code.a].name + "[]";
    case ExprOp::kWrapSigned:
    case ExprOp::kClampUnsigned:
    case ExprOp::kClampSigned:
      return kWords[static_cast<int>(code.op) - static_cast<int>(ExprOp::kAdd)] + a;
    default:
      return kWords[static_cast<int>(code.op) - static_cast<int>(ExprOp::kAdd)];
  }
}

// One overload per kind of step.
class StepPrinter {
 public:
  explicit StepPrinter(const Machine& machine) : m_(machine) {}

  std::string operator()(const AssignStep& s) const {
    return "assign " + text(s.target) + " := " + text(s.value);
  }
  std::string operator()(const AssignVarbitStep& s) const {
    return "varbit " + fieldText(s.target, m_) + " := " + fieldText(s.source, m_);
  }
  std::string operator()(const AssignHeaderStep& s) const {
    return "header " + text(s.target) + " := " + text(s.source);
  }
  std::string operator()(const AssignStackStep& s) const {
    return "stack " + m_.stacks[s.target].name + " := " + m_.stacks[s.source].name;
  }
  std::string operator()(const AssignUnionStep& s) const {
    return "union " + m_.unions[s.target].name + " := " + m_.unions[s.source].name;
  }
  std::string operator()(const AssignUnionStackStep& s) const {
    return "union stack " + m_.union_stacks[s.target].name +
           " := " + m_.union_stacks[s.source].name;
  }
  std::string operator()(const AddHeaderStep& s) const { return "add " + text(s.header); }
  std::string operator()(const RemoveHeaderStep& s) const { return "remove " + text(s.header); }
  std::string operator()(const PushStep& s) const {
    return "push " + m_.stacks[s.stack].name + " " + std::to_string(s.count);
  }
  std::string operator()(const PopStep& s) const {
    return "pop " + m_.stacks[s.stack].name + " " + std::to_string(s.count);
  }
  std::string operator()(const MarkToDropStep& s) const {
    return "drop " + fieldText(s.egress_spec, m_) +
           (s.mcast_grp ? " " + fieldText(*s.mcast_grp, m_) : "");
  }
  std::string operator()(const JumpStep& s) const { return "jump " + std::to_string(s.step); }
  std::string operator()(const JumpIfZeroStep& s) const {
    return "jump " + std::to_string(s.step) + " if 0: " + text(s.condition);
  }
  std::string operator()(const ExitStep&) const { return "exit"; }
  std::string operator()(const HashStep& s) const {
    return "hash " + text(s.target) + " := " + m_.calculations[s.calculation].name + " from " +
           text(s.base) + " below " + text(s.max);
  }
  std::string operator()(const RandomStep& s) const {
    return "random " + text(s.target) + " := " + text(s.low) + " to " + text(s.high);
  }
  std::string operator()(const RegisterReadStep& s) const {
    return "read " + text(s.target) + " := " + m_.registers[s.reg].name + " at " + text(s.index);
  }
  std::string operator()(const RegisterWriteStep& s) const {
    return "write " + m_.registers[s.reg].name + " at " + text(s.index) + " := " + text(s.value);
  }
  std::string operator()(const CountStep& s) const {
    return "count " + m_.counters[s.counter].name + " at " + text(s.index);
  }
  std::string operator()(const ExecuteMeterStep& s) const {
    return "meter " + text(s.target) + " := " + m_.meters[s.meter].name + " at " + text(s.index);
  }
  std::string operator()(const DigestStep& s) const { return "digest " + std::to_string(s.learn); }
  std::string operator()(const CloneStep& s) const {
    return std::string(s.egress ? "clone egress " : "clone ingress ") + text(s.session) +
           list(s.field_list);
  }
  std::string operator()(const ResubmitStep& s) const { return "resubmit" + list(s.field_list); }
  std::string operator()(const RecirculateStep& s) const {
    return "recirculate" + list(s.field_list);
  }
  std::string operator()(const TruncateStep& s) const { return "truncate " + text(s.bytes); }
  std::string operator()(const LogStep& s) const {
    std::string all = "log '" + s.format + "'";
    for (const Expression& value : s.values) all += " (" + text(value) + ")";
    return all;
  }
  std::string operator()(const AssertStep& s) const { return "assert " + text(s.condition); }

 private:
  std::string list(const std::optional<uint32_t>& field_list) const {
    return field_list ? " keeps " + m_.field_lists[*field_list].name : "";
  }
  std::string text(const Expression& code) const { return expressionText(code, m_); }
  std::string text(const Target& target) const {
    if (const auto* field = std::get_if<FieldTarget>(&target)) return fieldText(field->field, m_);
    if (const auto* last = std::get_if<StackLastTarget>(&target)) {
      return m_.stacks[last->stack].name + "[last]." + std::to_string(last->field_number);
    }
    const auto& element = std::get<ElementTarget>(target);
    return m_.stacks[element.stack].name + "[" + text(element.index) + "]." +
           std::to_string(element.field_number);
  }
  std::string text(const HeaderRef& header) const {
    if (const auto* named = std::get_if<uint32_t>(&header)) return m_.headers[*named].name;
    const auto& element = std::get<HeaderElement>(header);
    return m_.stacks[element.stack].name + "[" + text(element.index) + "]";
  }

  const Machine& m_;
};

}  // namespace

std::string expressionText(const Expression& code, const Machine& machine) {
  std::string text;
  for (const ExprCode& one : code) text += (text.empty() ? "" : " ") + codeText(one, machine);
  return text;
}

std::string stepText(const MachineStep& step, const Machine& machine) {
  return std::visit(StepPrinter(machine), step);
}

}  // namespace jxmodel
