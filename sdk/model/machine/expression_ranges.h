// The range of what an expression's operators can yield, from the ranges of their operands.
#pragma once

#include "model/machine/wide.h"
#include "model/program/machine.h"

namespace jxmodel {

struct NumberRange {
  Wide low, high;  // both included

  static NumberRange ofField(uint32_t width, bool is_signed);
  static NumberRange ofBool() { return {0, 1}; }
  static NumberRange of(const Wide& value) { return {value, value}; }
  /// Whether all of it can be held by a signed integer of so many bits.
  bool within(uint32_t bits) const;
};

/// `op` is one of D, D -> D.
NumberRange rangeOfBinary(ExprOp op, const NumberRange& left, const NumberRange& right);
/// `op` is one of D -> D; `bits` is its operand.
NumberRange rangeOfUnary(ExprOp op, const NumberRange& value, uint32_t bits);
NumberRange unionOf(const NumberRange& one, const NumberRange& other);

}  // namespace jxmodel
