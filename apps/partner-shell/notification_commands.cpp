// queue-create, queue-destroy, idle-register, idle-deregister, digest-register, digest-deregister,
// drain.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <thread>

#include "handler.h"
#include "notification_lines.h"
#include "progress.h"
#include "request.h"
#include "value.h"

namespace jexapps {
namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t kRecordsPerLook = 65536;  // taken out of a queue at once
constexpr std::chrono::milliseconds kPause{1};

Result okNotifications(uint64_t count) {
  return ok(countText(count, "notification", "notifications"), {{"notifications", count}});
}

Result createQueue(Shell& shell, Line& line) {
  checkNothingLeft(line.left, "of queue-create");
  uint32_t size = 0;
  std::string error;
  if (!parseNumber(line.operands[1], "SIZE", &size, &error)) throw CommandError(error);
  shell.notifications().createQueue(line.operands[0], size);
  return ok();
}

// ---- draining

/// Prints what a queue holds.
class Drain {
 public:
  Drain(Shell& shell, const std::string& queue)
      : shell_(shell),
        queue_(shell.notifications().queue(queue)),
        lines_(shell.tables(), shell.digests(), shell.session(), shell.target(),
               shell.output().json() ? NotificationLines::Format::kJson
                                     : NotificationLines::Format::kText) {}

  uint64_t count() const { return count_; }

  /// Takes out up to `max`, without waiting; false if there is nothing.
  bool take(uint64_t max) {
    const Records records(shell_.partner(), queue_, std::min<uint64_t>(max, kRecordsPerLook));
    if (records.all().empty()) return false;
    count_ += records.all().size();
    shell_.output().listing(lines_.render(records.all(), shell_.partner().now()));
    return true;
  }

 private:
  Shell& shell_;
  PartnerNotificationQueueHandle queue_;
  NotificationLines lines_;
  uint64_t count_ = 0;
};

// Takes notifications out until `max` have come, or none is left and it is no use to wait longer.
void drainUntil(Shell& shell, Drain& drain, std::optional<uint32_t> max,
                std::chrono::milliseconds patience) {
  const uint64_t wanted = max.value_or(std::numeric_limits<uint32_t>::max());
  const auto deadline = Clock::now() + patience;
  Progress progress;
  while (drain.count() < wanted && !shell.stopRequested()) {
    if (drain.take(wanted - drain.count())) continue;
    const bool satisfied = !max && drain.count() > 0;
    if (satisfied || Clock::now() >= deadline) return;
    shell.output().flush();
    if (progress.due()) progress.show(std::to_string(drain.count()) + " notifications, waiting");
    std::this_thread::sleep_for(kPause);
  }
}

Result drainQueue(Shell& shell, Line& line) {
  const std::optional<uint32_t> max = line.left.takeNumber("max");
  const uint32_t wait = line.left.takeNumber("wait").value_or(0);
  checkNothingLeft(line.left, "of drain");
  Drain drain(shell, line.operands[0]);
  drainUntil(shell, drain, max, std::chrono::milliseconds(wait));
  return okNotifications(drain.count());
}

// What is left is printed: nothing goes with the queue unseen.
Result destroyQueue(Shell& shell, Line& line) {
  checkNothingLeft(line.left, "of queue-destroy");
  shell.notifications().checkUnused(line.operands[0]);
  Drain drain(shell, line.operands[0]);
  while (drain.take(kRecordsPerLook)) continue;
  shell.notifications().destroyQueue(line.operands[0]);
  return okNotifications(drain.count());
}

// ---- registering

uint32_t takeTime(const char* name, Line* line) {
  const std::optional<uint32_t> time = line->left.takeNumber(name);
  if (!time) throw CommandError(std::string(name) + "=MS is missing");
  return *time;
}

Result registerIdle(Shell& shell, Line& line) {
  const TableFacts& table = shell.table(line.operands[0]);
  IdleTimes times;
  times.query = takeTime("ttl-query", &line);
  times.max_ttl = takeTime("max-ttl", &line);
  times.min_ttl = takeTime("min-ttl", &line);
  checkNothingLeft(line.left, "of idle-register");
  shell.notifications().registerIdle(table, times, line.operands[1]);
  return ok();
}

Result deregisterIdle(Shell& shell, Line& line) {
  checkNothingLeft(line.left, "of idle-deregister");
  shell.notifications().deregisterIdle(shell.table(line.operands[0]));
  return ok();
}

Notifications::Taken whatIfTaken(Line* line) {
  const std::optional<std::string> text = line->left.take("take-over");
  if (!text || *text == "no") return Notifications::Taken::kRefuse;
  if (*text == "yes") return Notifications::Taken::kTakeOver;
  throw CommandError("take-over is yes or no, not '" + *text + "'");
}

Result registerDigest(Shell& shell, Line& line) {
  const Notifications::Taken taken = whatIfTaken(&line);
  checkNothingLeft(line.left, "of digest-register");
  const std::string remark =
      shell.notifications().registerDigest(shell.digest(line.operands[0]), line.operands[1], taken);
  if (!remark.empty()) std::fprintf(stderr, "partner-shell: %s\n", remark.c_str());
  return ok();
}

Result deregisterDigest(Shell& shell, Line& line) {
  checkNothingLeft(line.left, "of digest-deregister");
  shell.notifications().deregisterDigest(shell.digest(line.operands[0]));
  return ok();
}

}  // namespace

std::vector<Command> notificationCommands() {
  using Arrow = Command::Arrow;
  using Operand = Command::Operand;
  return {
      {"queue-create",
       2,
       2,
       Arrow::kNever,
       "queue-create NAME SIZE",
       "Creates a queue of notifications with room for SIZE of them to begin with.",
       createQueue,
       {Operand::kOther, Operand::kOther}},
      {"queue-destroy",
       1,
       1,
       Arrow::kNever,
       "queue-destroy NAME",
       "Destroys a queue on which nothing is registered, and prints what is left in it.",
       destroyQueue,
       {Operand::kQueue, Operand::kOther}},
      {"idle-register",
       2,
       2,
       Arrow::kNever,
       "idle-register TABLE QUEUE ttl-query=MS max-ttl=MS min-ttl=MS",
       "Asks for a notification each time an entry of the table ages out. ttl-query is the time "
       "between two looks at the entries, the others bound an entry's time to live. Once in the "
       "life of the shell.",
       registerIdle,
       {Operand::kIdleTable, Operand::kQueue},
       "ttl-query= max-ttl= min-ttl="},
      {"idle-deregister",
       1,
       1,
       Arrow::kNever,
       "idle-deregister TABLE",
       "Ends that.",
       deregisterIdle,
       {Operand::kIdleTable, Operand::kOther}},
      {"digest-register",
       2,
       2,
       Arrow::kNever,
       "digest-register NAME QUEUE [take-over=yes]",
       "Asks for a notification each time the program sends this digest. Once in the life of the "
       "shell. Only one partner takes a digest: one that another takes is refused, or with "
       "take-over=yes taken from it.",
       registerDigest,
       {Operand::kDigest, Operand::kQueue},
       "take-over=yes"},
      {"digest-deregister",
       1,
       1,
       Arrow::kNever,
       "digest-deregister NAME",
       "Ends that.",
       deregisterDigest,
       {Operand::kDigest, Operand::kOther}},
      {"drain",
       1,
       1,
       Arrow::kNever,
       "drain QUEUE [max=N] [wait=MS]",
       "Takes notifications out of a queue and prints them. Without wait, what is there; with it, "
       "waits until N have come, or the first if N is left out, or the time is over.",
       drainQueue,
       {Operand::kQueue, Operand::kOther},
       "max= wait="},
  };
}

}  // namespace jexapps
