#include "model/machine/expressions.h"

#include <absl/container/inlined_vector.h>

#include <type_traits>

namespace jxmodel {
namespace {

using Code = CompiledExpression::Code;
using Instruction = CompiledExpression::Instruction;

/// Bits of the longest number on the way: numbers are taken modulo that. Only chains of products
/// and shifts reach it, and no field that the result is cut to.
constexpr uint32_t kMaxBits = 16 * kMaxArithmeticWidth;

template <typename Number>
constexpr bool kIsWide = std::is_same_v<Number, Wide>;
template <typename Number>
constexpr uint32_t kBits = 8 * sizeof(Number);

/// Shifts as unsigned numbers, for which overflow is defined.
uint64_t asUnsigned(int64_t value) { return static_cast<uint64_t>(value); }
__extension__ using Unsigned128 = unsigned __int128;
Unsigned128 asUnsigned(Int128 value) { return static_cast<Unsigned128>(value); }

Wide cutLong(Wide value) {
  if (value.is_zero() || msb(abs(value)) < kMaxBits) return value;
  return lowBits(value, kMaxBits);
}

/// An amount that is not negative, at most the greatest width.
template <typename Number>
uint32_t amountOf(const Number& value) {
  return value > kMaxArithmeticWidth ? kMaxArithmeticWidth : static_cast<uint32_t>(value);
}

template <typename Number>
Number shiftLeft(const Number& value, const Number& by, MachineTally& tally) {
  if (by < 0) {
    tally.add(MachineEvent::kNegativeShift);
    return 0;
  }
  const uint32_t amount = amountOf(by);
  if (amount == kMaxArithmeticWidth) return 0;
  if constexpr (kIsWide<Number>) {
    return cutLong(value << amount);
  } else {
    return amount >= kBits<Number> ? Number(0) : static_cast<Number>(asUnsigned(value) << amount);
  }
}

template <typename Number>
Number shiftRight(const Number& value, const Number& by, MachineTally& tally) {
  if (by < 0) {
    tally.add(MachineEvent::kNegativeShift);
    return 0;
  }
  const uint32_t amount = amountOf(by);
  if constexpr (kIsWide<Number>) {
    // Numbers may be longer than the greatest amount, but no field is.
    if (amount == kMaxArithmeticWidth) return value < 0 ? Number(-1) : Number(0);
    return value >> amount;
  } else {
    return value >> std::min(amount, kBits<Number> - 1);
  }
}

template <typename Number>
Number divide(const Number& left, const Number& right, bool remainder, MachineTally& tally) {
  if (right == 0) {
    tally.add(MachineEvent::kDivisionByZero);
    return 0;
  }
  if (right == -1) return remainder ? Number(0) : Number(-left);
  return remainder ? Number(left % right) : Number(left / right);
}

template <typename Number>
Number wrapSigned(const Number& value, uint32_t bits) {
  if (bits == 0) return 0;
  if constexpr (kIsWide<Number>) {
    Wide cut = lowBits(value, bits);
    return bit_test(cut, bits - 1) ? Wide(cut - (Wide(1) << bits)) : cut;
  } else {
    if (bits >= kBits<Number>) return value;
    const uint32_t shift = kBits<Number> - bits;
    return static_cast<Number>(asUnsigned(value) << shift) >> shift;
  }
}

/// `bits` without the sign.
template <typename Number>
Number clampTo(const Number& value, uint32_t bits, bool is_signed) {
  if (!is_signed && value < 0) return 0;
  if constexpr (!kIsWide<Number>) {
    if (bits >= kBits<Number> - 1) return value;
  }
  const Number end = Number(1) << bits;
  if (value >= end) return end - 1;
  if (is_signed && value < -end) return -end;
  return value;
}

template <typename Number>
[[gnu::always_inline]] inline Number binary(Code code, const Number& left, const Number& right,
                                            MachineTally& tally) {
  switch (code) {
    case Code::kAdd:
      return left + right;
    case Code::kSubtract:
      return left - right;
    case Code::kMultiply:
      if constexpr (kIsWide<Number>) return cutLong(left * right);
      return left * right;
    case Code::kDivide:
      return divide<Number>(left, right, false, tally);
    case Code::kModulo:
      return divide<Number>(left, right, true, tally);
    case Code::kShiftLeft:
      return shiftLeft<Number>(left, right, tally);
    case Code::kShiftRight:
      return shiftRight<Number>(left, right, tally);
    case Code::kAnd:
      return left & right;
    case Code::kOr:
      return left | right;
    case Code::kXor:
      return left ^ right;
    case Code::kEqual:
      return left == right ? 1 : 0;
    case Code::kNotEqual:
      return left != right ? 1 : 0;
    case Code::kLess:
      return left < right ? 1 : 0;
    case Code::kLessEqual:
      return left <= right ? 1 : 0;
    case Code::kGreater:
      return left > right ? 1 : 0;
    default:  // kGreaterEqual
      return left >= right ? 1 : 0;
  }
}

template <typename Number>
Number unary(const Instruction& instruction, const Number& value) {
  switch (instruction.code) {
    case Code::kNot:
      return -value - 1;
    case Code::kWrapSigned:
      return wrapSigned<Number>(value, instruction.a);
    case Code::kClampUnsigned:
      return clampTo<Number>(value, instruction.a, false);
    case Code::kClampSigned:
      return instruction.a == 0 ? Number(0) : clampTo<Number>(value, instruction.a - 1, true);
    case Code::kLogicalNot:
      return value == 0 ? 1 : 0;
    default:  // kToBool
      return value != 0 ? 1 : 0;
  }
}

/// A value of `width` bits in words as a number that can hold it.
template <typename Number>
Number numberOf(const uint64_t* limbs, uint32_t width, bool is_signed) {
  if constexpr (kIsWide<Number>) {
    Wide value = wideOf(limbs, limbsOf(width));
    return is_signed ? wrapSigned<Wide>(value, width) : value;
  } else {
    Number value = 0;
    for (uint32_t i = std::min<uint32_t>(limbsOf(width), sizeof(Number) / 8); i-- > 0;) {
      if constexpr (sizeof(Number) > 8) value = static_cast<Number>(asUnsigned(value) << 64);
      value |= static_cast<Number>(limbs[i]);
    }
    return is_signed ? wrapSigned<Number>(value, width) : value;
  }
}

/// The index that a number is; UINT64_MAX if it is none.
template <typename Number>
uint64_t indexOf(const Number& value) {
  if (value < 0 || value > INT64_MAX) return UINT64_MAX;
  return static_cast<uint64_t>(value);
}

}  // namespace

void Evaluator::reserve(uint32_t depth) {
  narrow_.resize(depth);
  medium_.resize(depth);
  wide_.resize(depth);
}

template <typename Number>
Number Evaluator::fieldValue(const ExpressionInput& input, uint32_t field) const {
  const FieldSlot& slot = layout_.fields[field];
  return numberOf<Number>(input.state->limbs.data() + slot.limb, slot.width, slot.is_signed);
}

template <typename Number>
Number Evaluator::registerValue(ExpressionInput& input, uint32_t number,
                                const Number& index) const {
  const RegisterArray& array = input.registers->array(number);
  const uint64_t at = indexOf<Number>(index);
  if (at >= array.size()) {
    input.tally->add(MachineEvent::kIndexOutOfRange);
    return 0;
  }
  absl::InlinedVector<uint64_t, 4> limbs(array.limbs());
  input.registers->read(number, static_cast<uint32_t>(at), limbs.data());
  return numberOf<Number>(limbs.data(), array.width(), false);
}

template <typename Number>
Number Evaluator::lookahead(ExpressionInput& input, uint64_t bit, uint32_t width) const {
  const uint64_t first = uint64_t{input.offset} * 8 + bit;
  if (first + width > uint64_t{input.size} * 8) {
    input.fault = ParserFault::kPacketTooShort;
    return 0;
  }
  absl::InlinedVector<uint64_t, 4> limbs(limbsOf(width));
  loadBits(input.data, first, width, limbs.data());
  return numberOf<Number>(limbs.data(), width, false);
}

/// The field of the last element of a stack or of a union stack; kNoIndex if it is empty.
uint32_t Evaluator::fieldOfLast(const Instruction& instruction, ExpressionInput& input) const {
  const Machine& machine = layout_.machine;
  const bool of_union = instruction.code == Code::kUnionStackLast;
  const uint32_t next =
      of_union ? input.state->union_next[instruction.a] : input.state->next[instruction.a];
  if (next == 0) {
    if (input.in_parser) input.fault = ParserFault::kStackOutOfBounds;
    return kNoIndex;
  }
  if (!of_union) {
    const uint32_t header = machine.stacks[instruction.a].headers[next - 1];
    return machine.headers[header].first_field + instruction.b;
  }
  const uint32_t number = machine.union_stacks[instruction.a].unions[next - 1];
  const uint32_t header = machine.unions[number].headers[instruction.b >> 16];
  return machine.headers[header].first_field + (instruction.b & 0xFFFF);
}

template <typename Number>
Number Evaluator::operand(const Instruction& instruction, ExpressionInput& input) const {
  const PacketState& state = *input.state;
  switch (instruction.code) {
    case Code::kConstant: {
      const jxmodel::Number& constant = layout_.machine.constants[instruction.a];
      Wide value;
      import_bits(value, constant.magnitude.begin(), constant.magnitude.end());
      if (constant.negative) value = -value;
      return static_cast<Number>(value);
    }
    case Code::kField:
      return fieldValue<Number>(input, instruction.a);
    case Code::kUnionValid:
      return state.unionValid(layout_, instruction.a) ? 1 : 0;
    case Code::kParam: {
      absl::InlinedVector<uint64_t, 4> limbs(limbsOf(instruction.b));
      bytesToLimbs(input.params + instruction.a, (instruction.b + 7) / 8, limbs.data(),
                   limbsOf(instruction.b));
      return numberOf<Number>(limbs.data(), instruction.b, false);
    }
    case Code::kLookahead:
      return lookahead<Number>(input, instruction.a, instruction.b);
    case Code::kStackLastIndex:
      return Number(state.next[instruction.a]) - 1;
    case Code::kStackSize:
      return Number(state.next[instruction.a]);
    case Code::kHeadersEqual:
      return state.equal(layout_, instruction.a, instruction.b) ? 1 : 0;
    default: {  // kStackLast, kUnionStackLast
      const uint32_t field = fieldOfLast(instruction, input);
      return field == kNoIndex ? Number(0) : fieldValue<Number>(input, field);
    }
  }
}

template <typename Number>
Number Evaluator::element(const Instruction& instruction, ExpressionInput& input,
                          const Number& index) const {
  const Machine& machine = layout_.machine;
  const uint64_t at = indexOf<Number>(index);
  const bool of_union = instruction.code == Code::kUnionElementField;
  const std::vector<uint32_t>& elements =
      of_union ? machine.union_stacks[instruction.a].unions : machine.stacks[instruction.a].headers;
  if (at >= elements.size()) {
    input.tally->add(MachineEvent::kIndexOutOfRange);
    return 0;
  }
  if (instruction.code == Code::kElementValid) return input.state->valid[elements[at]] != 0 ? 1 : 0;
  uint32_t header = elements[at];
  if (of_union) header = machine.unions[header].headers[instruction.b >> 16];
  const uint32_t number = of_union ? instruction.b & 0xFFFF : instruction.b;
  return fieldValue<Number>(input, machine.headers[header].first_field + number);
}

template <typename Number>
Number Evaluator::run(const CompiledExpression& expression, ExpressionInput& input, Number* stack) {
  Number* top = stack - 1;  // the last number
  const Instruction* const code = expression.code.data();
  Number right = 0;  // of an operator
  for (const Instruction* at = code;; ++at) {
    switch (at->code) {
      case Code::kImmediate:
        *++top = Number(at->immediate);
        break;
      case Code::kWord:
        *++top = static_cast<Number>(input.state->limbs[at->a]);
        break;
      case Code::kHeaderValid:
        *++top = Number(input.state->valid[at->a]);
        break;
      case Code::kConstant:
      case Code::kField:
      case Code::kUnionValid:
      case Code::kParam:
      case Code::kLookahead:
      case Code::kStackLast:
      case Code::kStackLastIndex:
      case Code::kStackSize:
      case Code::kUnionStackLast:
      case Code::kHeadersEqual:
        *++top = operand<Number>(*at, input);
        break;
      case Code::kElementField:
      case Code::kElementValid:
      case Code::kUnionElementField:
        *top = element<Number>(*at, input, *top);
        break;
      case Code::kRegister:
        *top = registerValue<Number>(input, at->a, *top);
        break;
      case Code::kNot:
      case Code::kWrapSigned:
      case Code::kClampUnsigned:
      case Code::kClampSigned:
      case Code::kLogicalNot:
      case Code::kToBool:
        *top = unary<Number>(*at, *top);
        break;
      case Code::kJump:
        at = code + at->a - 1;
        break;
      case Code::kJumpIfFalse:
        if (*top-- == 0) at = code + at->a - 1;
        break;
      case Code::kJumpIfFalseKeep:
        if (*top == 0) {
          at = code + at->a - 1;
        } else {
          --top;
        }
        break;
      case Code::kJumpIfTrueKeep:
        if (*top != 0) {
          at = code + at->a - 1;
        } else {
          --top;
        }
        break;
      case Code::kEnd:
        return *top;
      default:  // operators of two numbers
        switch (at->b) {
          case CompiledExpression::kImmediateRight:
            right = Number(at->immediate);
            break;
          case CompiledExpression::kWordRight:
            right = static_cast<Number>(input.state->limbs[at->a]);
            break;
          case CompiledExpression::kWordImmediate:
            *++top = static_cast<Number>(input.state->limbs[at->a]);
            right = Number(at->immediate);
            break;
          default:
            right = *top--;
            break;
        }
        *top = binary<Number>(at->code, *top, right, *input.tally);
        break;
    }
  }
}

uint64_t Evaluator::low64Of(const CompiledExpression& expression, ExpressionInput& input) {
  switch (expression.arithmetic) {
    case CompiledExpression::Arithmetic::k64:
      return static_cast<uint64_t>(run<int64_t>(expression, input, narrow_.data()));
    case CompiledExpression::Arithmetic::k128:
      return static_cast<uint64_t>(run<Int128>(expression, input, medium_.data()));
    case CompiledExpression::Arithmetic::kWide:
      break;
  }
  uint64_t low = 0;
  toLimbs(run<Wide>(expression, input, wide_.data()), &low, 1);
  return low;
}

uint64_t Evaluator::index(const CompiledExpression& expression, ExpressionInput& input) {
  if (expression.shape == CompiledExpression::Shape::kWord) {
    return indexOf(Int128(input.state->limbs[expression.code.front().a]));
  }
  switch (expression.arithmetic) {
    case CompiledExpression::Arithmetic::k64:
      return indexOf(run<int64_t>(expression, input, narrow_.data()));
    case CompiledExpression::Arithmetic::k128:
      return indexOf(run<Int128>(expression, input, medium_.data()));
    case CompiledExpression::Arithmetic::kWide:
      break;
  }
  return indexOf(run<Wide>(expression, input, wide_.data()));
}

void Evaluator::value(const CompiledExpression& expression, ExpressionInput& input, uint32_t width,
                      uint64_t* limbs) {
  const uint32_t count = limbsOf(width);
  if (expression.arithmetic == CompiledExpression::Arithmetic::kWide) {
    toLimbs(run<Wide>(expression, input, wide_.data()), limbs, count);
  } else {
    const Int128 number = expression.arithmetic == CompiledExpression::Arithmetic::k64
                              ? run<int64_t>(expression, input, narrow_.data())
                              : run<Int128>(expression, input, medium_.data());
    limbs[0] = static_cast<uint64_t>(number);
    if (count > 1) limbs[1] = static_cast<uint64_t>(number >> 64);
    for (uint32_t i = 2; i < count; ++i) limbs[i] = number < 0 ? ~uint64_t{0} : 0;
  }
  cutTop(limbs, width);
}

Wide Evaluator::wide(const CompiledExpression& expression, ExpressionInput& input) {
  switch (expression.arithmetic) {
    case CompiledExpression::Arithmetic::k64:
      return run<int64_t>(expression, input, narrow_.data());
    case CompiledExpression::Arithmetic::k128:
      return Wide(run<Int128>(expression, input, medium_.data()));
    case CompiledExpression::Arithmetic::kWide:
      break;
  }
  return run<Wide>(expression, input, wide_.data());
}

}  // namespace jxmodel
