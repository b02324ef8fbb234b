#include "shell.h"

#include <algorithm>

#include "command_error.h"

namespace jexapps {
namespace {

constexpr std::chrono::seconds kLastAnswer{1};  // that the agent is given at the end

const Command* findCommand(std::string_view name) {
  const auto it = std::find_if(commands().begin(), commands().end(),
                               [&](const Command& command) { return name == command.name; });
  return it == commands().end() ? nullptr : &*it;
}

[[noreturn]] void failUsage(const Command& command, const std::string& reason) {
  throw CommandError(reason + "; usage: " + command.usage);
}

// The name that the usage gives to an operand.
std::string operandName(const Command& command, size_t operand) {
  return splitWords(command.usage).at(1 + operand);
}

void checkShape(const Command& command, const Line& line) {
  if (line.operands.size() < command.min_operands) {
    failUsage(command, operandName(command, line.operands.size()) + " is missing");
  }
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

// What answers to `name` or `program.name`. `what` names its kind, `where` tells where to look.
template <typename Facts>
const Facts& findByName(const std::vector<Facts>& all, const std::string& name, const char* what,
                        const char* where) {
  const Facts* found = nullptr;
  std::string several;
  for (const Facts& facts : all) {
    const std::string full_name = facts.program + "." + facts.name;
    if (name == full_name) return facts;
    if (name != facts.name) continue;
    found = &facts;
    several += (several.empty() ? "" : ", ") + full_name;
  }
  if (found == nullptr) throw CommandError("no " + std::string(what) + " '" + name + "'" + where);
  if (several.find(", ") != std::string::npos) {
    throw CommandError("several " + std::string(what) + "s are called '" + name + "': " + several);
  }
  return *found;
}

}  // namespace

Shell::Shell(const jxrt::JxRtSession& session, const jx_rt_target_t& target, DeviceFacts facts,
             Partner& partner, Output& output, std::function<bool()> stop_requested)
    : session_(session),
      target_(target),
      facts_(std::move(facts)),
      partner_(partner),
      output_(output),
      stop_requested_(std::move(stop_requested)),
      counters_(partner),
      barriers_(partner),
      notifications_(partner) {}

Shell::Outcome Shell::run(std::string_view text, std::optional<uint64_t> line_number) {
  Result result;
  try {
    std::vector<std::string> words = splitWords(text);
    if (words.empty()) return Outcome::kNothing;
    if (words.size() == 1 && (words[0] == "quit" || words[0] == "exit")) return Outcome::kQuit;
    // Behind help COMMAND may stand the rest of a line that somebody wants explained.
    if (words[0] == "help" && words.size() > 2) words.resize(2);
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

void Shell::checkNotInterrupted() const {
  if (stopRequested()) throw CommandError("interrupted");
}

void Shell::list(std::string_view lines) {
  checkNotInterrupted();
  output_.listing(lines);
}

std::vector<std::string> Shell::finish() {
  std::vector<std::string> remarks;
  const bool registered = notifications_.deregisterAll(tables(), digests());
  if (registered || counters_.any() || barriers_.anyPending()) {
    if (agentAnswers() && counters_.any()) {
      counters_.stopAll();
      agentAnswers();
    }
    if (barriers_.anyPending()) {
      remarks.emplace_back(
          "the slice agent does not answer: it still has to tell this shell something,"
          " and may stop over that");
    }
  }
  for (const std::string& queue : notifications_.queueNames()) {
    const uint64_t left = notifications_.discard(queue);
    if (left > 0) {
      remarks.push_back("queue '" + queue +
                        "' was not drained, notifications in it: " + std::to_string(left));
    }
  }
  return remarks;
}

bool Shell::agentAnswers() {
  const auto go_on = [](Barriers::Time) { return true; };
  return barriers_.run(Barriers::Kind::kSingle, nullptr, kLastAnswer, go_on).end ==
         Barriers::End::kAnswered;
}

const TableFacts& Shell::table(const std::string& name) const {
  return findByName(tables(), name, "table", "; tables lists them");
}

const DigestFacts& Shell::digest(const std::string& name) const {
  return findByName(digests(), name, "digest", "");
}

const TableFacts& Shell::tableOf(const jxrt::JxRtTable* table) const {
  for (const TableFacts& facts : tables()) {
    if (facts.table == table) return facts;
  }
  throw CommandError("no such table on this device");
}

}  // namespace jexapps
