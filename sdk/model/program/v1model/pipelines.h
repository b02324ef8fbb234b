// Tables, profiles and conditions of both pipelines on their way into the program.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "model/program/v1model/draft.h"

namespace jxmodel::v1model {

/// An action profile: the members and the groups that its tables share.
struct Profile {
  explicit Profile(const Node& its_node) : node(its_node) {}
  Node node;
  std::string name;
  uint32_t size = 0;
  std::optional<uint32_t> calculation;  // chooses a group's member
  std::vector<uint32_t> actions;        // Program::actions, as the first of its tables has them
  bool used = false;
  std::optional<uint32_t> table, selector;  // Program::tables
};

struct CompiledTable {
  explicit CompiledTable(const Node& its_node) : node(its_node) {}
  Node node;
  std::string name;
  bool ingress = false;
  /// Calls an action: only the compiler knows it, and the program has no such table.
  bool helper = false;
  std::vector<uint32_t> actions;    // Machine::actions
  std::optional<uint32_t> index;    // Program::tables
  std::optional<size_t> profile;    // of indirect tables
  std::optional<uint32_t> counter;  // direct: Machine::counters
  std::optional<uint32_t> meter;    // direct: Machine::meters
  std::vector<Expression> key;      // as Table::key
  std::vector<std::vector<uint8_t>> key_masks;
  std::string construct() const { return "table " + shown(name); }
};

struct Condition {
  explicit Condition(const Node& its_node) : node(its_node) {}
  Node node;
  std::string name;
  bool ingress = false;
};

struct Pipelines {
  explicit Pipelines(const Node& the_ingress, const Node& the_egress)
      : ingress(the_ingress), egress(the_egress) {}
  Node ingress, egress;
  std::vector<CompiledTable> tables;
  std::vector<Condition> conditions;
  std::vector<Profile> profiles;
  Names profile_names{"action profile"};
  Names table_names{"table"};
  Names program_actions{"action"};  // Program::actions
};

// profiles.cpp
void readProfiles(const Node& pipeline, Draft* draft, Pipelines* pipelines);
/// The profile of an indirect table, which has these actions of the program.
size_t useProfile(const CompiledTable& table, bool with_selector,
                  const std::vector<uint32_t>& actions, Pipelines* pipelines);

// keys.cpp
void readKey(CompiledTable* compiled, Table* table, Draft* draft);

// entries.cpp
/// The values of an action's parameters, each in whole bytes.
struct ReadCall {
  uint32_t action = 0;  // Machine::actions
  std::vector<std::vector<uint8_t>> params;
};
ReadCall readCall(const Node& call, const CompiledTable& table, const Draft& draft);
void readDefault(const CompiledTable& compiled, const Pipelines& pipelines, const Draft& draft,
                 Table* table);
void readEntries(const CompiledTable& compiled, const Pipelines& pipelines, const Draft& draft,
                 Table* table, std::vector<UnpackedEntry>* entries);

// nodes.cpp
void readNodes(const Pipelines& pipelines, Draft* draft);

}  // namespace jxmodel::v1model
