// Evaluates expressions that it reads, for expressions_check.py. A line of the input is a case:
//   WIDTHS ; VALUES ; CODE
// WIDTHS are those of the fields, a negative one of a signed field; VALUES are in hexadecimal, cut
// to the widths; CODE is a list of operators by number with their operands in brackets, or "c" and
// a constant. A line of the output is the value in hexadecimal, modulo 2^256, and the arithmetic.
#include <iostream>
#include <map>
#include <sstream>

#include "model/machine/expressions.h"

namespace {

using namespace jxmodel;

constexpr uint32_t kResultWidth = 256;

Number numberOf(std::string text) {
  Number number;
  number.negative = text[0] == '-';
  if (number.negative) text.erase(0, 1);
  if (text.size() % 2 != 0) text.insert(0, "0");
  for (size_t i = 0; i < text.size(); i += 2) {
    number.magnitude.push_back(static_cast<uint8_t>(std::stoi(text.substr(i, 2), nullptr, 16)));
  }
  return number;
}

struct Case {
  Machine machine;
  Expression expression;
  std::vector<Number> values;
};

Case read(const std::string& line) {
  Case made;
  std::istringstream parts(line);
  std::string part, word;
  std::getline(parts, part, ';');
  MachineHeader header;
  header.metadata = true;
  for (std::istringstream widths(part); widths >> word;) {
    MachineField field;
    const int width = std::stoi(word);
    field.width = static_cast<uint32_t>(std::abs(width));
    field.is_signed = width < 0;
    made.machine.fields.push_back(field);
  }
  header.field_count = static_cast<uint32_t>(made.machine.fields.size());
  made.machine.headers.push_back(header);
  std::getline(parts, part, ';');
  for (std::istringstream values(part); values >> word;) made.values.push_back(numberOf(word));
  std::getline(parts, part, ';');
  for (std::istringstream codes(part); codes >> word;) {
    if (word[0] == 'c') {
      made.expression.push_back(
          {ExprOp::kConstant, static_cast<uint32_t>(made.machine.constants.size()), 0});
      made.machine.constants.push_back(numberOf(word.substr(1)));
      continue;
    }
    const size_t bracket = word.find('(');
    const auto op = static_cast<ExprOp>(std::stoi(word.substr(0, bracket)));
    const int operand = bracket == std::string::npos ? 0 : std::stoi(word.substr(bracket + 1));
    made.expression.push_back({op, static_cast<uint32_t>(operand), 0});
  }
  return made;
}

std::string evaluate(const Case& one) {
  const StateLayout layout(one.machine);
  const ExpressionCompiler compiler(layout);
  const std::string reason = compiler.refusal(one.expression, {});
  if (!reason.empty()) return reason;
  const CompiledExpression compiled = compiler.compile(one.expression, {});
  PacketState state;
  state.fit(layout);
  for (size_t i = 0; i < one.values.size(); ++i) {
    const std::vector<uint8_t>& bytes = one.values[i].magnitude;
    bytesToLimbs(bytes.data(), static_cast<uint32_t>(bytes.size()),
                 state.limbs.data() + layout.fields[i].limb, layout.fields[i].limbs);
  }
  MachineTally tally;
  ExpressionInput input;
  input.state = &state;
  input.tally = &tally;
  Evaluator evaluator(layout);
  evaluator.reserve(compiled.depth);
  uint64_t limbs[kResultWidth / 64];
  evaluator.value(compiled, input, kResultWidth, limbs);
  std::ostringstream text;
  text << std::hex;
  for (int i = kResultWidth / 64 - 1; i >= 0; --i) {
    text.width(16);
    text.fill('0');
    text << limbs[i];
  }
  const auto count = [&tally](MachineEvent event) { return tally[static_cast<size_t>(event)]; };
  text << ' ' << static_cast<int>(compiled.arithmetic) << ' '
       << count(MachineEvent::kDivisionByZero) << ' ' << count(MachineEvent::kNegativeShift);
  return text.str();
}

}  // namespace

int main() {
  for (std::string line; std::getline(std::cin, line);) std::cout << evaluate(read(line)) << '\n';
}
