#include "shell.h"

#include <algorithm>

#include "command_error.h"

namespace jexapps {
namespace {

const Command* findCommand(std::string_view name) {
  const auto it = std::find_if(commands().begin(), commands().end(),
                               [&](const Command& command) { return name == command.name; });
  return it == commands().end() ? nullptr : &*it;
}

[[noreturn]] void failUsage(const Command& command, const std::string& reason) {
  throw CommandError(reason + "; usage: " + command.usage);
}

void checkShape(const Command& command, const Line& line) {
  if (line.operands.size() < command.min_operands) failUsage(command, "something is missing");
  if (line.has_arrow && command.arrow == Command::Arrow::kNever) {
    failUsage(command, std::string(command.name) + " takes no ->");
  }
  if (!line.has_arrow && command.arrow == Command::Arrow::kAlways) {
    failUsage(command, "the -> part is missing");
  }
}

Result errorResult(const CommandError& error) {
  Result result{false, error.what(), nlohmann::ordered_json::object()};
  if (error.status() != JX_SUCCESS) result.fields["status"] = error.status();
  return result;
}

bool startsWith(const std::string& text, std::string_view prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

void addIfPrefixed(std::string candidate, std::string_view prefix,
                   std::vector<std::string>* candidates) {
  if (startsWith(candidate, prefix)) candidates->push_back(std::move(candidate));
}

void addTableWords(const TableFacts& table, bool behind_arrow, std::string_view prefix,
                   std::vector<std::string>* candidates) {
  if (!behind_arrow) {
    for (const auto& field : table.key) addIfPrefixed(field.name + "=", prefix, candidates);
    addIfPrefixed("->", prefix, candidates);
    return;
  }
  for (const auto& action : table.actions) {
    addIfPrefixed(action.name, prefix, candidates);
    for (const auto& param : action.params) addIfPrefixed(param.name + "=", prefix, candidates);
  }
}

}  // namespace

Shell::Shell(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
             std::vector<TableFacts> tables, Output& output, std::function<bool()> stop_requested)
    : session_(session),
      target_(target),
      tables_(std::move(tables)),
      output_(output),
      stop_requested_(std::move(stop_requested)) {}

Shell::Outcome Shell::run(std::string_view text, std::optional<uint64_t> line_number) {
  Result result;
  try {
    const std::vector<std::string> words = splitWords(text);
    if (words.empty()) return Outcome::kNothing;
    if (words.size() == 1 && words[0] == "quit") return Outcome::kQuit;
    result = execute(words);
  } catch (const CommandError& error) {
    result = errorResult(error);
  }
  output_.result(result, line_number);
  return result.ok ? Outcome::kOk : Outcome::kError;
}

Result Shell::execute(const std::vector<std::string>& words) {
  const Command* command = findCommand(words[0]);
  if (command == nullptr) {
    throw CommandError("unknown command '" + words[0] + "'; help lists them");
  }
  Line line = parseLine(words, command->min_operands, command->max_operands);
  checkShape(*command, line);
  return command->handler(*this, line);
}

std::vector<std::string> Shell::completions(std::string_view text) const {
  std::vector<std::string> candidates;
  const size_t blank = text.find_last_of(" \t");
  const size_t last = blank == std::string_view::npos ? 0 : blank + 1;
  const std::string_view prefix = text.substr(last);
  std::vector<std::string> words;
  try {
    words = splitWords(text.substr(0, last));
  } catch (const CommandError&) {
    return candidates;  // within a quoted word
  }
  if (words.empty() || (words.size() == 1 && words[0] == "help")) {
    for (const Command& command : commands()) addIfPrefixed(command.name, prefix, &candidates);
  } else if (words.size() == 1) {
    for (const TableFacts& table : tables_) addIfPrefixed(table.name, prefix, &candidates);
  } else {
    const bool behind_arrow = std::find(words.begin(), words.end(), "->") != words.end();
    for (const TableFacts& table : tables_) {
      if (table.name == words[1] || table.program + "." + table.name == words[1]) {
        addTableWords(table, behind_arrow, prefix, &candidates);
      }
    }
  }
  return candidates;
}

const TableFacts& Shell::table(const std::string& name) const {
  const TableFacts* found = nullptr;
  std::string several;
  for (const TableFacts& table : tables_) {
    const std::string full_name = table.program + "." + table.name;
    if (name == full_name) return table;
    if (name != table.name) continue;
    found = &table;
    several += (several.empty() ? "" : ", ") + full_name;
  }
  if (found == nullptr) throw CommandError("no table '" + name + "'; tables lists them");
  if (several.find(", ") != std::string::npos) {
    throw CommandError("several tables are called '" + name + "': " + several);
  }
  return *found;
}

const TableFacts& Shell::tableOf(const jxrt::JxRtTable* table) const {
  for (const TableFacts& facts : tables_) {
    if (facts.table == table) return facts;
  }
  throw CommandError("no such table on this device");
}

}  // namespace jexapps
