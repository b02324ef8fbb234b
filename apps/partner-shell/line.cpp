#include "line.h"

#include <algorithm>

#include "command_error.h"
#include "value.h"

namespace jexapps {
namespace {

constexpr std::string_view kArrow = "->";

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

bool isAssignment(std::string_view word) { return word.find('=') != std::string_view::npos; }

void addAssignment(std::string_view word, Assignments* assignments) {
  const size_t equals = word.find('=');
  if (equals == 0) throw CommandError("'" + std::string(word) + "' has no name before the =");
  assignments->add(std::string(word.substr(0, equals)), std::string(word.substr(equals + 1)));
}

void parseRightWord(const std::string& word, Line* line) {
  if (isAssignment(word)) return addAssignment(word, &line->right);
  if (word == kArrow) throw CommandError("a second ->");
  if (!line->action.empty()) {
    throw CommandError("'" + word + "' after action '" + line->action + "' is no NAME=VALUE");
  }
  line->action = word;
}

void parseLeftWord(const std::string& word, Line* line) {
  if (!isAssignment(word)) throw CommandError("'" + word + "' is no NAME=VALUE");
  addAssignment(word, &line->left);
}

}  // namespace

void Assignments::add(std::string name, std::string value) {
  const bool given = std::any_of(items_.begin(), items_.end(),
                                 [&](const Assignment& item) { return item.name == name; });
  if (given) throw CommandError("'" + name + "' is given twice");
  items_.push_back({std::move(name), std::move(value)});
}

std::optional<std::string> Assignments::take(std::string_view name) {
  const auto it = std::find_if(items_.begin(), items_.end(),
                               [&](const Assignment& item) { return item.name == name; });
  if (it == items_.end()) return std::nullopt;
  std::string value = std::move(it->value);
  items_.erase(it);
  return value;
}

std::optional<uint32_t> Assignments::takeNumber(std::string_view name) {
  const std::optional<std::string> text = take(name);
  if (!text) return std::nullopt;
  uint32_t number = 0;
  std::string error;
  if (!parseNumber(*text, name, &number, &error)) throw CommandError(error);
  return number;
}

std::vector<std::string> splitWords(std::string_view text) {
  std::vector<std::string> words;
  std::string word;
  bool in_word = false, quoted = false;
  for (const char c : text) {
    if (!quoted && isBlank(c)) {
      if (in_word) words.push_back(std::move(word));
      word.clear();
      in_word = false;
      continue;
    }
    if (!in_word && words.empty() && c == '#') return words;
    in_word = true;
    if (c == '"') {
      quoted = !quoted;
    } else {
      word.push_back(c);
    }
  }
  if (quoted) throw CommandError("a double quote is not closed");
  if (in_word) words.push_back(std::move(word));
  return words;
}

Line parseLine(const std::vector<std::string>& words, size_t min_operands, size_t max_operands) {
  Line line;
  line.command = words[0];
  size_t next = 1;
  for (; next < words.size() && line.operands.size() < max_operands; ++next) {
    const bool wanted = line.operands.size() < min_operands;
    if (words[next] == kArrow || (!wanted && isAssignment(words[next]))) break;
    line.operands.push_back(words[next]);
  }
  for (; next < words.size(); ++next) {
    if (line.has_arrow) {
      parseRightWord(words[next], &line);
    } else if (words[next] == kArrow) {
      line.has_arrow = true;
    } else {
      parseLeftWord(words[next], &line);
    }
  }
  return line;
}

}  // namespace jexapps
