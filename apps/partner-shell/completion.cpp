// What could stand in the place of a word that is being typed.
#include <algorithm>

#include "command_error.h"
#include "handler.h"

namespace jexapps {
namespace {

using OperandKind = Command::Operand;
using Words = std::vector<std::string>;

// Gathers the words that begin as the one that is being typed, without assignments that have been
// made.
class Candidates {
 public:
  Candidates(std::string_view prefix, const Words& before) : prefix_(prefix), before_(before) {}

  void offer(std::string word) {
    if (word.compare(0, prefix_.size(), prefix_) != 0 || isAssigned(word)) return;
    words_.push_back(std::move(word));
  }
  Words take() { return std::move(words_); }

 private:
  // Whether `word`, NAME= or NAME=VALUE, has been given a value.
  bool isAssigned(const std::string& word) const {
    const size_t equals = word.find('=');
    if (equals == std::string::npos) return false;
    return std::any_of(before_.begin(), before_.end(), [&](const std::string& given) {
      return given.compare(0, equals + 1, word, 0, equals + 1) == 0;
    });
  }

  std::string_view prefix_;
  const Words& before_;
  Words words_;
};

const Command* commandOf(const Words& words) {
  const auto it = std::find_if(commands().begin(), commands().end(),
                               [&](const Command& command) { return words[0] == command.name; });
  return it == commands().end() ? nullptr : &*it;
}

bool isFor(const TableFacts& table, OperandKind kind) {
  switch (kind) {
    case OperandKind::kTable:
      return true;
    case OperandKind::kMatchTable:
      return isMatchTable(table);
    case OperandKind::kMemberTable:
      return table.type == JX_RT_TABLE_ACTION_DATA;
    case OperandKind::kGroupTable:
      return table.type == JX_RT_TABLE_SELECTOR;
    case OperandKind::kRouteTable:
      return std::any_of(table.key.begin(), table.key.end(),
                         [](const auto& field) { return field.match_type == JX_RT_MATCH_LPM; });
    case OperandKind::kCounterTable:
      return table.type == JX_RT_TABLE_COUNTER;
    case OperandKind::kIdleTable:
      return table.dataField(JX_RT_FIELD_TTL) != nullptr;
    case OperandKind::kDigest:
    case OperandKind::kQueue:
    case OperandKind::kCommand:
    case OperandKind::kFile:
    case OperandKind::kOther:
      break;
  }
  return false;
}

void offerNames(const Shell& shell, OperandKind kind, Candidates* candidates) {
  for (const TableFacts& table : shell.tables()) {
    if (isFor(table, kind)) candidates->offer(table.name);
  }
  if (kind == OperandKind::kDigest) {
    for (const DigestFacts& digest : shell.digests()) candidates->offer(digest.name);
  } else if (kind == OperandKind::kQueue) {
    for (const std::string& queue : shell.queueNames()) candidates->offer(queue);
  } else if (kind == OperandKind::kCommand) {
    for (const Command& command : commands()) candidates->offer(command.name);
  }
}

// The table that the line names, null if none or several answer to its name.
const TableFacts* namedTable(const Shell& shell, const Command& command, const Words& words) {
  if (words.size() < 2 || command.min_operands == 0) return nullptr;
  try {
    const TableFacts& table = shell.table(words[1]);
    return isFor(table, command.operands[0]) ? &table : nullptr;
  } catch (const CommandError&) {
    return nullptr;
  }
}

// Whether an option of a command makes sense for the table.
bool fits(const std::string& option, const TableFacts& table) {
  if (option == "priority=") return table.has_priority;
  if (option == "ttl=") return table.dataField(JX_RT_FIELD_TTL) != nullptr;
  if (option == "nexthops=") return table.dataField(JX_RT_FIELD_MEMBER_ID) != nullptr;
  if (option == "groups=") return table.dataField(JX_RT_FIELD_GROUP_ID) != nullptr;
  return true;
}

void offerOptions(const Command& command, const TableFacts* table, Candidates* candidates) {
  for (std::string& option : splitWords(command.options)) {
    if (option != "FIELD=") {
      if (table == nullptr || fits(option, *table)) candidates->offer(std::move(option));
    } else if (table != nullptr) {
      for (const auto& field : table->key) candidates->offer(field.name + "=");
    }
  }
}

// Behind the arrow: an action, then its parameters; or a reference.
void offerResult(const TableFacts& table, const Words& behind, Candidates* candidates) {
  for (const std::string& word : behind) {
    if (const jxrt::JxRtActionInfo* action = table.action(word)) {
      for (const auto& param : action->params) candidates->offer(param.name + "=");
      return;
    }
    if (word.rfind("member=", 0) == 0 || word.rfind("group=", 0) == 0) return;
  }
  for (const auto& action : table.actions) candidates->offer(action.name);
  if (table.dataField(JX_RT_FIELD_MEMBER_ID) != nullptr) candidates->offer("member=");
  if (table.dataField(JX_RT_FIELD_GROUP_ID) != nullptr) candidates->offer("group=");
}

void offerBehindArrow(const Command& command, const TableFacts& table, const Words& behind,
                      Candidates* candidates) {
  offerResult(table, behind, candidates);
  for (std::string& option : splitWords(command.options)) {
    const bool either_side = option == "priority=" || option == "ttl=";
    if (either_side && fits(option, table)) candidates->offer(std::move(option));
  }
}

}  // namespace

Shell::Completions Shell::completions(std::string_view text) const {
  const size_t blank = text.find_last_of(" \t");
  const size_t last = blank == std::string_view::npos ? 0 : blank + 1;
  Words words;
  try {
    words = splitWords(text.substr(0, last));
  } catch (const CommandError&) {
    return {};  // within a quoted word
  }
  Candidates candidates(text.substr(last), words);
  if (words.empty()) {
    offerNames(*this, OperandKind::kCommand, &candidates);
    return {candidates.take()};
  }
  const Command* const command = commandOf(words);
  if (command == nullptr) return {};
  const TableFacts* const table = namedTable(*this, *command, words);
  const auto arrow = std::find(words.begin(), words.end(), "->");
  if (arrow != words.end()) {
    if (table != nullptr && command->arrow != Command::Arrow::kNever) {
      offerBehindArrow(*command, *table, {arrow + 1, words.end()}, &candidates);
    }
    return {candidates.take()};
  }
  const size_t operand = words.size() - 1;
  Completions found;
  if (operand < command->max_operands && operand < command->operands.size()) {
    offerNames(*this, command->operands[operand], &candidates);
    found.files = command->operands[operand] == OperandKind::kFile;
  }
  if (operand >= command->min_operands) {
    offerOptions(*command, table, &candidates);
    if (command->arrow != Command::Arrow::kNever) candidates.offer("->");
  }
  found.words = candidates.take();
  return found;
}

}  // namespace jexapps
