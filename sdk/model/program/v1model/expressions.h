// Operands and operators: from nested objects to flat code.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "model/program/v1model/draft.h"

namespace jxmodel::v1model {

/// What an operand may refer to where it stands.
struct Scope {
  const MachineAction* action = nullptr;  // its parameters; null: there are none
  bool parser = false;                    // what lies ahead in the packet
};

/// A number or a truth value as code. Nested expressions are followed without recursion.
Expression readExpression(const Node& operand, const Scope& scope, Draft* draft);
/// The same where a truth value is needed: a number is one if it is not 0.
Expression readCondition(const Node& operand, const Scope& scope, Draft* draft);

/// Index of a constant in the machine.
uint32_t addConstant(const Number& number, Draft* draft);

/// Removes expressions that hold nothing but another operand.
Node unwrapped(const Node& operand);
/// "type" of an unwrapped operand; "expression" if it is an operator.
std::string typeOf(const Node& operand);
/// The number of an operand that is a constant.
std::optional<Number> constantOf(const Node& operand);

/// A header as an operand names it.
struct HeaderUse {
  enum class Kind : uint8_t {
    kNamed,         // headers[index]
    kLast,          // the last element of stacks[index]
    kElement,       // an element of stacks[index] at a place that the packet decides
    kUnionLast,     // member `member` of the last element of union_stacks[index]
    kUnionElement,  // member `member` of an element of union_stacks[index]
  };
  Kind kind = Kind::kNamed;
  uint32_t index = 0;
  uint32_t member = 0;
  uint32_t like = 0;          // a header of the same type
  std::optional<Node> place;  // kElement, kUnionElement: operand of the element's number
};
HeaderUse readHeaderUse(const Node& operand, const Draft& draft);

/// A field as an operand names it.
struct FieldUse {
  HeaderUse header;
  uint32_t number = 0;    // within the header
  bool validity = false;  // of the header, instead of a field
};
bool isFieldUse(const Node& operand);
FieldUse readFieldUse(const Node& operand, const Draft& draft);
/// A field like the one that is named; null for a validity.
const MachineField* likeOf(const FieldUse& use, const Machine& machine);
std::string nameOf(const FieldUse& use, const Machine& machine);

Target readTarget(const Node& operand, const Scope& scope, Draft* draft);
HeaderRef readHeaderRef(const Node& operand, const Scope& scope, Draft* draft);

/// The varbit that an operand names, if it names one.
std::optional<uint32_t> varbitOf(const Node& operand, const Draft& draft);

}  // namespace jxmodel::v1model
