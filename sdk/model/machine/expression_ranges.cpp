#include "model/machine/expression_ranges.h"

#include <algorithm>
#include <initializer_list>

namespace jxmodel {
namespace {

/// Ranges beyond it are not told apart: they do not fit into an integer anyway.
constexpr uint32_t kWidestRange = 2 * kMaxArithmeticWidth;

Wide powerOf2(uint32_t bits) { return Wide(1) << bits; }

/// Bits of the longer end without its sign.
uint32_t bitsOf(const NumberRange& range) {
  const Wide longest = std::max<Wide>(abs(range.low), abs(range.high));
  return longest.is_zero() ? 0 : static_cast<uint32_t>(msb(longest)) + 1;
}

NumberRange signedRange(uint32_t bits) { return {-powerOf2(bits), powerOf2(bits) - 1}; }

NumberRange bounded(NumberRange range) {
  if (bitsOf(range) <= kWidestRange) return range;
  return {-powerOf2(kWidestRange), powerOf2(kWidestRange)};
}

NumberRange hullOf(std::initializer_list<Wide> values) {
  return bounded({std::min(values), std::max(values)});
}

NumberRange shiftedLeft(const NumberRange& left, const NumberRange& right) {
  uint32_t bits = 0;
  if (right.high > kMaxArithmeticWidth) {
    bits = kMaxArithmeticWidth;
  } else if (right.high > 0) {
    bits = right.high.convert_to<uint32_t>();
  }
  return hullOf({0, left.low, left.high, left.low << bits, left.high << bits});
}

NumberRange rangeOfAnd(const NumberRange& left, const NumberRange& right) {
  if (left.low >= 0 && right.low >= 0) return {0, std::min(left.high, right.high)};
  if (left.low >= 0) return {0, left.high};
  if (right.low >= 0) return {0, right.high};
  return signedRange(std::max(bitsOf(left), bitsOf(right)));
}

NumberRange rangeOfOr(const NumberRange& left, const NumberRange& right) {
  NumberRange range = signedRange(std::max(bitsOf(left), bitsOf(right)));
  if (left.low >= 0 && right.low >= 0) return {0, range.high};
  return range;
}

NumberRange quotients(const NumberRange& left) {
  const Wide most = std::max<Wide>(abs(left.low), abs(left.high));
  return {left.low < 0 ? Wide(-most) : Wide(0), most};
}

}  // namespace

NumberRange NumberRange::ofField(uint32_t width, bool is_signed) {
  if (width == 0) return {0, 0};
  return is_signed ? signedRange(width - 1) : NumberRange{0, powerOf2(width) - 1};
}

bool NumberRange::within(uint32_t bits) const {
  const NumberRange all = signedRange(bits - 1);
  return low >= all.low && high <= all.high;
}

NumberRange unionOf(const NumberRange& one, const NumberRange& other) {
  return {std::min(one.low, other.low), std::max(one.high, other.high)};
}

NumberRange rangeOfBinary(ExprOp op, const NumberRange& left, const NumberRange& right) {
  switch (op) {
    case ExprOp::kAdd:
      return bounded({left.low + right.low, left.high + right.high});
    case ExprOp::kSubtract:
      return bounded({left.low - right.high, left.high - right.low});
    case ExprOp::kMultiply:
      return hullOf({left.low * right.low, left.low * right.high, left.high * right.low,
                     left.high * right.high});
    case ExprOp::kShiftLeft:
      return shiftedLeft(left, right);
    case ExprOp::kShiftRight:
      return hullOf({left.low, left.high, 0, left.low < 0 ? -1 : 0});
    case ExprOp::kAnd:
      return rangeOfAnd(left, right);
    case ExprOp::kOr:
    case ExprOp::kXor:
      return rangeOfOr(left, right);
    default:  // kDivide, kModulo
      return quotients(left);
  }
}

NumberRange rangeOfUnary(ExprOp op, const NumberRange& value, uint32_t bits) {
  if (op == ExprOp::kNot) return {-value.high - 1, -value.low - 1};
  const NumberRange all = NumberRange::ofField(bits, op != ExprOp::kClampUnsigned);
  if (op == ExprOp::kWrapSigned) {
    return value.low >= all.low && value.high <= all.high ? value : all;
  }
  return {std::clamp(value.low, all.low, all.high), std::clamp(value.high, all.low, all.high)};
}

}  // namespace jxmodel
