// A compiled program in the making, and the readers of its parts. Each lies in a source of its own
// and needs what the readers before it have put into the draft; all report by LoadFailure.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "model/program/json/reader.h"
#include "model/program/layout.h"
#include "model/program/machine.h"

namespace jxmodel::v1model {

inline constexpr size_t kMaxItems = 1u << 20;            // of one list
inline constexpr uint32_t kMaxNamed = 0x7FFF;            // tables, actions: positions of ids
inline constexpr uint32_t kMaxTableSize = 16'777'216;    // entries
inline constexpr uint32_t kMaxGroupMembers = 65'536;     // of one group
inline constexpr uint32_t kMaxKeyBytes = 1024;           // values of one key
inline constexpr uint32_t kMaxParamBytes = 4096;         // of one action
inline constexpr uint32_t kMaxHeaderBits = 1u << 20;     // of one header
inline constexpr uint64_t kMaxPacketBits = 1u << 25;     // of all headers
inline constexpr uint64_t kMaxStateBytes = 256u << 20;   // of all registers, counters and meters
inline constexpr size_t kMaxExpressionCodes = 1u << 16;  // of one expression
inline constexpr uint32_t kIndexWidth = 32;              // bits of a member id, a counter index

/// A name as reasons show it: names can be long.
std::string shown(std::string_view name);

/// Runs `body`; a failure in it names the construct.
template <typename Body>
auto within(const std::string& construct, Body body) -> decltype(body()) {
  try {
    return body();
  } catch (LoadFailure& failure) {
    const bool named = failure.reason.compare(0, construct.size(), construct) == 0;
    if (!named) failure.reason = construct + ": " + failure.reason;
    throw;
  }
}

/// The names of one kind of thing, and which item of its list each one is.
class Names {
 public:
  /// `what` stands in reasons: "header type".
  explicit Names(const char* what) : what_(what) {}

  /// Reads the "name" of the next item; a name that is taken is a failure.
  std::string declare(const Node& item);
  void add(const std::string& name, uint32_t index) { indices_.emplace(name, index); }
  bool has(std::string_view name) const { return find(name).has_value(); }
  std::optional<uint32_t> find(std::string_view name) const;
  /// Index of the item that `reference`, a string, names.
  uint32_t resolve(const Node& reference) const;

 private:
  const char* what_;
  std::unordered_map<std::string, uint32_t> indices_;
};

/// The same of the "id" of each item.
class Ids {
 public:
  explicit Ids(const char* what) : what_(what) {}

  void declare(const Node& item);
  std::optional<uint32_t> find(uint32_t id) const;
  uint32_t resolve(const Node& reference) const;

 private:
  const char* what_;
  std::unordered_map<uint32_t, uint32_t> indices_;
};

/// Names and ids of the items of one list.
struct Index {
  explicit Index(const char* what) : names(what), ids(what) {}
  std::string declare(const Node& item) {
    std::string name = names.declare(item);
    ids.declare(item);
    return name;
  }
  Names names;
  Ids ids;
};

struct HeaderType {
  std::vector<MachineField> fields;  // without their header
  std::unordered_map<std::string, uint32_t> numbers;
  uint32_t fixed_bits = 0;
  std::optional<uint32_t> varbit;  // number of the field
  uint32_t max_bytes = 0;          // of the whole header
};
struct UnionType {
  std::vector<std::pair<std::string, uint32_t>> members;  // name and header type
};

/// What is declared and can be named.
struct Symbols {
  Index header_types{"header type"};
  std::vector<HeaderType> types;
  Index headers{"header"};
  std::vector<uint32_t> type_of;  // headers
  Index stacks{"header stack"};
  Names union_types{"header union type"};
  std::vector<UnionType> unions_of_type;
  Index unions{"header union"};
  std::vector<uint32_t> type_of_union;
  Index union_stacks{"header union stack"};
  std::map<std::pair<std::string, std::string>, std::pair<uint32_t, uint32_t>> aliases;

  Index calculations{"calculation"};
  Index registers{"register"};
  Index counters{"counter"};
  Index meters{"meter"};
  Index value_sets{"value set"};
  Ids learns{"learn list"};
  Names learn_names{"learn object"};
  Ids field_lists{"field list"};
  Ids actions{"action"};
  Names states{"parser state"};
};

/// A counter array or a meter array as declared.
struct DeclaredArray {
  std::string name;
  uint32_t size = 0;            // cells; 0 of a direct one
  std::optional<Node> binding;  // direct: the table's name
};

struct Draft {
  UnpackedProgram out;
  Machine machine;
  Symbols symbols;
  std::vector<Action> shapes;  // as Machine::actions: names and parameters
  std::vector<DeclaredArray> counters, meters;
  uint64_t state_bytes = 0;  // of all arrays so far
  std::vector<std::string> notices;
  std::unordered_map<std::string, uint32_t> constants;  // Machine::constants by their text
};

/// The items of a list of the document's top; none where it is missing.
std::vector<Node> itemsOf(const Node& root, const char* member);
/// All items of a list.
std::vector<Node> itemsOf(const Node& list);
SourcePlace readSource(const Node& item);

// headers.cpp
void readHeaders(const Node& root, Draft* draft);
void readErrors(const Node& root, Draft* draft);
/// A field as [header, field] names it, directly or by an alias.
struct NamedField {
  uint32_t header = 0;
  std::optional<uint32_t> number;  // within the header; empty: $valid$
};
NamedField resolveField(const Node& node, const Draft& draft);
/// The same, of a field that has a value: index into Machine::fields.
uint32_t resolveValueField(const Node& node, const Draft& draft);
/// "ipv4.dst"
std::string nameOfField(const MachineField& field, const Machine& machine);

// calculations.cpp
HashAlgorithm readAlgorithm(const Node& node, const std::string& construct, Draft* draft);
void readInputs(const Node& list, const Draft& draft, Calculation* calculation);
void readCalculations(const Node& root, Draft* draft);
void readChecksums(const Node& root, Draft* draft);
void readDeparser(const Node& root, Draft* draft);

// stateful.cpp
void readStateful(const Node& root, Draft* draft);
/// "register R: size N is above the limit L", if the arrays of the program grow too large.
void reserveState(const Node& size, const std::string& construct, uint64_t cells,
                  uint64_t cell_bytes, Draft* draft);

// actions.cpp
void readActions(const Node& root, Draft* draft);

// parser.cpp
void readParser(const Node& root, Draft* draft);

// tables.cpp
void readPipelines(const Node& root, Draft* draft);

}  // namespace jxmodel::v1model
