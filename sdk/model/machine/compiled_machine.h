// A machine in the form in which packets run through it on one device: fields bound to words,
// expressions as flat code, tables bound to those of the device, counters that count.
#pragma once

#include <atomic>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "model/machine/expressions.h"
#include "model/machine/header_plan.h"
#include "model/machine/machine_counts.h"
#include "model/machine/settings.h"
#include "model/program/program.h"
#include "model/tables/table_reader.h"

namespace jxmodel {

/// Why no packet could run through this program's machine, empty if packets can.
std::string machineRefusal(const Program& program);

struct CompiledTarget {
  enum class Kind : uint8_t { kField, kStackLast, kElement };
  Kind kind = Kind::kField;
  uint32_t field = 0;  // kField: the field; else its number in the header
  uint32_t stack = 0;
  const CompiledExpression* index = nullptr;  // kElement
};
struct CompiledHeaderRef {
  uint32_t header = 0;  // where `index` is null
  uint32_t stack = 0;
  const CompiledExpression* index = nullptr;
};

struct CompiledActionStep {
  enum class Op : uint8_t {
    // Assignments of the usual kind: word `a`, of header `b`.
    kSetWord,    // := mask
    kCopyWord,   // := word `c` under the mask
    kParamWord,  // := `d` bytes of the parameters from `c` on, under the mask
    kStoreWord,  // := x, of 64 bits, under the mask
    // Field `a` of several words := field `b`, parameter at `b` of `c` bits.
    kCopyField,
    kParamField,
    kAssign,  // target := x
    kAssignVarbit,
    kAssignHeader,  // refs `a` := `b`
    kAssignStack,
    kAssignUnion,
    kAssignUnionStack,
    kAddHeader,
    kRemoveHeader,
    kPush,
    kPop,
    kMarkToDrop,  // fields `a` and `b`
    kJump,
    kJumpIfZero,
    kExit,
    kHash,           // calculation `a`, base x, max y
    kRandom,         // x to y
    kRegisterRead,   // register `a`, index x
    kRegisterWrite,  // register `a`, index x, value y
    kCount,          // counter `a`, index x
    kExecuteMeter,   // meter `a`, index x
    kDigest,
    kClone,  // session x, list `a`
    kResubmit,
    kRecirculate,
    kTruncate,
    kLog,
    kAssert,
  };
  static constexpr Op kLastOfWords = Op::kStoreWord;
  Op op = Op::kExit;
  uint32_t cost = 1;  // of the steps that a packet may take
  uint32_t a = 0, b = 0, c = 0, d = 0;
  uint64_t mask = 0;
  const CompiledExpression* x = nullptr;
  const CompiledExpression* y = nullptr;
  uint32_t target = 0;                  // into CompiledMachine::targets
  const MachineStep* source = nullptr;  // for people
  const SourcePlace* place = nullptr;   // for people; null where it is not known
};
struct CompiledAction {
  const MachineAction* source = nullptr;
  std::vector<CompiledActionStep> steps;
};

struct CompiledParserOp {
  enum class Op : uint8_t { kExtract, kExtractNext, kExtractUnionNext, kVerify, kAdvance, kStep };
  Op op = Op::kStep;
  uint32_t a = 0, b = 0;                  // header; stack; union stack and member
  const CompiledExpression* x = nullptr;  // length of the varbit, condition, bits
  const CompiledExpression* y = nullptr;  // error
  CompiledActionStep step;
};
/// A part of a key: of a table or of a parser state.
struct CompiledKeyPart {
  enum class Kind : uint8_t {
    kWord,         // word `place`, of at most 8 bytes
    kHeaderValid,  // header `place`
    kField,        // field `place`, which is as wide
    kExpression,
  };
  Kind kind = Kind::kExpression;
  uint32_t place = 0;
  uint32_t width = 0, bytes = 0;
  const CompiledExpression* x = nullptr;
};
struct CompiledTransition {
  Transition::Kind kind = Transition::Kind::kDefault;
  uint64_t value = 0, mask = 0;  // of keys of at most 8 bytes; the value is under the mask
  const Transition* source = nullptr;
  uint32_t next = kNoIndex;
};
struct CompiledState {
  const ParserState* source = nullptr;
  std::vector<CompiledParserOp> ops;
  std::vector<CompiledKeyPart> key;
  uint32_t key_bytes = 0;
  std::vector<CompiledTransition> transitions;
};

struct CompiledTable {
  const TableState* state = nullptr;
  const ActionCall* default_action = nullptr;  // the description's, null if it has none
  std::vector<CompiledKeyPart> key;
  FieldPieces key_pieces;  // of all parts; not planned: part by part
  uint32_t key_bytes = 0;
  std::vector<uint8_t> mask;  // of the key; empty: none
  struct ActionOfTable {
    const Action* action;
    const CompiledAction* compiled;
    uint32_t next;
  };
  std::vector<ActionOfTable> actions;
  bool by_hit = false;
  uint32_t on_hit = kNoIndex, on_miss = kNoIndex, base_next = kNoIndex;
  bool ages = false;
  uint32_t direct_meter = kNoIndex;
  uint32_t meter_target = kNoIndex;  // into CompiledMachine::targets
  uint32_t selector = kNoIndex;      // calculation
};
struct CompiledCall {
  const CompiledAction* action = nullptr;  // null: none
  std::vector<uint8_t> params;             // packed
  uint32_t next = kNoIndex;
};
struct CompiledCondition {
  const CompiledExpression* x = nullptr;
  uint32_t on_true = kNoIndex, on_false = kNoIndex;
};
struct CompiledNode {
  enum class Kind : uint8_t { kTable, kCall, kCondition };
  Kind kind = Kind::kCall;
  uint32_t index = 0;  // into the list of the kind
  const MachineNode* source = nullptr;
};

/// The inputs of a calculation.
struct CompiledCalculation {
  FieldPieces pieces;             // of all but the payload; for packets with all of these headers
  std::vector<uint32_t> headers;  // each once
  uint32_t max_bytes = 0;         // without the payload
  bool payload = false;
};
struct CompiledChecksum {
  const Checksum* source = nullptr;
  const CompiledExpression* x = nullptr;  // null: always
};

/// Where a field lies that the machine itself reads or writes.
struct StandardSlot {
  uint32_t limb = kNoIndex;  // kNoIndex: the program has none such
  uint64_t mask = 0;
};
struct StandardSlots {
  StandardSlot ingress_port, egress_spec, egress_port, instance_type, packet_length,
      ingress_timestamp, egress_timestamp, mcast_grp, egress_rid, checksum_error, parser_error;
};

class CompiledMachine {
 public:
  /// `states` are the device's, as Program::tables. The program passed machineRefusal(); it, the
  /// states and the settings outlive this.
  CompiledMachine(const Program& program, const std::vector<TableState*>& states,
                  const TableReader& reader, MachineSettings& settings);

  const Program& program;
  const Machine& machine;
  const StateLayout layout;
  const TableReader reader;
  MachineSettings& settings;
  const uint64_t id;        // of this object alone, in the process
  const uint64_t started;   // of the model's clock, ns
  bool needs_time = false;  // the program reads a time stamp

  std::vector<HeaderPlan> plans;  // as Machine::headers
  std::vector<CompiledTarget> targets;
  std::vector<CompiledHeaderRef> refs;
  std::deque<CompiledAction> actions;  // as Machine::actions
  std::vector<CompiledState> parser;   // as Machine::states
  std::vector<CompiledTable> tables;
  std::vector<CompiledCall> calls;
  std::vector<CompiledCondition> conditions;
  std::vector<CompiledNode> nodes;                // as Machine::nodes
  std::vector<CompiledCalculation> calculations;  // as Machine::calculations
  std::vector<CompiledChecksum> checksums;
  std::vector<CounterTable*> counters;  // as Machine::counters; null elements do not count
  StandardSlots standard;
  uint32_t depth = 1;          // of the deepest expression
  uint32_t max_key_bytes = 8;  // of tables and parser states
  uint32_t max_limbs = 2;      // of the widest field

  // What packets add up.
  mutable std::array<std::atomic<uint64_t>, kMachineEventCount> events{};
  mutable std::vector<std::atomic<uint64_t>> parser_errors;  // as ParserErrors::names; last: others

 private:
  friend class ActionCompiler;
  const CompiledExpression* expression(const Expression& source,
                                       const std::vector<uint32_t>& params = {});
  uint32_t target(const Target& source, const std::vector<uint32_t>& params = {});
  uint32_t ref(const HeaderRef& source, const std::vector<uint32_t>& params);
  FieldPieces keyPieces(const std::vector<CompiledKeyPart>& key) const;
  CompiledKeyPart keyPart(const Expression& source, uint32_t width);
  StandardSlot slotOf(const std::optional<uint32_t>& field) const;
  void bindStandard();
  void compileParser();
  void compileOp(const ParserOp& source, CompiledState* state);
  void compileTransition(const Transition& source, CompiledState* state);
  void compileNodes(const std::vector<TableState*>& states);
  void compileTable(const TableNode& source, const std::vector<TableState*>& states);
  void compileCall(const CallNode& source);
  void compileCalculation(const Calculation& source);
  void findTimeReaders();

  std::deque<CompiledExpression> expressions_;
  std::vector<bool> read_;  // fields that expressions read
};

}  // namespace jxmodel
