// counters-start, counters-read, counters-stop.
#include "handler.h"
#include "request.h"
#include "value.h"

namespace jexapps {
namespace {

constexpr size_t kPieceSize = 1 << 16;  // bytes written at once

const TableFacts& counterTable(Shell& shell, const Line& line) {
  return tableOfType(shell, line, JX_RT_TABLE_COUNTER);
}

std::optional<uint32_t> numberAt(const Line& line, size_t operand, const char* what) {
  if (line.operands.size() <= operand) return std::nullopt;
  uint32_t number = 0;
  std::string error;
  if (!parseNumber(line.operands[operand], what, &number, &error)) throw CommandError(error);
  return number;
}

Result startCounters(Shell& shell, Line& line) {
  const TableFacts& table = counterTable(shell, line);
  checkNothingLeft(line.left, "of counters-start");
  size_t size = 0;
  check(table.table->tableSizeGet(shell.session(), shell.target(), 0, &size), table.name);
  shell.counters().start(table, size);
  return okCount(size);
}

std::string lineOf(uint64_t index, const PartnerCounterEntry& entry, bool json) {
  const std::string packets = std::to_string(entry.packets), bytes = std::to_string(entry.bytes);
  if (json) {
    return "{\"index\":" + std::to_string(index) + ",\"packets\":" + packets +
           ",\"bytes\":" + bytes + "}\n";
  }
  return "#" + std::to_string(index) + " packets=" + packets + " bytes=" + bytes + "\n";
}

std::string syncText(uint64_t synced, uint64_t now) {
  if (synced == 0) return ", never synced";
  return ", synced " + std::to_string(now > synced ? now - synced : 0) + " ms ago";
}

Result readCounters(Shell& shell, Line& line) {
  const TableFacts& table = counterTable(shell, line);
  checkNothingLeft(line.left, "of counters-read");
  const uint32_t first = numberAt(line, 1, "FIRST").value_or(0);
  const Counters::Reading reading = shell.counters().read(table, first, numberAt(line, 2, "COUNT"));
  std::string lines;
  uint64_t index = first;
  for (const PartnerCounterEntry& entry : reading.entries) {
    lines += lineOf(index++, entry, shell.output().json());
    if (lines.size() < kPieceSize) continue;
    shell.list(lines);
    lines.clear();
  }
  shell.list(lines);
  Result result = okCount(reading.entries.size());
  const uint64_t now = shell.partner().now();
  result.text += syncText(reading.synced, now);
  result.fields["synced"] = reading.synced;
  result.fields["now"] = now;
  return result;
}

Result stopCounters(Shell& shell, Line& line) {
  const TableFacts& table = counterTable(shell, line);
  checkNothingLeft(line.left, "of counters-stop");
  shell.counters().handle(table);
  // An agent that learns of the start when the counters have gone already stops.
  awaitAgent(shell, table.name);
  shell.counters().stop(table);
  return ok();
}

}  // namespace

std::vector<Command> counterCommands() {
  using Arrow = Command::Arrow;
  using Operand = Command::Operand;
  return {
      {"counters-start",
       1,
       1,
       Arrow::kNever,
       "counters-start TABLE",
       "Starts the counters of a counter table: from now on the slice agent passes on their "
       "values.",
       startCounters,
       {Operand::kCounterTable, Operand::kOther}},
      {"counters-read",
       1,
       3,
       Arrow::kNever,
       "counters-read TABLE [FIRST [COUNT]]",
       "Prints COUNT entries from FIRST on, all if they are left out, as the last sync found them. "
       "A barrier on the table brings them up to date.",
       readCounters,
       {Operand::kCounterTable, Operand::kOther}},
      {"counters-stop",
       1,
       1,
       Arrow::kNever,
       "counters-stop TABLE",
       "Stops the counters of a table; they can be started again.",
       stopCounters,
       {Operand::kCounterTable, Operand::kOther}},
  };
}

}  // namespace jexapps
