// The commands, and the table that names them.
#include <algorithm>
#include <cstdio>

#include "handler.h"
#include "load_routes.h"
#include "refusal.h"
#include "request.h"

namespace jexapps {
namespace {

constexpr uint64_t kEntriesPerLook = 4096;  // between two looks at stop requests

// The table of a line, which has to be of the kind that the command is for.
const TableFacts& matchTable(Shell& shell, const Line& line) {
  const TableFacts& table = shell.table(line.operands[0]);
  if (isMatchTable(table)) return table;
  throw CommandError(table.name + " is no match table but " + tableKindName(table.type));
}

uint32_t takeId(const char* name, Line* line) {
  const std::optional<uint32_t> id = line->left.takeNumber(name);
  if (!id) throw CommandError(std::string(name) + "=ID is missing");
  return *id;
}

Operation entryOf(const TableFacts& table, const jxrt::JxRtTableKey& key,
                  const jxrt::JxRtTableData* data = nullptr) {
  return {table, Operation::Kind::kEntry, &key, data};
}

Result okHandle(Shell& shell, const TableFacts& table, const jxrt::JxRtTableKey& key) {
  uint32_t handle = 0;
  check(shell, entryOf(table, key),
        table.table->tableEntryHandleGet(shell.session(), shell.target(), key, &handle));
  return ok("handle " + std::to_string(handle), {{"handle", handle}});
}

// ---- looking

struct TableLine {
  const TableFacts* facts;
  size_t size;
  uint32_t entries;
};

TableLine describe(Shell& shell, const TableFacts& facts) {
  TableLine line{&facts, 0, 0};
  check(facts.table->tableSizeGet(shell.session(), shell.target(), 0, &line.size), facts.name);
  const jx_status_t status =
      facts.table->tableUsageGet(shell.session(), shell.target(), 0, &line.entries);
  if (status != JX_NOT_SUPPORTED) check(status, facts.name);  // counters are not used up
  return line;
}

Json jsonOf(const TableLine& line) {
  return {{"program", line.facts->program},
          {"name", line.facts->name},
          {"id", line.facts->id},
          {"handle", line.facts->handle},
          {"kind", tableKindName(line.facts->type)},
          {"size", line.size},
          {"entries", line.entries}};
}

std::string listed(const TableLine& line, size_t name_width) {
  const std::string name = line.facts->program + "." + line.facts->name;
  std::vector<char> text(name_width + 128);
  const int length = std::snprintf(text.data(), text.size(), "%-*s  %-17s  %10u of %zu\n",
                                   static_cast<int>(name_width), name.c_str(),
                                   tableKindName(line.facts->type), line.entries, line.size);
  return std::string(text.data(), static_cast<size_t>(length));
}

Result listTables(Shell& shell, Line& line) {
  checkNothingLeft(line.left, "of tables");
  std::vector<TableLine> lines;
  size_t name_width = 0;
  for (const TableFacts& facts : shell.tables()) {
    lines.push_back(describe(shell, facts));
    name_width = std::max(name_width, facts.program.size() + 1 + facts.name.size());
  }
  Json array = Json::array();
  for (const TableLine& table : lines) {
    if (shell.output().json()) {
      array.push_back(jsonOf(table));
    } else {
      shell.output().listing(listed(table, name_width));
    }
  }
  return ok(countText(lines.size(), "table", "tables"), {{"tables", std::move(array)}});
}

Result dumpTable(Shell& shell, Line& line) {
  const TableFacts& table = shell.table(line.operands[0]);
  checkNothingLeft(line.left, "of dump");
  Dump dump(shell.output().json() ? DumpFormat::kJson : DumpFormat::kText);
  const auto add = [&](const EntryView& entry) {
    if (dump.entries() % kEntriesPerLook == 0) shell.checkNotInterrupted();
    dump.add(entry);
  };
  check(forEachEntry(table, shell.session(), shell.target(), add), table.name);
  dump.write([&](std::string_view piece) { shell.list(piece); });
  return okCount(dump.entries());
}

Result countEntries(Shell& shell, Line& line) {
  const TableFacts& table = shell.table(line.operands[0]);
  checkNothingLeft(line.left, "of count");
  if (table.type == JX_RT_TABLE_COUNTER) {
    throw CommandError(table.name +
                       " is a counter table, which is never filled; tables lists its "
                       "size");
  }
  uint32_t count = 0;
  check(table.table->tableUsageGet(shell.session(), shell.target(), 0, &count), table.name);
  return okCount(count);
}

Result showHelp(Shell& shell, Line& line) {
  checkNothingLeft(line.left, "of help");
  const bool one = !line.operands.empty();
  Json array = Json::array();
  for (const Command& command : commands()) {
    if (one && line.operands[0] != command.name) continue;
    array.push_back({{"command", command.name}, {"usage", command.usage}, {"help", command.help}});
    if (shell.output().json()) continue;
    shell.output().listing(std::string(command.usage) + "\n    " + command.help + "\n");
  }
  if (array.empty()) {
    throw CommandError("unknown command '" + line.operands[0] + "'; help lists them");
  }
  std::string text = countText(array.size(), "command", "commands");
  return ok(std::move(text), {{"commands", std::move(array)}});
}

// Shell::run ends at these words before anything is looked up.
Result quitNever(Shell&, Line& line) { throw CommandError(line.command + " stands alone"); }

// ---- match tables

void setTtl(const TableFacts& table, std::optional<uint32_t> ttl, jxrt::JxRtTableData* data) {
  if (ttl) setDataNumber(table, JX_RT_FIELD_TTL, "idle time (ttl)", *ttl, data);
}

void setPriority(const TableFacts& table, uint32_t priority, jxrt::JxRtTableKey* key) {
  if (!table.has_priority) throw CommandError("entries of " + table.name + " have no priority");
  check(key->prioritySet(priority), table.name + ": priority");
}

Result addEntry(Shell& shell, Line& line) {
  const TableFacts& table = matchTable(shell, line);
  const std::optional<uint32_t> priority = takeOption(table, "priority", &line);
  const std::optional<uint32_t> ttl = takeOption(table, "ttl", &line);
  const KeyPtr key = makeKey(table, &line.left);
  if (priority) setPriority(table, *priority, key.get());
  const DataPtr data = makeData(table, &line);
  setTtl(table, ttl, data.get());
  check(shell, entryOf(table, *key, data.get()),
        table.table->tableEntryAdd(shell.session(), shell.target(), 0, *key, *data));
  return okHandle(shell, table, *key);
}

Result modifyEntry(Shell& shell, Line& line) {
  const TableFacts& table = matchTable(shell, line);
  if (takeOption(table, "priority", &line)) {
    throw CommandError("modify leaves the priority as it is; move changes it");
  }
  const std::optional<uint32_t> ttl = takeOption(table, "ttl", &line);
  const KeyPtr key = makeKey(table, &line.left);
  const DataPtr data = makeData(table, &line);
  setTtl(table, ttl, data.get());
  check(shell, entryOf(table, *key, data.get()),
        table.table->tableEntryMod(shell.session(), shell.target(), 0, *key, *data));
  return ok();
}

Result deleteEntry(Shell& shell, Line& line) {
  const TableFacts& table = matchTable(shell, line);
  const KeyPtr key = makeKey(table, &line.left);
  check(shell, entryOf(table, *key),
        table.table->tableEntryDel(shell.session(), shell.target(), 0, *key));
  return ok();
}

Result moveEntry(Shell& shell, Line& line) {
  const TableFacts& table = matchTable(shell, line);
  const std::optional<uint32_t> priority = takeOption(table, "priority", &line);
  if (!priority) throw CommandError("priority=N is missing");
  const KeyPtr key = makeKey(table, &line.left);
  setPriority(table, *priority, key.get());
  check(shell, entryOf(table, *key),
        table.table->tableEntryMove(shell.session(), shell.target(), 0, *key));
  return ok();
}

Result setDefault(Shell& shell, Line& line) {
  const TableFacts& table = matchTable(shell, line);
  checkNothingLeft(line.left, "before the ->");
  const DataPtr data = makeData(table, &line);
  check(shell, {table, Operation::Kind::kDefault, nullptr, data.get()},
        table.table->tableDefaultEntrySet(shell.session(), shell.target(), 0, *data));
  return ok();
}

Result clearDefault(Shell& shell, Line& line) {
  const TableFacts& table = matchTable(shell, line);
  checkNothingLeft(line.left, "of clear-default");
  check(shell, {table, Operation::Kind::kDefault},
        table.table->tableDefaultEntryClear(shell.session(), shell.target(), 0));
  return ok();
}

// ---- action-data tables

struct MemberRequest {
  const TableFacts& table;
  KeyPtr key;
  DataPtr data;
};

MemberRequest memberRequest(Shell& shell, Line& line) {
  const TableFacts& table = tableOfType(shell, line, JX_RT_TABLE_ACTION_DATA);
  const uint32_t id = takeId("member", &line);
  checkNothingLeft(line.left, "before the ->");
  return {table, makeIdKey(table, JX_RT_FIELD_MEMBER_ID, id), makeData(table, &line)};
}

Result addMember(Shell& shell, Line& line) {
  const MemberRequest request = memberRequest(shell, line);
  check(shell, entryOf(request.table, *request.key, request.data.get()),
        request.table.table->tableEntryAdd(shell.session(), shell.target(), 0, *request.key,
                                           *request.data));
  return okHandle(shell, request.table, *request.key);
}

Result modifyMember(Shell& shell, Line& line) {
  const MemberRequest request = memberRequest(shell, line);
  check(shell, entryOf(request.table, *request.key, request.data.get()),
        request.table.table->tableEntryMod(shell.session(), shell.target(), 0, *request.key,
                                           *request.data));
  return ok();
}

Result deleteMember(Shell& shell, Line& line) {
  const TableFacts& table = tableOfType(shell, line, JX_RT_TABLE_ACTION_DATA);
  const KeyPtr key = makeIdKey(table, JX_RT_FIELD_MEMBER_ID, takeId("member", &line));
  checkNothingLeft(line.left, "of member-delete");
  check(shell, entryOf(table, *key),
        table.table->tableEntryDel(shell.session(), shell.target(), 0, *key));
  return ok();
}

// ---- selector tables

void setMembers(const TableFacts& table, const std::vector<uint32_t>& members,
                jxrt::JxRtTableData* data) {
  const jxrt::JxRtFieldInfo* ids = table.dataField(JX_RT_FIELD_MEMBERS);
  const jxrt::JxRtFieldInfo* states = table.dataField(JX_RT_FIELD_MEMBERS_ACTIVE);
  if (ids == nullptr || states == nullptr) throw CommandError(table.name + " has no members");
  check(data->setValue(ids->id, members), table.name + ": members");
  check(data->setValue(states->id, std::vector<bool>(members.size(), true)),
        table.name + ": members");
}

Result createGroup(Shell& shell, Line& line) {
  const TableFacts& table = tableOfType(shell, line, JX_RT_TABLE_SELECTOR);
  const KeyPtr key = makeIdKey(table, JX_RT_FIELD_GROUP_ID, takeId("group", &line));
  const std::optional<uint32_t> max = line.left.takeNumber("max");
  const std::optional<std::string> members = line.left.take("members");
  checkNothingLeft(line.left, "of group-create");
  DataPtr data;
  check(table.table->dataAllocate(&data), table.name);
  if (max) setDataNumber(table, JX_RT_FIELD_MAX_MEMBERS, "limit of members", *max, data.get());
  if (members) {
    std::vector<uint32_t> ids;
    std::string error;
    if (!parseNumberList(*members, "members", &ids, &error)) throw CommandError(error);
    setMembers(table, ids, data.get());
  }
  check(shell, entryOf(table, *key, data.get()),
        table.table->tableEntryAdd(shell.session(), shell.target(), 0, *key, *data));
  return okHandle(shell, table, *key);
}

Result destroyGroup(Shell& shell, Line& line) {
  const TableFacts& table = tableOfType(shell, line, JX_RT_TABLE_SELECTOR);
  const KeyPtr key = makeIdKey(table, JX_RT_FIELD_GROUP_ID, takeId("group", &line));
  checkNothingLeft(line.left, "of group-destroy");
  check(shell, entryOf(table, *key),
        table.table->tableEntryDel(shell.session(), shell.target(), 0, *key));
  return ok();
}

using MembershipCall = jx_status_t (jxrt::JxRtTable::*)(const jxrt::JxRtSession&,
                                                        const jx_rt_target_t&, uint32_t,
                                                        uint32_t) const;

// The four commands that change one member of one group.
template <MembershipCall kCall>
Result changeMembership(Shell& shell, Line& line) {
  const TableFacts& table = tableOfType(shell, line, JX_RT_TABLE_SELECTOR);
  const uint32_t group = takeId("group", &line);
  const uint32_t member = takeId("member", &line);
  checkNothingLeft(line.left, "of " + line.command);
  check(shell, {table, Operation::Kind::kMembership, nullptr, nullptr, group, member},
        (table.table->*kCall)(shell.session(), shell.target(), group, member));
  return ok();
}

Result setFallback(Shell& shell, Line& line) {
  const TableFacts& table = tableOfType(shell, line, JX_RT_TABLE_SELECTOR);
  const uint32_t member = takeId("member", &line);
  checkNothingLeft(line.left, "of fallback");
  check(shell, {table, Operation::Kind::kFallback, nullptr, nullptr, {}, member},
        table.table->fallbackSet(shell.session(), shell.target(), member));
  return ok();
}

Result clearFallback(Shell& shell, Line& line) {
  const TableFacts& table = tableOfType(shell, line, JX_RT_TABLE_SELECTOR);
  checkNothingLeft(line.left, "of clear-fallback");
  check(shell, {table, Operation::Kind::kFallback},
        table.table->fallbackClear(shell.session(), shell.target()));
  return ok();
}

// Options as completion offers them; see Command::options.
constexpr char kKeyOptions[] = "FIELD=";
constexpr char kEntryOptions[] = "FIELD= priority= ttl=";
constexpr char kMoveOptions[] = "FIELD= priority=";
constexpr char kModifyOptions[] = "FIELD= ttl=";
constexpr char kMembershipOptions[] = "group= member=";

std::vector<Command> lookCommands() {
  using Arrow = Command::Arrow;
  using Operand = Command::Operand;
  return {
      {"tables",
       0,
       0,
       Arrow::kNever,
       "tables",
       "Lists the tables and how full they are.",
       listTables,
       {Operand::kOther, Operand::kOther}},
      {"dump", 1, 1, Arrow::kNever, "dump TABLE",
       "Prints the entries sorted by key, then the default entry and the fallback.", dumpTable},
      {"count", 1, 1, Arrow::kNever, "count TABLE", "Counts the entries, without the default.",
       countEntries},
  };
}

std::vector<Command> matchCommands() {
  using Arrow = Command::Arrow;
  constexpr Operands kTable = {Command::Operand::kMatchTable, Command::Operand::kOther};
  return {
      {"add", 1, 1, Arrow::kAlways,
       "add TABLE FIELD=VALUE... -> ACTION PARAM=VALUE... | member=ID | group=ID "
       "[priority=N] [ttl=MS]",
       "Adds an entry. Fields left out match anything, but exact ones are needed. A greater "
       "priority wins.",
       addEntry, kTable, kEntryOptions},
      {"modify", 1, 1, Arrow::kAlways,
       "modify TABLE FIELD=VALUE... -> ACTION PARAM=VALUE... | member=ID | group=ID [ttl=MS]",
       "Changes what an entry does.", modifyEntry, kTable, kModifyOptions},
      {"delete", 1, 1, Arrow::kNever, "delete TABLE FIELD=VALUE...", "Deletes an entry.",
       deleteEntry, kTable, kKeyOptions},
      {"move", 1, 1, Arrow::kNever, "move TABLE FIELD=VALUE... priority=N",
       "Changes the priority of an entry.", moveEntry, kTable, kMoveOptions},
      {"default", 1, 1, Arrow::kAlways,
       "default TABLE -> ACTION PARAM=VALUE... | member=ID | group=ID",
       "Sets what happens to packets that no entry matches.", setDefault, kTable},
      {"clear-default", 1, 1, Arrow::kNever, "clear-default TABLE", "Takes that back.",
       clearDefault, kTable},
      {"load-routes",
       2,
       2,
       Arrow::kMaybe,
       "load-routes TABLE FILE [limit=N] [nexthops=ID,ID,...] [groups=ID,ID,...] "
       "[on-error=continue] [-> ACTION PARAM=VALUE...]",
       "Adds an entry for each PREFIX/LENGTH line of a file, plain text or gzip, spread over the "
       "given members and groups in turn, or over all members if none is given. Empty lines and "
       "lines that begin with # or ; are skipped, and so are lines of the other address family. "
       "Stops at the first line that is wrong or refused; with on-error=continue it loads the "
       "others.",
       loadRoutes,
       {Command::Operand::kRouteTable, Command::Operand::kFile},
       "limit= nexthops= groups= on-error=continue"},
  };
}

std::vector<Command> memberCommands() {
  using Arrow = Command::Arrow;
  constexpr Operands kTable = {Command::Operand::kMemberTable, Command::Operand::kOther};
  return {
      {"member-add", 1, 1, Arrow::kAlways, "member-add TABLE member=ID -> ACTION PARAM=VALUE...",
       "Adds a member to an action-data table.", addMember, kTable, "member="},
      {"member-modify", 1, 1, Arrow::kAlways,
       "member-modify TABLE member=ID -> ACTION PARAM=VALUE...", "Changes what a member does.",
       modifyMember, kTable, "member="},
      {"member-delete", 1, 1, Arrow::kNever, "member-delete TABLE member=ID",
       "Deletes a member that nothing refers to.", deleteMember, kTable, "member="},
  };
}

std::vector<Command> groupCommands() {
  using Arrow = Command::Arrow;
  constexpr Operands kTable = {Command::Operand::kGroupTable, Command::Operand::kOther};
  return {
      {"group-create", 1, 1, Arrow::kNever,
       "group-create TABLE group=ID [max=N] [members=ID,ID,...]",
       "Creates a group in a selector table, with these members at once.", createGroup, kTable,
       "group= max= members="},
      {"group-destroy", 1, 1, Arrow::kNever, "group-destroy TABLE group=ID",
       "Destroys a group that no entry refers to.", destroyGroup, kTable, "group="},
      {"group-add", 1, 1, Arrow::kNever, "group-add TABLE group=ID member=ID",
       "Adds a member to a group; it takes traffic.",
       changeMembership<&jxrt::JxRtTable::groupMemberAdd>, kTable, kMembershipOptions},
      {"group-remove", 1, 1, Arrow::kNever, "group-remove TABLE group=ID member=ID",
       "Takes a member out of a group.", changeMembership<&jxrt::JxRtTable::groupMemberDel>, kTable,
       kMembershipOptions},
      {"group-activate", 1, 1, Arrow::kNever, "group-activate TABLE group=ID member=ID",
       "Lets a member of a group take traffic.",
       changeMembership<&jxrt::JxRtTable::groupMemberActivate>, kTable, kMembershipOptions},
      {"group-deactivate", 1, 1, Arrow::kNever, "group-deactivate TABLE group=ID member=ID",
       "Keeps traffic from a member of a group.",
       changeMembership<&jxrt::JxRtTable::groupMemberDeactivate>, kTable, kMembershipOptions},
      {"fallback", 1, 1, Arrow::kNever, "fallback TABLE member=ID",
       "Sets the member that stands in for groups without active members.", setFallback, kTable,
       "member="},
      {"clear-fallback", 1, 1, Arrow::kNever, "clear-fallback TABLE", "Takes that back.",
       clearFallback, kTable},
  };
}

std::vector<Command> ownCommands() {
  constexpr Operands kNothing = {Command::Operand::kOther, Command::Operand::kOther};
  return {
      {"help",
       0,
       1,
       Command::Arrow::kNever,
       "help [COMMAND]",
       "Explains one or all commands. Words behind COMMAND are ignored, so that help may stand in "
       "front of a whole line.",
       showHelp,
       {Command::Operand::kCommand, Command::Operand::kOther}},
      {"quit", 0, 0, Command::Arrow::kNever, "quit", "Ends the shell, as the end of input does.",
       quitNever, kNothing},
      {"exit", 0, 0, Command::Arrow::kNever, "exit", "The same as quit.", quitNever, kNothing},
  };
}

}  // namespace

const std::vector<Command>& commands() {
  static const std::vector<Command> kCommands = [] {
    std::vector<Command> all;
    for (const auto group : {lookCommands, matchCommands, memberCommands, groupCommands,
                             counterCommands, barrierCommands, notificationCommands, ownCommands}) {
      for (const Command& command : group()) all.push_back(command);
    }
    return all;
  }();
  return kCommands;
}

}  // namespace jexapps
