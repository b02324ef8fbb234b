// Carries out command lines on the tables of one virtual device.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "jxsdk/rt.hpp"
#include "line.h"
#include "output.h"
#include "table.h"

namespace jexapps {

class Shell;

/// One row of the table of commands.
struct Command {
  enum class Arrow : uint8_t { kNever, kAlways, kMaybe };
  const char* name;
  size_t min_operands, max_operands;
  Arrow arrow;  // whether the line has a -> part
  const char* usage;
  const char* help;
  Result (*handler)(Shell& shell, Line& line);
};

/// All commands, in the order in which help lists them.
const std::vector<Command>& commands();

class Shell {
 public:
  enum class Outcome : uint8_t { kNothing, kOk, kError, kQuit };

  /// The session and `output` have to outlive the shell. `stop_requested` is asked now and then
  /// by commands that take long; they end early once it is true.
  Shell(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
        std::vector<TableFacts> tables, Output& output, std::function<bool()> stop_requested);

  /// Carries out one line and writes its result. `line_number` is the script's, for errors.
  Outcome run(std::string_view text, std::optional<uint64_t> line_number = std::nullopt);

  /// What could stand in the place of the last word of `text`, which may be empty.
  std::vector<std::string> completions(std::string_view text) const;

  // For the handlers.
  const jxrt::JxRtSession& session() const { return session_; }
  const jx_rt_target_t& target() const { return target_; }
  const std::vector<TableFacts>& tables() const { return tables_; }
  Output& output() { return output_; }
  bool stopRequested() const { return stop_requested_(); }
  /// The table called `name` or `program.name`; throws CommandError if that is not one table.
  const TableFacts& table(const std::string& name) const;
  /// The table behind an SDK object; throws CommandError if there is none.
  const TableFacts& tableOf(const jxrt::JxRtTable* table) const;

 private:
  Result execute(const std::vector<std::string>& words);

  const jxrt::JxRtSession& session_;
  jx_rt_target_t target_;
  std::vector<TableFacts> tables_;
  Output& output_;
  std::function<bool()> stop_requested_;
};

}  // namespace jexapps
