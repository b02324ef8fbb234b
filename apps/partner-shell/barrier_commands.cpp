// barrier, latency.
#include <cstdio>

#include "handler.h"
#include "latency.h"
#include "progress.h"
#include "request.h"

namespace jexapps {
namespace {

constexpr uint32_t kDefaultTimeout = 5000;  // milliseconds

std::string millisecondsText(Barriers::Time time, int digits) {
  char text[32];
  std::snprintf(text, sizeof text, "%.*f ms", digits, time.count());
  return text;
}

Barriers::Kind kindOf(const Line& line) {
  if (line.operands.size() < 2) return Barriers::Kind::kSingle;
  if (line.operands[1] == "double") return Barriers::Kind::kDouble;
  throw CommandError("behind the table stands nothing, or double, not '" + line.operands[1] + "'");
}

// Why there may be no answer.
std::string silenceText(bool syncs) {
  if (!syncs) return "the slice agent hangs, has ended, or has much to do";
  return "the slice agent hangs, has ended, has much to do, or makes no counter updates, for which "
         "a sync that came while another one was under way waits";
}

Result reportOf(const Barriers::Outcome& outcome, uint32_t timeout, bool syncs) {
  const std::string name = "barrier " + std::to_string(outcome.timestamp);
  const double waited = outcome.waited.count();
  switch (outcome.end) {
    case Barriers::End::kAnswered:
      return ok(name + ", round trip " + millisecondsText(outcome.waited, 3),
                {{"timestamp", outcome.timestamp}, {"round_trip", waited}});
    case Barriers::End::kTimedOut:
      return {false,
              name + ": no answer within " + std::to_string(timeout) + " ms: " + silenceText(syncs),
              {{"timestamp", outcome.timestamp}, {"timed_out", true}, {"waited", waited}}};
    case Barriers::End::kGivenUp:
      break;
  }
  return {false, name + ": interrupted", {{"timestamp", outcome.timestamp}, {"waited", waited}}};
}

Barriers::Outcome waitFor(Shell& shell, Barriers::Kind kind, PartnerCounterTableHandle counters,
                          uint32_t timeout) {
  Progress progress;
  const auto go_on = [&](Barriers::Time waited) {
    if (progress.due()) progress.show("waiting for the barrier, " + millisecondsText(waited, 0));
    return !shell.stopRequested();
  };
  return shell.barriers().run(kind, counters, std::chrono::milliseconds(timeout), go_on);
}

Result runBarrier(Shell& shell, Line& line) {
  const uint32_t timeout = line.left.takeNumber("timeout").value_or(kDefaultTimeout);
  checkNothingLeft(line.left, "of barrier");
  PartnerCounterTableHandle counters = nullptr;
  if (!line.operands.empty()) {
    counters = shell.counters().handle(tableOfType(shell, line, JX_RT_TABLE_COUNTER));
  }
  return reportOf(waitFor(shell, kindOf(line), counters, timeout), timeout, counters != nullptr);
}

Result showLatency(Shell& shell, Line& line) {
  checkNothingLeft(line.left, "of latency");
  const RoundTrips trips = shell.partner().roundTrips();
  if (!shell.output().json()) {
    shell.output().listing(renderBins(trips, shell.output().columns()));
  }
  return ok(renderSummary(trips), jsonOf(trips));
}

}  // namespace

void awaitAgent(Shell& shell, const std::string& purpose) {
  const Result result = reportOf(waitFor(shell, Barriers::Kind::kSingle, nullptr, kDefaultTimeout),
                                 kDefaultTimeout, false);
  if (!result.ok) throw CommandError(purpose + ": " + result.text);
}

std::vector<Command> barrierCommands() {
  using Arrow = Command::Arrow;
  using Operand = Command::Operand;
  return {
      {"barrier",
       0,
       2,
       Arrow::kNever,
       "barrier [TABLE [double]] [timeout=MS]",
       "Waits until the slice agent has handled everything sent before; with a TABLE whose "
       "counters "
       "have been started, also until they are synced. A double one is answered only after a sync "
       "that began when all of that had been handled. Gives up after 5000 ms, or as told.",
       runBarrier,
       {Operand::kCounterTable, Operand::kOther},
       "double timeout="},
      {"latency",
       0,
       0,
       Arrow::kNever,
       "latency",
       "Shows the round trips of all barriers of this shell as the library has counted them.",
       showLatency,
       {Operand::kOther, Operand::kOther}},
  };
}

}  // namespace jexapps
