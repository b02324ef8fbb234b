// What could stand in the place of a word that is being typed.
#include <algorithm>

#include "command_error.h"
#include "shell.h"

namespace jexapps {
namespace {

// Gathers the words that begin as the one that is being typed.
class Candidates {
 public:
  explicit Candidates(std::string_view prefix) : prefix_(prefix) {}

  void offer(std::string word) {
    if (word.compare(0, prefix_.size(), prefix_) == 0) words_.push_back(std::move(word));
  }
  std::vector<std::string> take() { return std::move(words_); }

 private:
  std::string_view prefix_;
  std::vector<std::string> words_;
};

const Command* commandOf(const std::vector<std::string>& words) {
  const auto it = std::find_if(commands().begin(), commands().end(),
                               [&](const Command& command) { return words[0] == command.name; });
  return it == commands().end() ? nullptr : &*it;
}

template <typename Wanted>
void offerTables(const Shell& shell, Wanted wanted, Candidates* candidates) {
  for (const TableFacts& table : shell.tables()) {
    if (wanted(table)) candidates->offer(table.name);
  }
}

void offerNames(const Shell& shell, Command::Operand kind, Candidates* candidates) {
  using Operand = Command::Operand;
  switch (kind) {
    case Operand::kTable:
      return offerTables(
          shell, [](const TableFacts&) { return true; }, candidates);
    case Operand::kCounterTable:
      return offerTables(
          shell, [](const TableFacts& table) { return table.type == JX_RT_TABLE_COUNTER; },
          candidates);
    case Operand::kIdleTable:
      return offerTables(
          shell,
          [](const TableFacts& table) { return table.dataField(JX_RT_FIELD_TTL) != nullptr; },
          candidates);
    case Operand::kDigest:
      for (const DigestFacts& digest : shell.digests()) candidates->offer(digest.name);
      return;
    case Operand::kQueue:
      for (const std::string& queue : shell.queueNames()) candidates->offer(queue);
      return;
    case Operand::kCommand:
      for (const Command& command : commands()) candidates->offer(command.name);
      return;
    case Operand::kOther:
      return;
  }
}

void offerTableWords(const TableFacts& table, bool behind_arrow, Candidates* candidates) {
  if (!behind_arrow) {
    for (const auto& field : table.key) candidates->offer(field.name + "=");
    candidates->offer("->");
    return;
  }
  for (const auto& action : table.actions) {
    candidates->offer(action.name);
    for (const auto& param : action.params) candidates->offer(param.name + "=");
  }
}

void offerFieldsAndActions(const Shell& shell, const std::vector<std::string>& words,
                           Candidates* candidates) {
  const bool behind_arrow = std::find(words.begin(), words.end(), "->") != words.end();
  for (const TableFacts& table : shell.tables()) {
    if (table.name == words[1] || table.program + "." + table.name == words[1]) {
      offerTableWords(table, behind_arrow, candidates);
    }
  }
}

}  // namespace

std::vector<std::string> Shell::completions(std::string_view text) const {
  const size_t blank = text.find_last_of(" \t");
  const size_t last = blank == std::string_view::npos ? 0 : blank + 1;
  Candidates candidates(text.substr(last));
  std::vector<std::string> words;
  try {
    words = splitWords(text.substr(0, last));
  } catch (const CommandError&) {
    return {};  // within a quoted word
  }
  if (words.empty()) {
    offerNames(*this, Command::Operand::kCommand, &candidates);
    return candidates.take();
  }
  const Command* const command = commandOf(words);
  if (command == nullptr) return {};
  const size_t operand = words.size() - 1;
  if (operand < std::min(command->max_operands, std::size(command->operands))) {
    offerNames(*this, command->operands[operand], &candidates);
  }
  if (operand >= command->min_operands) {
    for (std::string& option : splitWords(command->options)) candidates.offer(std::move(option));
  }
  if (operand > 0 && command->operands[0] == Command::Operand::kTable) {
    offerFieldsAndActions(*this, words, &candidates);
  }
  return candidates.take();
}

}  // namespace jexapps
