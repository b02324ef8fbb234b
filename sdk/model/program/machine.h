// The second way of packets: what a program does that brings its own parser, actions and deparser,
// as a compiler wrote it. Pure data without names to look up: all references are indices into the
// lists of the same Machine, unless a comment says of what.
//
// Numbers are unbounded integers while they are computed with; a value is cut to the width of the
// field (and made negative where a signed field's top bit is set) when it is stored.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace jxmodel {

inline constexpr uint32_t kMaxArithmeticWidth = 2048;  // bits of a field that is computed with
inline constexpr uint32_t kDropPort = 511;             // egress_spec of a packet that is dropped

/// Where in the P4 source something stands; empty texts where the compiler did not say.
struct SourcePlace {
  std::string file;
  uint32_t line = 0;
  std::string fragment;
};

/// A number of any size. `magnitude` is in network byte order without leading zero bytes; empty is
/// 0.
struct Number {
  bool negative = false;
  std::vector<uint8_t> magnitude;
};

// --- headers

struct MachineField {
  std::string name;     // within its header: "dst"
  uint32_t header = 0;  // that it belongs to
  uint32_t width = 0;   // bits; of a varbit the most that it can have
  bool is_signed = false;
  bool varbit = false;  // its present length is part of the packet's state
};

/// A header of packets or a struct of metadata. Metadata is always valid and never emitted.
struct MachineHeader {
  std::string name;  // "ipv4", "vlan[0]", "scalars"
  bool metadata = false;
  uint32_t first_field = 0;  // its fields stand one after the other in Machine::fields
  uint32_t field_count = 0;
  uint32_t fixed_bits = 0;               // of all fields but the varbit
  uint32_t max_bytes = 0;                // of the whole header with its varbit at its longest
  std::optional<uint32_t> varbit_field;  // index into Machine::fields
  std::optional<uint32_t> in_union;      // the union that it is a member of
};

struct HeaderStack {
  std::string name;
  std::vector<uint32_t> headers;  // element 0 first
};

/// At most one of its members is valid.
struct HeaderUnion {
  std::string name;
  std::vector<uint32_t> headers;  // in the order of the members
};

struct UnionStack {
  std::string name;
  std::vector<uint32_t> unions;
};

// --- expressions

/// One instruction of an expression in postfix order: operands first. D is a number, B is a number
/// that is 0 or 1.
enum class ExprOp : uint8_t {
  // Operands: push one value.
  kConstant,        // constants[a]
  kField,           // fields[a]; 0 where the header is invalid
  kHeaderValid,     // headers[a]
  kUnionValid,      // unions[a]: any member
  kParam,           // parameter a of the action that runs
  kLookahead,       // b bits, a bits behind the parser's place; only in parsers
  kStackLast,       // field number b of the last element of stacks[a]
  kStackLastIndex,  // of stacks[a]: next - 1
  kStackSize,       // of stacks[a]: next
  kUnionStackLast,  // fields of the last element: stack a, member b >> 16, field number b & 0xFFFF
  // Pops an index, pushes field number b of that element of stacks[a]; 0 beyond the stack.
  kElementField,
  kElementValid,  // likewise its validity
  // Pops an index, pushes a field of that element of union stack a: member and field number as in
  // kUnionStackLast.
  kUnionElementField,
  kHeadersEqual,  // pushes whether headers[a] equals headers[b]
  kRegister,      // pops an index, pushes that cell of registers[a]
  // D, D -> D
  kAdd,
  kSubtract,
  kMultiply,
  kDivide,
  kModulo,
  kShiftLeft,
  kShiftRight,
  kAnd,
  kOr,
  kXor,
  // D -> D
  kNot,            // of the infinite two's complement
  kWrapSigned,     // into the signed range of a bits
  kClampUnsigned,  // into 0 .. 2^a - 1
  kClampSigned,
  // D, D -> B
  kEqual,
  kNotEqual,
  kLess,
  kLessEqual,
  kGreater,
  kGreaterEqual,
  // B -> B
  kLogicalAnd,
  kLogicalOr,
  kLogicalNot,
  kToBool,  // D -> B: is not 0
  kSelect,  // pops condition, then-value, else-value (pushed in this order); pushes one of the two
};
struct ExprCode {
  ExprOp op = ExprOp::kConstant;
  uint32_t a = 0;
  uint32_t b = 0;
};
/// Never empty; leaves one value. Varbit fields have no value of their own: they are not in
/// expressions.
using Expression = std::vector<ExprCode>;

/// What can be written to.
struct FieldTarget {
  uint32_t field;
};
struct StackLastTarget {  // in the last element of a stack
  uint32_t stack;
  uint32_t field_number;
};
struct ElementTarget {  // in an element that is known when the packet is there
  uint32_t stack;
  Expression index;
  uint32_t field_number;
};
using Target = std::variant<FieldTarget, StackLastTarget, ElementTarget>;

/// A header that is named, or an element of a stack.
struct HeaderElement {
  uint32_t stack;
  Expression index;
};
using HeaderRef = std::variant<uint32_t, HeaderElement>;

// --- actions

struct AssignStep {
  Target target;
  Expression value;
};
struct AssignVarbitStep {  // length and bytes
  uint32_t target;         // fields
  uint32_t source;
};
struct AssignHeaderStep {
  HeaderRef target, source;
};
struct AssignStackStep {  // element by element, and the next index
  uint32_t target, source;
};
struct AssignUnionStep {  // member by member
  uint32_t target, source;
};
struct AssignUnionStackStep {
  uint32_t target, source;
};
struct AddHeaderStep {
  HeaderRef header;
};
struct RemoveHeaderStep {
  HeaderRef header;
};
struct PushStep {
  uint32_t stack;
  uint32_t count;
};
struct PopStep {
  uint32_t stack;
  uint32_t count;
};
struct MarkToDropStep {
  uint32_t egress_spec;               // the field, of the struct that the program names
  std::optional<uint32_t> mcast_grp;  // its field
};
struct JumpStep {
  uint32_t step;  // of the same action; the number of its steps is the end
};
struct JumpIfZeroStep {
  Expression condition;
  uint32_t step;
};
struct ExitStep {};
struct HashStep {
  Target target;
  Expression base;
  uint32_t calculation;
  Expression max;  // 0 acts as 1
};
struct RandomStep {
  Target target;
  Expression low, high;  // both included
};
struct RegisterReadStep {
  Target target;
  uint32_t reg;
  Expression index;
};
struct RegisterWriteStep {
  uint32_t reg;
  Expression index, value;
};
struct CountStep {
  uint32_t counter;
  Expression index;
};
struct ExecuteMeterStep {
  uint32_t meter;
  Expression index;
  Target target;
};
struct DigestStep {
  uint32_t learn;  // index into Machine::learns
};
struct CloneStep {
  bool egress;  // clone_egress_pkt_to_egress, else clone_ingress_pkt_to_egress
  Expression session;
  std::optional<uint32_t> field_list;  // empty: keeps nothing
};
struct ResubmitStep {
  std::optional<uint32_t> field_list;
};
struct RecirculateStep {
  std::optional<uint32_t> field_list;
};
struct TruncateStep {
  Expression bytes;
};
struct LogStep {
  std::string format;
  std::vector<Expression> values;
};
struct AssertStep {  // counted where it is false
  Expression condition;
};

using MachineStep =
    std::variant<AssignStep, AssignVarbitStep, AssignHeaderStep, AssignStackStep, AssignUnionStep,
                 AssignUnionStackStep, AddHeaderStep, RemoveHeaderStep, PushStep, PopStep,
                 MarkToDropStep, JumpStep, JumpIfZeroStep, ExitStep, HashStep, RandomStep,
                 RegisterReadStep, RegisterWriteStep, CountStep, ExecuteMeterStep, DigestStep,
                 CloneStep, ResubmitStep, RecirculateStep, TruncateStep, LogStep, AssertStep>;

struct MachineAction {
  std::string name;
  std::vector<uint32_t> param_widths;  // bits
  std::vector<MachineStep> steps;
  std::vector<SourcePlace> places;  // as steps
};

// --- parser

struct ExtractHeader {
  uint32_t header;
};
struct ExtractNext {  // the next element of a stack
  uint32_t stack;
};
struct ExtractUnionNext {  // a member of the next element of a union stack
  uint32_t stack;
  uint32_t member;
};
struct Extract {
  std::variant<ExtractHeader, ExtractNext, ExtractUnionNext> what;
  std::optional<Expression> varbit_bits;  // length of the varbit
};
struct Verify {
  Expression condition, error;
};
struct Advance {
  Expression bits;
};
/// The steps of an action that may stand here have no parameters, jumps or exit.
using ParserOp = std::variant<Extract, Verify, Advance, MachineStep>;

/// The values of a transition stand one after the other, each in whole bytes with zeros in front.
struct KeyPart {
  Expression value;
  uint32_t width = 0;  // bits
};
struct Transition {
  enum class Kind : uint8_t { kDefault, kValue, kValueSet };
  Kind kind = Kind::kDefault;
  std::vector<uint8_t> value, mask;  // kValue; mask: all ones where the program has none
  uint32_t value_set = 0;            // kValueSet
  std::optional<uint32_t> next;      // empty: the parser ends
};
struct ParserState {
  std::string name;
  std::vector<ParserOp> ops;
  std::vector<KeyPart> key;
  std::vector<Transition> transitions;  // the first that matches is taken
  SourcePlace place;
};
struct ValueSet {
  std::string name;
  std::vector<uint32_t> widths;  // bits of each component, known from the states that use it
  uint32_t compressed_width = 0;
  uint32_t size = 0;
};

// --- control flow

/// One action of a table, as that table runs it. Tables have copies with other bodies.
struct TableAction {
  uint32_t action = 0;           // index into Machine::actions
  std::optional<uint32_t> next;  // node after it, where the table does not go by hit and miss
};

/// Applies a table of the program.
struct TableNode {
  uint32_t table = 0;  // index into Program::tables
  /// As Table::key: where each value comes from.
  std::vector<Expression> key;
  /// As Table::key: laid over the packet's value first; empty: none.
  std::vector<std::vector<uint8_t>> key_masks;
  /// As Table::actions.
  std::vector<TableAction> actions;
  bool by_hit = false;                      // the next node goes by hit and miss
  std::optional<uint32_t> on_hit, on_miss;  // by_hit
  std::optional<uint32_t> base_next;        // where no action ran
  std::optional<uint32_t> direct_counter;   // index into Program::tables
  std::optional<uint32_t> direct_meter;     // index into Machine::meters
  std::optional<uint32_t> selector;         // the calculation that chooses a group's member
};

/// Runs an action with fixed parameters: a table without a key that only the compiler knows.
struct CallNode {
  std::optional<uint32_t> action;            // index into Machine::actions
  std::vector<std::vector<uint8_t>> params;  // each in whole bytes
  std::optional<uint32_t> next;
};

struct ConditionNode {
  Expression condition;
  std::optional<uint32_t> on_true, on_false;
};

struct MachineNode {
  std::string name;
  std::variant<TableNode, CallNode, ConditionNode> node;
  SourcePlace place;
};

// --- calculations

enum class HashAlgorithm : uint8_t { kCsum16, kXor16, kCrc16, kCrc32, kIdentity, kRandom };

struct PayloadInput {};
struct HeaderInput {
  uint32_t header;
};
struct FieldInput {
  uint32_t field;  // left out where its header is invalid
};
struct ConstantInput {
  Number value;
  uint32_t width;  // bits
};
struct Calculation {
  std::string name;
  HashAlgorithm algorithm = HashAlgorithm::kCsum16;
  std::vector<std::variant<FieldInput, ConstantInput, HeaderInput, PayloadInput>> inputs;
};

struct Checksum {
  std::string name;
  uint32_t target = 0;  // field
  uint32_t calculation = 0;
  bool verify = false, update = false;
  std::optional<Expression> condition;  // empty: always
};

// --- what stays from packet to packet

struct MachineRegister {
  std::string name;
  uint32_t size = 0;
  uint32_t width = 0;  // bits
};
struct MachineMeter {
  std::string name;
  bool counts_bytes = false;      // else packets
  uint32_t size = 0;              // cells; of a direct one, the entries of its table
  std::optional<uint32_t> table;  // direct: index into Program::tables
  std::optional<Target> result;   // direct: where the colour goes
};
struct MachineCounter {
  std::string name;
  uint32_t table = 0;  // index into Program::tables, a counter table
};
/// What a digest consists of; as Program::learns.
struct MachineLearn {
  std::vector<uint32_t> fields;
};
/// Fields that a clone, a resubmitted or a recirculated packet keeps.
struct FieldList {
  std::string name;
  std::vector<uint32_t> fields;
};

/// Fields that the machine itself reads or writes; empty where the program has none such.
struct StandardFields {
  std::optional<uint32_t> ingress_port, egress_spec, egress_port, instance_type, packet_length,
      ingress_global_timestamp, egress_global_timestamp, mcast_grp, egress_rid, checksum_error,
      parser_error;
  uint32_t header = 0;  // standard_metadata itself
};

/// The program's numbers of the errors that the parser itself finds.
struct ParserErrors {
  uint32_t no_error = 0, packet_too_short = 1, no_match = 2, stack_out_of_bounds = 3,
           header_too_short = 4, parser_timeout = 5, parser_invalid_argument = 6;
  std::vector<std::pair<std::string, uint32_t>> names;  // of all errors
};

struct Machine {
  std::vector<MachineField> fields;
  std::vector<MachineHeader> headers;
  std::vector<HeaderStack> stacks;
  std::vector<HeaderUnion> unions;
  std::vector<UnionStack> union_stacks;
  std::vector<Number> constants;

  std::vector<ParserState> states;
  std::optional<uint32_t> first_state;
  std::vector<ValueSet> value_sets;
  ParserErrors errors;

  std::vector<MachineAction> actions;
  std::vector<MachineNode> nodes;           // of both pipelines; none follows itself
  std::optional<uint32_t> ingress, egress;  // first node of each

  std::vector<Calculation> calculations;
  std::vector<Checksum> checksums;  // in the order in which they are verified and updated
  std::vector<uint32_t> deparser;   // headers in the order in which they leave

  std::vector<MachineRegister> registers;
  std::vector<MachineMeter> meters;
  std::vector<MachineCounter> counters;
  std::vector<MachineLearn> learns;  // as Program::learns
  std::vector<FieldList> field_lists;
  StandardFields standard;
};

}  // namespace jxmodel
