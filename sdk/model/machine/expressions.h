// Expressions of a machine as flat code for a stack of numbers.
//
// The range of every intermediate value is computed when the code is made. Where all of them fit
// into 64 or 128 bits, the code runs on such integers; else on numbers of any size. Operands of
// `and`, `or` and `?` that do not count are jumped over: what goes wrong in them goes unnoticed.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "model/machine/machine_counts.h"
#include "model/machine/packet_state.h"
#include "model/machine/register_view.h"
#include "model/machine/wide.h"
#include "model/program/machine.h"

namespace jxmodel {

/// What went wrong while a parser computed something.
enum class ParserFault : uint8_t { kNone, kPacketTooShort, kStackOutOfBounds };

/// What an expression can read.
struct ExpressionInput {
  PacketState* state = nullptr;
  const uint8_t* params = nullptr;  // of the action that runs, packed
  const uint8_t* data = nullptr;    // of the packet
  uint32_t size = 0;
  uint32_t offset = 0;  // the parser's place
  bool in_parser = false;
  ParserFault fault = ParserFault::kNone;  // set in parsers only
  const RegisterView* registers = nullptr;
  MachineTally* tally = nullptr;
};

/// Made by ExpressionCompiler.
struct CompiledExpression {
  enum class Arithmetic : uint8_t { k64, k128, kWide };
  enum class Code : uint8_t {
    // Operands.
    kImmediate,    // `immediate`
    kConstant,     // wide constant `a`
    kWord,         // word `a`
    kField,        // field `a`: signed or of several words
    kHeaderValid,  // header `a`
    kUnionValid,
    kParam,      // at offset `a`, `b` bits
    kLookahead,  // `b` bits, `a` bits on
    kStackLast,  // field number `b` of the last element of stack `a`
    kStackLastIndex,
    kStackSize,
    kUnionStackLast,
    kElementField,
    kElementValid,
    kUnionElementField,
    kHeadersEqual,
    kRegister,
    // Of two numbers; see Operands.
    kAdd,
    kSubtract,
    kMultiply,
    kDivide,
    kModulo,
    kShiftLeft,
    kShiftRight,
    kAnd,
    kOr,
    kXor,
    kEqual,
    kNotEqual,
    kLess,
    kLessEqual,
    kGreater,
    kGreaterEqual,
    // Of one number; `a` bits.
    kNot,
    kWrapSigned,
    kClampUnsigned,
    kClampSigned,
    kLogicalNot,
    kToBool,
    // Jumps to instruction `a`.
    kJump,
    kJumpIfFalse,      // takes the number away
    kJumpIfFalseKeep,  // leaves it where it jumps
    kJumpIfTrueKeep,
    kEnd,
  };
  /// What the two numbers of an operator are: `b` of the instruction.
  enum Operands : uint32_t {
    kBothOnStack,
    kImmediateRight,  // `immediate`
    kWordRight,       // word `a`
    kWordImmediate,   // word `a`, then `immediate`; nothing is taken from the stack
  };
  struct Instruction {
    Code code = Code::kEnd;
    uint32_t a = 0, b = 0;
    int64_t immediate = 0;
  };

  std::vector<Instruction> code;  // ends with kEnd
  /// What many expressions are: computed without a stack.
  enum class Shape : uint8_t {
    kCode,
    kWord,         // word `a` of the only instruction
    kHeaderValid,  // header `a`
    kEqual,        // word `a` is `immediate`, which is not negative
    kNotEqual,
    kWordsEqual,  // word `a` of the first instruction, and of the second
    kWordsDiffer,
  };
  Shape shape = Shape::kCode;
  Arithmetic arithmetic = Arithmetic::k64;
  uint32_t depth = 1;  // numbers on the stack at most
};

class ExpressionCompiler {
 public:
  explicit ExpressionCompiler(const StateLayout& layout) : layout_(layout) {}

  /// `param_widths` are those of the action that the expression is in. The expression passed
  /// refusal().
  CompiledExpression compile(const Expression& expression,
                             const std::vector<uint32_t>& param_widths) const;

  /// Why this is no expression of the machine, empty if it is one.
  std::string refusal(const Expression& expression,
                      const std::vector<uint32_t>& param_widths) const;

 private:
  const StateLayout& layout_;
};

/// Evaluates expressions of one machine, one after the other.
class Evaluator {
 public:
  explicit Evaluator(const StateLayout& layout) : layout_(layout) {}

  /// Room for stacks; to be called with the greatest CompiledExpression::depth.
  void reserve(uint32_t depth);

  bool isTrue(const CompiledExpression& expression, ExpressionInput& input) {
    return low64(expression, input) != 0;
  }
  /// The value modulo 2^64.
  uint64_t low64(const CompiledExpression& expression, ExpressionInput& input) {
    using Shape = CompiledExpression::Shape;
    const CompiledExpression::Instruction& first = expression.code.front();
    const PacketState& state = *input.state;
    switch (expression.shape) {
      case Shape::kWord:
        return state.limbs[first.a];
      case Shape::kHeaderValid:
        return state.valid[first.a];
      case Shape::kEqual:
        return state.limbs[first.a] == static_cast<uint64_t>(first.immediate) ? 1 : 0;
      case Shape::kNotEqual:
        return state.limbs[first.a] != static_cast<uint64_t>(first.immediate) ? 1 : 0;
      case Shape::kWordsEqual:
        return state.limbs[first.a] == state.limbs[expression.code[1].a] ? 1 : 0;
      case Shape::kWordsDiffer:
        return state.limbs[first.a] != state.limbs[expression.code[1].a] ? 1 : 0;
      case Shape::kCode:
        break;
    }
    return low64Of(expression, input);
  }
  /// The value; UINT64_MAX where it is negative or greater.
  uint64_t index(const CompiledExpression& expression, ExpressionInput& input);
  /// The value modulo 2^width as words.
  void value(const CompiledExpression& expression, ExpressionInput& input, uint32_t width,
             uint64_t* limbs);
  Wide wide(const CompiledExpression& expression, ExpressionInput& input);

 private:
  uint64_t low64Of(const CompiledExpression& expression, ExpressionInput& input);
  template <typename Number>
  Number run(const CompiledExpression& expression, ExpressionInput& input, Number* stack);
  template <typename Number>
  Number fieldValue(const ExpressionInput& input, uint32_t field) const;
  template <typename Number>
  Number registerValue(ExpressionInput& input, uint32_t number, const Number& index) const;
  template <typename Number>
  Number lookahead(ExpressionInput& input, uint64_t bit, uint32_t width) const;
  template <typename Number>
  Number operand(const CompiledExpression::Instruction& instruction, ExpressionInput& input) const;
  template <typename Number>
  Number element(const CompiledExpression::Instruction& instruction, ExpressionInput& input,
                 const Number& index) const;
  uint32_t fieldOfLast(const CompiledExpression::Instruction& instruction,
                       ExpressionInput& input) const;

  const StateLayout& layout_;
  std::vector<int64_t> narrow_;
  std::vector<Int128> medium_;
  std::vector<Wide> wide_;
};

}  // namespace jxmodel
