// The shape of a command line: COMMAND OPERAND... NAME=VALUE... [-> [ACTION] NAME=VALUE...]
// Words are separated by blanks; double quotes hold blanks inside a word. An empty line and one
// that begins with # is no command.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace jexapps {

/// The NAME=VALUE words of one side of a line. Handlers take out what they know; what stays is a
/// mistake of the writer.
class Assignments {
 public:
  struct Assignment {
    std::string name, value;
  };

  /// Throws CommandError if the name has been given before.
  void add(std::string name, std::string value);

  /// The value, taken out; none if it was not given.
  std::optional<std::string> take(std::string_view name);
  /// The same for a number of 32 bits; throws CommandError if it is none.
  std::optional<uint32_t> takeNumber(std::string_view name);

  bool empty() const { return items_.empty(); }
  const std::vector<Assignment>& items() const { return items_; }

 private:
  std::vector<Assignment> items_;
};

struct Line {
  std::string command;
  std::vector<std::string> operands;
  Assignments left;
  bool has_arrow = false;
  std::string action;  // the word without = behind the arrow, or empty
  Assignments right;
};

/// Throws CommandError for a quote without an end.
std::vector<std::string> splitWords(std::string_view text);

/// The first words behind the command, up to `max_operands`, are operands: up to `min_operands`
/// whatever they look like, then as long as they are no assignment. `words` is not empty. Throws
/// CommandError that says what is wrong.
Line parseLine(const std::vector<std::string>& words, size_t min_operands, size_t max_operands);

}  // namespace jexapps
