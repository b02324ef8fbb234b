#include "load_routes.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <limits>

#include "handler.h"
#include "progress.h"
#include "refusal.h"
#include "request.h"
#include "routes.h"
#include "value.h"

namespace jexapps {
namespace {

constexpr uint64_t kLinesPerLook = 4096;  // between two looks at the clock and at stop requests
constexpr size_t kReasonsKept = 10;       // of lines that were not loaded; the others are counted

enum class OnError : uint8_t { kStop, kContinue };

struct Load {
  uint64_t loaded = 0;
  uint64_t failed = 0;
  uint64_t other_family = 0;  // lines
  double seconds = 0;
  bool interrupted = false;
  bool unreadable = false;           // the file, from some place on
  std::vector<std::string> reasons;  // of the first lines that failed
  jx_status_t status = JX_SUCCESS;   // of the last one that the SDK refused

  // Counts a line that was not loaded. `reason` makes the text, which few lines need.
  template <typename Reason>
  void fail(Reason reason) {
    ++failed;
    if (reasons.size() < kReasonsKept) reasons.push_back(reason());
  }
};

OnError takeOnError(Line* line) {
  const std::optional<std::string> text = line->left.take("on-error");
  if (!text || *text == "stop") return OnError::kStop;
  if (*text == "continue") return OnError::kContinue;
  throw CommandError("on-error is stop or continue, not '" + *text + "'");
}

const jxrt::JxRtFieldInfo& lpmField(const TableFacts& table) {
  const jxrt::JxRtFieldInfo* found = nullptr;
  for (const jxrt::JxRtFieldInfo& field : table.key) {
    if (field.match_type == JX_RT_MATCH_EXACT) {
      throw CommandError("table " + table.name + " has the exact field '" + field.name +
                         "' in its key: routes say nothing about it");
    }
    if (field.match_type == JX_RT_MATCH_LPM) found = &field;
  }
  if (found == nullptr || (found->width != 32 && found->width != 128)) {
    throw CommandError("table " + table.name + " has no LPM field of 32 or 128 bits");
  }
  return *found;
}

std::vector<uint32_t> takeIds(const char* name, Assignments* words) {
  const std::optional<std::string> text = words->take(name);
  std::vector<uint32_t> ids;
  std::string error;
  if (text && !parseNumberList(*text, name, &ids, &error)) throw CommandError(error);
  return ids;
}

std::vector<uint32_t> allMembers(Shell& shell, const TableFacts& table) {
  const jxrt::JxRtTable* members = nullptr;
  check(table.table->actionDataTableGet(&members), table.name);
  if (members == nullptr) {
    throw CommandError("entries of " + table.name + " hold an action: give it after a ->");
  }
  const TableFacts& facts = shell.tableOf(members);
  std::vector<uint32_t> ids;
  const auto keep_id = [&](const EntryView& entry) {
    if (entry.kind != EntryKind::kEntry) return;
    uint32_t id = 0;
    for (const char byte : entry.key.at(0).match.value) id = id << 8 | static_cast<uint8_t>(byte);
    ids.push_back(id);
  };
  check(forEachEntry(facts, shell.session(), shell.target(), keep_id), facts.name);
  if (ids.empty()) throw CommandError("table " + facts.name + " has no members to point at");
  std::sort(ids.begin(), ids.end());
  return ids;
}

// What routes do, to be used in turn.
std::vector<DataPtr> makeTargets(Shell& shell, const TableFacts& table, Line* line) {
  std::vector<uint32_t> members = takeIds("nexthops", &line->left);
  const std::vector<uint32_t> groups = takeIds("groups", &line->left);
  std::vector<DataPtr> targets;
  if (line->has_arrow) {
    if (!members.empty() || !groups.empty()) {
      throw CommandError("routes take nexthops= and groups=, or what stands after the ->");
    }
    targets.push_back(makeData(table, line));
    return targets;
  }
  if (members.empty() && groups.empty()) members = allMembers(shell, table);
  for (const uint32_t id : members) {
    targets.push_back(makeReference(table, JX_RT_FIELD_MEMBER_ID, id));
  }
  for (const uint32_t id : groups) {
    targets.push_back(makeReference(table, JX_RT_FIELD_GROUP_ID, id));
  }
  return targets;
}

// Adds the routes of one file to one table, with one key object for all of them.
class Loader {
 public:
  Loader(Shell& shell, const TableFacts& table, const std::string& path,
         std::vector<DataPtr> targets, OnError on_error)
      : shell_(shell),
        table_(table),
        field_(lpmField(table)),
        path_(path),
        targets_(std::move(targets)),
        on_error_(on_error) {
    check(table.table->keyAllocate(&key_), table.name);
  }

  Load run(RouteFile& file, uint64_t limit) {
    const auto begin = std::chrono::steady_clock::now();
    try {
      loadLines(file, limit);
    } catch (const CommandError& error) {  // the file cannot be read on
      load_.unreadable = true;
      load_.fail([&] { return std::string(error.what()); });
    }
    load_.interrupted = load_.interrupted || file.stopped();
    load_.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    return std::move(load_);
  }

 private:
  void loadLines(RouteFile& file, uint64_t limit) {
    Progress progress;
    std::string_view line;
    for (uint64_t lines = 1; load_.loaded < limit && file.next(&line); ++lines) {
      loadLine(line, file.lineNumber());
      if (load_.failed > 0 && on_error_ == OnError::kStop) return;
      if (lines % kLinesPerLook != 0) continue;
      if (progress.due()) progress.show(path_ + ": " + std::to_string(load_.loaded) + " routes");
      load_.interrupted = shell_.stopRequested();
      if (load_.interrupted) return;
    }
  }

  void loadLine(std::string_view line, uint64_t number) {
    Prefix prefix;
    if (!parsePrefix(line, &prefix, &error_)) {
      return load_.fail([&] { return place(number) + error_; });
    }
    if (prefix.width != field_.width) {
      ++load_.other_family;
      return;
    }
    const jxrt::JxRtTableData& data = *targets_[load_.loaded % targets_.size()];
    jx_status_t status =
        key_->setValueLpm(field_.id, prefix.address, prefix.length, prefix.width / 8);
    if (status == JX_SUCCESS) {
      status = table_.table->tableEntryAdd(shell_.session(), shell_.target(), 0, *key_, data);
    }
    if (status == JX_SUCCESS) {
      ++load_.loaded;
      return;
    }
    load_.status = status;
    load_.fail([&] {
      const Operation operation{table_, Operation::Kind::kEntry, key_.get(), &data};
      return place(number) + refusal(shell_, operation, status);
    });
  }

  std::string place(uint64_t line_number) const {
    return path_ + ":" + std::to_string(line_number) + ": ";
  }

  Shell& shell_;
  const TableFacts& table_;
  const jxrt::JxRtFieldInfo& field_;
  std::string path_;
  std::vector<DataPtr> targets_;
  OnError on_error_;
  KeyPtr key_;
  Load load_;
  std::string error_;
};

std::string loadedText(const Load& load, double rate) {
  char figures[64];
  std::snprintf(figures, sizeof(figures), " in %.3f s (%.0f routes/s)", load.seconds, rate);
  std::string text = countText(load.loaded, "route", "routes") + figures;
  if (load.other_family > 0) {
    text += ", " + countText(load.other_family, "line", "lines") +
            " of the other address family skipped";
  }
  return text;
}

std::string failedText(const Load& load, OnError on_error) {
  std::string text = load.interrupted ? "interrupted" : "";
  if (load.failed > 0) {
    text += text.empty() ? "" : ", ";
    if (on_error == OnError::kStop) {
      return text + load.reasons[0] + (load.unreadable ? "" : "; on-error=continue skips it");
    }
    text += countText(load.failed, "line", "lines") + " not loaded: ";
    for (size_t i = 0; i < load.reasons.size(); ++i) text += (i > 0 ? "; " : "") + load.reasons[i];
    if (load.failed > load.reasons.size()) {
      text += "; and " + std::to_string(load.failed - load.reasons.size()) + " more";
    }
  }
  return text;
}

Result report(const Load& load, OnError on_error) {
  const double rate = load.seconds > 0 ? static_cast<double>(load.loaded) / load.seconds : 0;
  Result result;
  result.ok = load.failed == 0 && !load.interrupted;
  const std::string loaded = "loaded " + loadedText(load, rate);
  result.text = result.ok ? loaded : failedText(load, on_error) + "; " + loaded;
  result.fields = {{"loaded", load.loaded},
                   {"failed", load.failed},
                   {"skipped", load.other_family},
                   {"seconds", load.seconds},
                   {"rate", rate}};
  if (!load.reasons.empty()) result.fields["reasons"] = load.reasons;
  if (load.status != JX_SUCCESS) result.fields["status"] = load.status;
  return result;
}

}  // namespace

Result loadRoutes(Shell& shell, Line& line) {
  const TableFacts& table = shell.table(line.operands[0]);
  const std::string& path = line.operands[1];
  lpmField(table);
  const uint64_t limit =
      line.left.takeNumber("limit").value_or(std::numeric_limits<uint32_t>::max());
  const OnError on_error = takeOnError(&line);
  std::vector<DataPtr> targets = makeTargets(shell, table, &line);
  checkNothingLeft(line.left, "of load-routes");
  RouteFile file(path, [&shell] { return shell.stopRequested(); });
  Loader loader(shell, table, path, std::move(targets), on_error);
  return report(loader.run(file, limit), on_error);
}

}  // namespace jexapps
