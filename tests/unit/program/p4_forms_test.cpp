// A program of the compiler in its three forms: JSON, JSON with P4Info, P4Info alone.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>

#include "model/program/layout.h"
#include "model/program/load/load.h"
#include "model/program/p4info/p4info.h"

namespace jxmodel {
namespace {

const std::string kFolder = JEX_P4_PROGRAMS_DIR "/";

// A folder of its own, so that a JSON can stand without its P4Info.
class Folder {
 public:
  Folder() {
    std::string name = std::filesystem::temp_directory_path() / "p4_forms_XXXXXX";
    path_ = mkdtemp(name.data());
  }
  ~Folder() { std::filesystem::remove_all(path_); }
  std::string copy(const std::string& file) const {
    std::filesystem::copy_file(kFolder + file, path_ / file);
    return path_ / file;
  }
  std::string write(const std::string& file, const std::string& text) const {
    std::ofstream(path_ / file) << text;
    return path_ / file;
  }

 private:
  std::filesystem::path path_;
};

std::string readText(const std::string& file) {
  std::ifstream in(file);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  const size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

std::shared_ptr<const Program> loaded(const std::string& spec) {
  LoadError error;
  auto program = loadProgram(spec, &error);
  EXPECT_NE(program, nullptr) << error.text();
  return program;
}

std::string loadErrorOf(const std::string& spec) {
  LoadError error;
  EXPECT_EQ(loadProgram(spec, &error), nullptr);
  return error.text();
}

std::vector<std::string> programs() {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(kFolder)) {
    if (entry.path().extension() != ".json") continue;
    names.push_back(entry.path().stem());
  }
  std::sort(names.begin(), names.end());
  return names;
}

// JSON alone does not say that the table of a switch statement is the compiler's own.
std::vector<const Table*> shown(const Program& program) {
  std::vector<const Table*> tables;
  for (const Table& table : program.tables) {
    if (!table.hidden && table.name.compare(0, 7, "switch_") != 0) tables.push_back(&table);
  }
  return tables;
}

std::string nameOr(const Program& program, const std::optional<uint32_t>& table) {
  return table ? program.tables[*table].name : "-";
}

// What partners see of a table. `ids`: those of P4Info, which JSON alone does not have.
std::string describe(const Program& program, const Table& table, bool ids) {
  std::string text = table.name + " type " + std::to_string(table.type) + " size " +
                     std::to_string(table.size) + " handle " + std::to_string(table.handle);
  if (ids) {
    text += " id " + std::to_string(table.id) + " of " + std::to_string(table.max_members);
  }
  text += " idle " + std::to_string(table.idle_timeout) + " members " +
          nameOr(program, table.action_data_table) + " groups " +
          nameOr(program, table.selector_table) + " counter " +
          nameOr(program, table.direct_counter) + " counts " +
          nameOr(program, table.counted_table) + " constant " +
          std::to_string(table.constant_default) + "\n";
  for (const KeyField& field : table.key) {
    // Only P4Info tells optional from ternary, and whether a field has an id of its own.
    const auto match =
        ids || field.match != JX_RT_MATCH_OPTIONAL ? field.match : JX_RT_MATCH_TERNARY;
    text += "  key " + field.name + " " + std::to_string(field.width) + " " + std::to_string(match);
    if (ids) {
      text += " id " + std::to_string(field.id) + " at " + std::to_string(field.offset);
    }
    text += "\n";
  }
  if (table.type == JX_RT_TABLE_SELECTOR) return text;
  for (const uint32_t index : table.actions) {
    const Action& action = program.actions[index];
    text += "  action " + action.name;
    if (ids) text += " id " + std::to_string(action.id);
    for (const Param& param : action.params) {
      text +=
          " " + param.name + ":" + std::to_string(param.width) + "@" + std::to_string(param.offset);
    }
    text += "\n";
  }
  return text;
}

std::vector<std::string> describeAll(const Program& program, bool ids) {
  std::vector<std::string> all;
  for (const Table* table : shown(program)) all.push_back(describe(program, *table, ids));
  return all;
}

TEST(P4Forms, AllProgramsAgreeInAllForms) {
  const std::vector<std::string> names = programs();
  EXPECT_GE(names.size(), 22U);
  for (const std::string& name : names) {
    SCOPED_TRACE(name);
    const Folder folder;
    const auto compiled = loaded(folder.copy(name + ".json"));
    const auto alone = loaded(folder.copy(name + ".p4info.txtpb"));
    const auto joined = loaded(kFolder + name + ".json");
    const auto pair = loaded(kFolder + name + ".json," + kFolder + name + ".p4info.txtpb");
    ASSERT_TRUE(compiled && alone && joined && pair);
    EXPECT_EQ(describeAll(*joined, true), describeAll(*alone, true));
    EXPECT_EQ(describeAll(*joined, true), describeAll(*pair, true));
    EXPECT_EQ(describeAll(*joined, false), describeAll(*compiled, false));
    for (const Program* program : {compiled.get(), alone.get(), joined.get()}) {
      EXPECT_EQ(program->name, name);
      EXPECT_EQ(program->id, joined->id);
    }
    EXPECT_EQ(alone->machine, nullptr);
    ASSERT_NE(joined->machine, nullptr);
    ASSERT_EQ(joined->learns.size(), alone->learns.size());
    for (size_t i = 0; i < alone->learns.size(); ++i) {
      EXPECT_EQ(joined->learns[i].id, alone->learns[i].id);
      EXPECT_EQ(joined->learns[i].name, alone->learns[i].name);
      ASSERT_EQ(joined->learns[i].fields.size(), alone->learns[i].fields.size());
      for (size_t j = 0; j < alone->learns[i].fields.size(); ++j) {
        const PacketField& a = joined->fields[joined->learns[i].fields[j].field];
        const PacketField& b = alone->fields[alone->learns[i].fields[j].field];
        EXPECT_EQ(a.name, b.name);
        EXPECT_EQ(a.width, b.width);
      }
    }
  }
}

// The nodes of the machine still name the tables that they apply.
TEST(P4Forms, MachinesApplyTheTablesOfTheirNames) {
  for (const std::string& name : programs()) {
    SCOPED_TRACE(name);
    const auto joined = loaded(kFolder + name + ".json");
    ASSERT_TRUE(joined);
    size_t applied = 0;
    for (const MachineNode& node : joined->machine->nodes) {
      const auto* const table = std::get_if<TableNode>(&node.node);
      if (table == nullptr) continue;
      ++applied;
      const Table& described = joined->tables.at(table->table);
      EXPECT_EQ(described.name, node.name);
      ASSERT_EQ(described.actions.size(), table->actions.size());
      for (size_t i = 0; i < table->actions.size(); ++i) {
        EXPECT_EQ(joined->actions[described.actions[i]].name,
                  joined->machine->actions[table->actions[i].action].name);
      }
      EXPECT_EQ(described.direct_counter, table->direct_counter);
    }
    EXPECT_EQ(applied,
              std::count_if(joined->tables.begin(), joined->tables.end(), [](const Table& table) {
                return table.type <= JX_RT_TABLE_MATCH_SELECTOR;
              }));
    for (const MachineCounter& counter : joined->machine->counters) {
      EXPECT_EQ(joined->tables.at(counter.table).name, counter.name);
    }
  }
}

TEST(P4Forms, KeyFieldsHaveTheIdsOfP4Info) {
  const Folder folder;
  const std::string compiled_file = folder.copy("l2_learn.json");
  std::string text = readText(kFolder + "l2_learn.p4info.txtpb");
  text = replaced(text, "id: 1\n    name: \"port\"", "id: 9\n    name: \"port\"");
  text = replaced(text, "id: 3\n    name: \"vid\"", "id: 1\n    name: \"vid\"");
  folder.write("l2_learn.p4info.txtpb", text);
  const auto program = loaded(compiled_file);
  ASSERT_TRUE(program);
  const std::vector<KeyField>& key = program->tables.at(0).key;
  ASSERT_EQ(key.size(), 3U);
  EXPECT_EQ(key[0].id, 9U);
  EXPECT_EQ(key[1].id, 2U);
  EXPECT_EQ(key[2].id, 1U);
  EXPECT_LT(key[0].offset, key[2].offset);
}

// Tables of P4Info can stand in another order than those of the JSON.
TEST(P4Forms, OrderIsThatOfP4Info) {
  const Folder folder;
  const std::string compiled_file = folder.copy("l2_learn.json");
  std::string text = readText(kFolder + "l2_learn.p4info.txtpb");
  // The first table goes to the end.
  const size_t first = text.find("tables {");
  const size_t second = text.find("tables {", first + 1);
  const std::string table = text.substr(first, second - first);
  text = text.substr(0, first) + text.substr(second) + table;
  const std::string p4info = folder.write("l2_learn.p4info.txtpb", text);
  const auto joined = loaded(compiled_file);
  const auto alone = loaded(p4info);
  ASSERT_TRUE(joined && alone);
  EXPECT_EQ(alone->tables.at(0).name, "BridgeIngress.reserved");
  EXPECT_EQ(describeAll(*joined, true), describeAll(*alone, true));
  for (const MachineNode& node : joined->machine->nodes) {
    const auto* const applied = std::get_if<TableNode>(&node.node);
    if (applied == nullptr) continue;
    EXPECT_EQ(joined->tables.at(applied->table).name, node.name);
  }
}

struct EditRow {
  const char* from;
  const char* to;
  const char* reason;
};

TEST(P4Forms, RefusesP4InfoOfAnotherProgram) {
  const EditRow rows[] = {
      {"\"BridgeIngress.port_vlan\"", "\"BridgeIngress.other\"",
       "P4Info table BridgeIngress.other has no counterpart in the program"},
      {"name: \"BridgeIngress.port_rx\"", "name: \"BridgeIngress.port_tx\"",
       "P4Info counter BridgeIngress.port_tx has no counterpart in the program"},
      {"name: \"tagged\"", "name: \"untagged\"",
       "table BridgeIngress.port_vlan: key untagged is tagged in the program"},
      {"match_type: TERNARY", "match_type: RANGE",
       "table BridgeIngress.port_vlan: key vid is range in P4Info, ternary in the program"},
      {"match_type: EXACT", "match_type: OPTIONAL",
       "table BridgeIngress.port_vlan: key port is optional in P4Info, exact in the program"},
      {"bitwidth: 9", "bitwidth: 10",
       "table BridgeIngress.port_vlan: key port has 10 bits in P4Info, 9 in the program"},
      {"name: \"vid\"\n    bitwidth: 12\n  }\n}\nactions",
       "name: \"vid\"\n    bitwidth: 13\n  }\n}\nactions",
       "action BridgeIngress.set_pvid: parameter vid has 13 bits in P4Info, 12 in the program"},
      {"  match_fields {\n    id: 2\n    name: \"tagged\"\n    bitwidth: 1\n    match_type: EXACT\n"
       "  }\n",
       "", "table BridgeIngress.port_vlan has 2 keys in P4Info, 3 in the program"},
      {"  action_refs {\n    id: 21164391\n  }", "  action_refs {\n    id: 28312938\n  }",
       "table BridgeIngress.port_vlan: action BridgeEgress.stop has no counterpart in the program"},
      {"        name: \"port\"\n        type_spec {\n          bitstring {\n            bit {\n"
       "              bitwidth: 9",
       "        name: \"port\"\n        type_spec {\n          bitstring {\n            bit {\n"
       "              bitwidth: 8",
       "digest learn_t: field port has 8 bits in P4Info, 9 in the program"},
  };
  const std::string text = readText(kFolder + "l2_learn.p4info.txtpb");
  for (const EditRow& row : rows) {
    SCOPED_TRACE(row.reason);
    const Folder folder;
    const std::string compiled_file = folder.copy("l2_learn.json");
    const std::string p4info =
        folder.write("l2_learn.p4info.txtpb", replaced(text, row.from, row.to));
    const std::string error = loadErrorOf(compiled_file);
    EXPECT_EQ(error.substr(0, p4info.size() + 7), p4info + ": line ");
    EXPECT_EQ(error.substr(error.size() - std::min(error.size(), std::string(row.reason).size())),
              row.reason)
        << error;
  }
}

// The control plane may have another width of a key whose type is translated.
TEST(P4Forms, TakesWidthsOfTranslatedTypes) {
  const Folder folder;
  const std::string compiled_file = folder.copy("l2_learn.json");
  folder.write("l2_learn.p4info.txtpb",
               replaced(readText(kFolder + "l2_learn.p4info.txtpb"), "bitwidth: 9",
                        "bitwidth: 32 type_name { name: \"port_t\" }"));
  const auto program = loaded(compiled_file);
  ASSERT_TRUE(program);
  EXPECT_EQ(program->tables.at(0).key.at(0).width, 9U);
}

// The compiler drops what no packet reaches; partners can still program it.
TEST(P4Forms, KeepsTablesThatTheCompilerRemoved) {
  const Folder folder;
  const std::string compiled_file = folder.copy("l2_learn.json");
  folder.write("l2_learn.p4info.txtpb",
               readText(kFolder + "l2_learn.p4info.txtpb") +
                   "actions { preamble { id: 0x01000001 name: \"gone\" } }\n"
                   "tables { preamble { id: 0x02000001 name: \"unused\" } size: 8"
                   " action_refs { id: 0x01000001 }"
                   " match_fields { id: 1 name: \"k\" bitwidth: 8 match_type: EXACT } }\n");
  const auto program = loaded(compiled_file);
  ASSERT_TRUE(program);
  const Table* const table = program->tableByName("unused");
  ASSERT_NE(table, nullptr);
  EXPECT_EQ(table->id, 0x02000001U);
  EXPECT_FALSE(table->hidden);
}

// What P4Info leaves out is the program's own.
TEST(P4Forms, HidesTablesThatP4InfoDoesNotList) {
  const Folder folder;
  const std::string compiled_file = folder.copy("l2_learn.json");
  std::string text = readText(kFolder + "l2_learn.p4info.txtpb");
  const size_t first = text.find("tables {");
  text.erase(first, text.find("tables {", first + 1) - first);
  folder.write("l2_learn.p4info.txtpb", text);
  const auto program = loaded(compiled_file);
  ASSERT_TRUE(program);
  ASSERT_NE(program->tableByName("BridgeIngress.port_vlan"), nullptr);
  EXPECT_TRUE(program->tableByName("BridgeIngress.port_vlan")->hidden);
  EXPECT_EQ(program->tables.back().name, "BridgeIngress.port_vlan");
}

TEST(P4Forms, TellsFormsApartByContent) {
  const Folder folder;
  const std::string ours = folder.write("ours.json", readText(JEX_PROGRAMS_DIR "/l2_switch.json"));
  ASSERT_TRUE(loaded(ours));
  // A description of our own has no P4Info; a file beside it does not matter.
  folder.write("ours.p4info.txtpb", "not p4info");
  EXPECT_TRUE(loaded(ours));
  const std::string p4info = folder.write("any.name", readText(kFolder + "l2_learn.p4info.txtpb"));
  EXPECT_TRUE(loaded(p4info));
  const std::string compiled_file = folder.copy("l2_learn.json");
  EXPECT_TRUE(loaded(compiled_file + "," + p4info));
  EXPECT_EQ(loadErrorOf(ours + "," + p4info),
            ours + ": /: is not a compiler's JSON, which P4Info could belong to");
  EXPECT_EQ(loadErrorOf(compiled_file + "," + compiled_file),
            compiled_file + ": /: is not P4Info text");
  EXPECT_EQ(loadErrorOf(compiled_file + ",/none"),
            "/none: cannot be read: No such file or directory");
  EXPECT_EQ(loadErrorOf("/none.json"), "/none.json: cannot be read: No such file or directory");
  EXPECT_EQ(loadErrorOf("/"), "/: cannot be read: Is a directory");
}

TEST(P4Forms, SayThatSourceIsToBeCompiled) {
  const Folder folder;
  const std::string source = folder.write("x.p4", "// a bridge\n#include <core.p4>\n");
  EXPECT_EQ(loadErrorOf(source),
            source + ": /: is P4 source, which the P4 compiler turns into the JSON to give here");
}

TEST(P4Forms, ReadsP4InfoBesideTheJson) {
  for (const char* extension : {".p4info.txtpb", ".p4info.txt", ".p4info"}) {
    const Folder folder;
    const std::string compiled_file = folder.copy("acl_range.json");
    const auto without = loaded(compiled_file);
    const std::string p4info = folder.write(std::string("acl_range") + extension,
                                            readText(kFolder + "acl_range.p4info.txtpb"));
    const auto with = loaded(compiled_file);
    ASSERT_TRUE(without && with);
    EXPECT_NE(with->tables.at(0).id, without->tables.at(0).id);
    folder.write(std::string("acl_range") + extension, "tables {");
    EXPECT_EQ(loadErrorOf(compiled_file).substr(0, p4info.size() + 1), p4info + ":");
  }
}

}  // namespace
}  // namespace jxmodel
