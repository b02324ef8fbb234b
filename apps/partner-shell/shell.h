// Carries out command lines on the tables of one virtual device, and on its counters, barriers and
// notifications.
#pragma once

#include <array>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "barriers.h"
#include "counters.h"
#include "digests.h"
#include "jxsdk/rt.hpp"
#include "line.h"
#include "notifications.h"
#include "output.h"
#include "partner.h"
#include "table.h"

namespace jexapps {

class Shell;

/// One row of the table of commands.
struct Command {
  enum class Arrow : uint8_t { kNever, kAlways, kMaybe };
  enum class Operand : uint8_t {
    kTable,
    kMatchTable,
    kMemberTable,
    kGroupTable,
    kRouteTable,
    kCounterTable,
    kIdleTable,
    kDigest,
    kQueue,
    kCommand,
    kFile,
    kOther
  };
  using Operands = std::array<Operand, 2>;
  const char* name;
  size_t min_operands, max_operands;
  Arrow arrow;  // whether the line has a -> part
  const char* usage;
  const char* help;
  Result (*handler)(Shell& shell, Line& line);
  Operands operands = {Operand::kTable, Operand::kOther};  // what they name, for completion
  // Words that may stand behind the operands, separated by blanks, for completion; FIELD= stands
  // for the key fields of the table.
  const char* options = "";
};
using Operands = Command::Operands;

/// All commands, in the order in which help lists them.
const std::vector<Command>& commands();

/// What a device has, by name.
struct DeviceFacts {
  std::vector<TableFacts> tables;
  std::vector<DigestFacts> digests;
};

class Shell {
 public:
  enum class Outcome : uint8_t { kNothing, kOk, kError, kQuit };

  /// The session, `partner` and `output` have to outlive the shell. `stop_requested` is asked now
  /// and then by commands that take long; they end early once it is true.
  Shell(const jxrt::JxRtSession& session, const jx_rt_target_t& target, DeviceFacts facts,
        Partner& partner, Output& output, std::function<bool()> stop_requested);

  /// Carries out one line and writes its result. `line_number` is the script's, for errors.
  Outcome run(std::string_view text, std::optional<uint64_t> line_number = std::nullopt);

  /// What could stand in the place of the last word of a line.
  struct Completions {
    std::vector<std::string> words;
    bool files = false;  // a file's name, too
  };
  /// For the last word of `text`, which may be empty.
  Completions completions(std::string_view text) const;

  /// Stops the counters and registrations that are left, so that the slice agent has nothing more
  /// to say to this partner, and waits a moment until it has understood. Returns what a person
  /// should know, a line each.
  std::vector<std::string> finish();

  // For the handlers.
  const jxrt::JxRtSession& session() const { return session_; }
  const jx_rt_target_t& target() const { return target_; }
  const std::vector<TableFacts>& tables() const { return facts_.tables; }
  const std::vector<DigestFacts>& digests() const { return facts_.digests; }
  Partner& partner() { return partner_; }
  Counters& counters() { return counters_; }
  Barriers& barriers() { return barriers_; }
  Notifications& notifications() { return notifications_; }
  std::vector<std::string> queueNames() const { return notifications_.queueNames(); }
  Output& output() { return output_; }
  bool stopRequested() const { return stop_requested_(); }
  /// Throws CommandError if the command is to end early.
  void checkNotInterrupted() const;
  /// Writes lines of a listing; throws CommandError if the command is to end early.
  void list(std::string_view lines);
  /// The table called `name` or `program.name`; throws CommandError if that is not one table.
  const TableFacts& table(const std::string& name) const;
  /// The digest called `name` or `program.name`; throws CommandError if that is not one digest.
  const DigestFacts& digest(const std::string& name) const;
  /// The table behind an SDK object; throws CommandError if there is none.
  const TableFacts& tableOf(const jxrt::JxRtTable* table) const;

 private:
  Result execute(const std::vector<std::string>& words);
  bool agentAnswers();

  const jxrt::JxRtSession& session_;
  jx_rt_target_t target_;
  DeviceFacts facts_;
  Partner& partner_;
  Output& output_;
  std::function<bool()> stop_requested_;
  Counters counters_;
  Barriers barriers_;
  Notifications notifications_;
};

}  // namespace jexapps
