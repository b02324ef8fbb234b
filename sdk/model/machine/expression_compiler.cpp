#include <map>
#include <numeric>

#include "model/machine/expression_ranges.h"
#include "model/machine/expressions.h"

namespace jxmodel {
namespace {

using Code = CompiledExpression::Code;
using Instruction = CompiledExpression::Instruction;

/// How many numbers an operator takes.
uint32_t operandsOf(ExprOp op) {
  switch (op) {
    case ExprOp::kElementField:
    case ExprOp::kElementValid:
    case ExprOp::kUnionElementField:
    case ExprOp::kRegister:
    case ExprOp::kNot:
    case ExprOp::kWrapSigned:
    case ExprOp::kClampUnsigned:
    case ExprOp::kClampSigned:
    case ExprOp::kLogicalNot:
    case ExprOp::kToBool:
      return 1;
    case ExprOp::kSelect:
      return 3;
    default:
      return op >= ExprOp::kAdd ? 2 : 0;
  }
}

Code codeOf(ExprOp op) {
  switch (op) {
    case ExprOp::kHeaderValid:
      return Code::kHeaderValid;
    case ExprOp::kUnionValid:
      return Code::kUnionValid;
    case ExprOp::kLookahead:
      return Code::kLookahead;
    case ExprOp::kStackLast:
      return Code::kStackLast;
    case ExprOp::kStackLastIndex:
      return Code::kStackLastIndex;
    case ExprOp::kStackSize:
      return Code::kStackSize;
    case ExprOp::kUnionStackLast:
      return Code::kUnionStackLast;
    case ExprOp::kElementField:
      return Code::kElementField;
    case ExprOp::kElementValid:
      return Code::kElementValid;
    case ExprOp::kUnionElementField:
      return Code::kUnionElementField;
    case ExprOp::kHeadersEqual:
      return Code::kHeadersEqual;
    case ExprOp::kRegister:
      return Code::kRegister;
    case ExprOp::kAdd:
      return Code::kAdd;
    case ExprOp::kSubtract:
      return Code::kSubtract;
    case ExprOp::kMultiply:
      return Code::kMultiply;
    case ExprOp::kDivide:
      return Code::kDivide;
    case ExprOp::kModulo:
      return Code::kModulo;
    case ExprOp::kShiftLeft:
      return Code::kShiftLeft;
    case ExprOp::kShiftRight:
      return Code::kShiftRight;
    case ExprOp::kAnd:
      return Code::kAnd;
    case ExprOp::kOr:
      return Code::kOr;
    case ExprOp::kXor:
      return Code::kXor;
    case ExprOp::kNot:
      return Code::kNot;
    case ExprOp::kWrapSigned:
      return Code::kWrapSigned;
    case ExprOp::kClampUnsigned:
      return Code::kClampUnsigned;
    case ExprOp::kClampSigned:
      return Code::kClampSigned;
    case ExprOp::kEqual:
      return Code::kEqual;
    case ExprOp::kNotEqual:
      return Code::kNotEqual;
    case ExprOp::kLess:
      return Code::kLess;
    case ExprOp::kLessEqual:
      return Code::kLessEqual;
    case ExprOp::kGreater:
      return Code::kGreater;
    case ExprOp::kGreaterEqual:
      return Code::kGreaterEqual;
    case ExprOp::kLogicalNot:
      return Code::kLogicalNot;
    case ExprOp::kToBool:
      return Code::kToBool;
    default:
      return Code::kEnd;  // made in other ways
  }
}

Wide numberOf(const Number& number) {
  Wide value;
  if (!number.magnitude.empty()) {
    import_bits(value, number.magnitude.begin(), number.magnitude.end());
  }
  return number.negative ? Wide(-value) : value;
}

/// Of code without its end.
CompiledExpression::Shape shapeOf(const std::vector<Instruction>& code) {
  using Shape = CompiledExpression::Shape;
  const Instruction& only = code.front();
  if (code.size() == 2 && only.code == Code::kWord && code[1].b == CompiledExpression::kWordRight) {
    if (code[1].code == Code::kEqual) return Shape::kWordsEqual;
    return code[1].code == Code::kNotEqual ? Shape::kWordsDiffer : Shape::kCode;
  }
  if (code.size() != 1) return Shape::kCode;
  if (only.code == Code::kWord) return Shape::kWord;
  if (only.code == Code::kHeaderValid) return Shape::kHeaderValid;
  if (only.b != CompiledExpression::kWordImmediate || only.immediate < 0) return Shape::kCode;
  if (only.code == Code::kEqual) return Shape::kEqual;
  return only.code == Code::kNotEqual ? Shape::kNotEqual : Shape::kCode;
}

/// One expression on its way to code.
class Compilation {
 public:
  Compilation(const StateLayout& layout, const Expression& expression,
              const std::vector<uint32_t>& param_widths)
      : layout_(layout), expression_(expression), param_widths_(param_widths) {}

  CompiledExpression run() {
    planJumps();
    for (uint32_t at = 0; at < expression_.size(); ++at) {
      const auto jumps = jumps_.find(at);
      if (jumps != jumps_.end()) emit({jumps->second.code, jumps->second.behind, 0, 0});
      add(expression_[at]);
      place_behind_.push_back(static_cast<uint32_t>(made_.code.size()));
      last_label_ = labels_.count(at) != 0 ? made_.code.size() : last_label_;
    }
    made_.shape = shapeOf(made_.code);
    emit({Code::kEnd, 0, 0, 0});
    for (Instruction& instruction : made_.code) {
      if (isJump(instruction.code)) instruction.a = targetOf(instruction);
    }
    return std::move(made_);
  }

 private:
  /// A jump in front of an operand, to what stands behind instruction `behind` of the expression.
  struct Jump {
    Code code;
    uint32_t behind;
  };
  static bool isJump(Code code) { return code >= Code::kJump && code <= Code::kJumpIfTrueKeep; }

  /// Where a jump leads. The one in front of the first value of a `?` leads behind the one in front
  /// of the second.
  uint32_t targetOf(const Instruction& jump) const {
    return place_behind_[jump.a] + (jump.code == Code::kJumpIfFalse ? 1 : 0);
  }

  /// Which operands are jumped over. Operands stand in front of their operator, so the begin of
  /// each is known when the operator is met.
  void planJumps() {
    std::vector<uint32_t> begins;  // of the operands that no operator has taken yet
    for (uint32_t at = 0; at < expression_.size(); ++at) {
      const ExprOp op = expression_[at].op;
      const uint32_t count = operandsOf(op);
      if (count == 0) {
        begins.push_back(at);
        continue;
      }
      const uint32_t last = begins.back();
      if (op == ExprOp::kLogicalAnd) plan(last, Code::kJumpIfFalseKeep, at);
      if (op == ExprOp::kLogicalOr) plan(last, Code::kJumpIfTrueKeep, at);
      if (op == ExprOp::kSelect) {
        plan(begins[begins.size() - 2], Code::kJumpIfFalse, last - 1);
        plan(last, Code::kJump, at);
      }
      begins.resize(begins.size() - (count - 1));
    }
  }
  void plan(uint32_t before, Code code, uint32_t behind) {
    jumps_[before] = {code, behind};
    labels_[behind] = true;
  }

  void emit(const Instruction& instruction) { made_.code.push_back(instruction); }

  void push(NumberRange range) {
    // Integers that are as wide as their range are enough: no operator needs more on its way.
    if (!range.within(64)) raise(CompiledExpression::Arithmetic::k128);
    if (!range.within(128)) raise(CompiledExpression::Arithmetic::kWide);
    ranges_.push_back(std::move(range));
    made_.depth = std::max(made_.depth, static_cast<uint32_t>(ranges_.size()));
  }
  void raise(CompiledExpression::Arithmetic arithmetic) {
    made_.arithmetic = std::max(made_.arithmetic, arithmetic);
  }
  NumberRange pop() {
    NumberRange range = std::move(ranges_.back());
    ranges_.pop_back();
    return range;
  }

  NumberRange rangeOfField(uint32_t field) const {
    const FieldSlot& slot = layout_.fields[field];
    return NumberRange::ofField(slot.width, slot.is_signed);
  }
  NumberRange rangeOfElement(uint32_t header, uint32_t number) const {
    return rangeOfField(layout_.machine.headers[header].first_field + number);
  }
  uint32_t unionHeader(uint32_t stack, uint32_t member) const {
    const Machine& machine = layout_.machine;
    return machine.unions[machine.union_stacks[stack].unions[0]].headers[member];
  }

  void addConstant(const ExprCode& code) {
    const Wide value = numberOf(layout_.machine.constants[code.a]);
    const NumberRange range = NumberRange::of(value);
    if (range.within(64)) {
      emit({Code::kImmediate, 0, 0, value.convert_to<int64_t>()});
    } else {
      emit({Code::kConstant, code.a, 0, 0});
    }
    push(range);
  }
  void addField(uint32_t field) {
    const FieldSlot& slot = layout_.fields[field];
    if (slot.limbs == 1 && !slot.is_signed) {
      emit({Code::kWord, slot.limb, 0, 0});
    } else {
      emit({Code::kField, field, 0, 0});
    }
    push(rangeOfField(field));
  }
  void addParam(uint32_t number) {
    uint32_t offset = 0;
    for (uint32_t i = 0; i < number; ++i) offset += (param_widths_[i] + 7) / 8;
    emit({Code::kParam, offset, param_widths_[number], 0});
    push(NumberRange::ofField(param_widths_[number], false));
  }
  void addOperand(const ExprCode& code) {
    const Machine& machine = layout_.machine;
    switch (code.op) {
      case ExprOp::kConstant:
        return addConstant(code);
      case ExprOp::kField:
        return addField(code.a);
      case ExprOp::kParam:
        return addParam(code.a);
      default:
        break;
    }
    emit({codeOf(code.op), code.a, code.b, 0});
    switch (code.op) {
      case ExprOp::kLookahead:
        return push(NumberRange::ofField(code.b, false));
      case ExprOp::kStackLast:
        return push(rangeOfElement(machine.stacks[code.a].headers[0], code.b));
      case ExprOp::kUnionStackLast:
        return push(rangeOfElement(unionHeader(code.a, code.b >> 16), code.b & 0xFFFF));
      case ExprOp::kStackLastIndex:
      case ExprOp::kStackSize:
        return push({-1, UINT32_MAX});
      default:  // kHeaderValid, kUnionValid, kHeadersEqual
        return push(NumberRange::ofBool());
    }
  }

  void addIndexed(const ExprCode& code) {
    const Machine& machine = layout_.machine;
    pop();
    emit({codeOf(code.op), code.a, code.b, 0});
    switch (code.op) {
      case ExprOp::kElementField:
        return push(rangeOfElement(machine.stacks[code.a].headers[0], code.b));
      case ExprOp::kUnionElementField:
        return push(rangeOfElement(unionHeader(code.a, code.b >> 16), code.b & 0xFFFF));
      case ExprOp::kRegister:
        return push(NumberRange::ofField(machine.registers[code.a].width, false));
      default:  // kElementValid
        return push(NumberRange::ofBool());
    }
  }

  void addUnary(const ExprCode& code) {
    const NumberRange value = pop();
    if (code.op == ExprOp::kLogicalNot || code.op == ExprOp::kToBool) {
      const bool is_bool = value.low >= 0 && value.high <= 1;
      if (code.op == ExprOp::kToBool && is_bool) return push(value);
      emit({codeOf(code.op), 0, 0, 0});
      return push(NumberRange::ofBool());
    }
    NumberRange range = rangeOfUnary(code.op, value, code.a);
    emit({codeOf(code.op), code.a, 0, 0});
    push(std::move(range));
  }

  /// The last instruction, unless a jump leads behind it; null then, and where there is none.
  Instruction* lastUnlabelled() {
    return made_.code.empty() || last_label_ == made_.code.size() ? nullptr : &made_.code.back();
  }
  /// Words and constants go into their operator, unless a jump leads to what stands between.
  void emitBinary(Code code) {
    Instruction* last = lastUnlabelled();
    if (last != nullptr && last->code == Code::kWord) {
      *last = {code, last->a, CompiledExpression::kWordRight, 0};
      return;
    }
    if (last == nullptr || last->code != Code::kImmediate) return emit({code, 0, 0, 0});
    const int64_t immediate = last->immediate;
    made_.code.pop_back();
    last = lastUnlabelled();
    if (last != nullptr && last->code == Code::kWord) {
      *last = {code, last->a, CompiledExpression::kWordImmediate, immediate};
    } else {
      emit({code, 0, CompiledExpression::kImmediateRight, immediate});
    }
  }

  /// Whether `and` with the right number, which is one only, leaves each left number as it is.
  static bool isNoCut(const NumberRange& left, const NumberRange& right) {
    const Wide& mask = right.low;
    return mask == right.high && left.low >= 0 && left.high <= mask && (mask & (mask + 1)) == 0;
  }
  /// Takes back the immediate that is the last instruction; false if the last one is another.
  bool dropImmediate() {
    const Instruction* const last = lastUnlabelled();
    if (last == nullptr || last->code != Code::kImmediate) return false;
    made_.code.pop_back();
    return true;
  }

  void addBinary(const ExprCode& code) {
    const NumberRange right = pop();
    const NumberRange left = pop();
    if (code.op == ExprOp::kAnd && isNoCut(left, right) && dropImmediate()) return push(left);
    emitBinary(codeOf(code.op));
    const bool compares = code.op >= ExprOp::kEqual;
    push(compares ? NumberRange::ofBool() : rangeOfBinary(code.op, left, right));
  }

  void add(const ExprCode& code) {
    switch (code.op) {
      case ExprOp::kLogicalAnd:
      case ExprOp::kLogicalOr: {
        // The jump has taken or left the left operand; the right one is the result. The jump's own
        // place needs both while it runs.
        pop();
        pop();
        return push(NumberRange::ofBool());
      }
      case ExprOp::kSelect: {
        const NumberRange other = pop();
        const NumberRange one = pop();
        pop();
        return push(unionOf(one, other));
      }
      default:
        break;
    }
    const uint32_t count = operandsOf(code.op);
    if (count == 0) return addOperand(code);
    if (count == 2) return addBinary(code);
    const bool indexed = code.op <= ExprOp::kRegister;
    return indexed ? addIndexed(code) : addUnary(code);
  }

  const StateLayout& layout_;
  const Expression& expression_;
  const std::vector<uint32_t>& param_widths_;
  CompiledExpression made_;
  std::vector<NumberRange> ranges_;
  std::map<uint32_t, Jump> jumps_;      // by the instruction in front of which they stand
  std::map<uint32_t, bool> labels_;     // instructions behind which jumps lead
  size_t last_label_ = SIZE_MAX;        // the latest of those places in the code
  std::vector<uint32_t> place_behind_;  // in the code, of each instruction of the expression
};

}  // namespace

CompiledExpression ExpressionCompiler::compile(const Expression& expression,
                                               const std::vector<uint32_t>& param_widths) const {
  return Compilation(layout_, expression, param_widths).run();
}

std::string ExpressionCompiler::refusal(const Expression& expression,
                                        const std::vector<uint32_t>& param_widths) const {
  const Machine& machine = layout_.machine;
  size_t depth = 0;
  const auto isField = [&machine](const std::vector<uint32_t>& headers, uint32_t number) {
    return !headers.empty() && number < machine.headers[headers[0]].field_count;
  };
  for (const ExprCode& code : expression) {
    const uint32_t count = operandsOf(code.op);
    if (depth < count) return "an operator without its operands";
    depth -= count;
    ++depth;
    bool known = true;
    switch (code.op) {
      case ExprOp::kConstant:
        known = code.a < machine.constants.size();
        break;
      case ExprOp::kField:
        known = code.a < machine.fields.size() && !machine.fields[code.a].varbit;
        break;
      case ExprOp::kHeaderValid:
        known = code.a < machine.headers.size();
        break;
      case ExprOp::kHeadersEqual:
        known = code.a < machine.headers.size() && code.b < machine.headers.size();
        break;
      case ExprOp::kUnionValid:
        known = code.a < machine.unions.size();
        break;
      case ExprOp::kParam:
        known = code.a < param_widths.size();
        break;
      case ExprOp::kStackLast:
      case ExprOp::kElementField:
        known = code.a < machine.stacks.size() && isField(machine.stacks[code.a].headers, code.b);
        break;
      case ExprOp::kStackLastIndex:
      case ExprOp::kStackSize:
      case ExprOp::kElementValid:
        known = code.a < machine.stacks.size();
        break;
      case ExprOp::kRegister:
        known = code.a < machine.registers.size();
        break;
      case ExprOp::kUnionStackLast:
      case ExprOp::kUnionElementField:
        known =
            code.a < machine.union_stacks.size() && !machine.union_stacks[code.a].unions.empty();
        break;
      default:
        break;
    }
    if (!known) return "an operand that does not exist";
  }
  return depth == 1 ? std::string{} : "an expression without a value";
}

}  // namespace jxmodel
