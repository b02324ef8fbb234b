// Packet tests as text, one command a line: what the commands are, and how they are read. Knows
// nothing of devices and programs. The commands that set something up are also the language of
// `slice-agent --configure` and of `switchctl set`.
//
//   packet PORT HEX...              one packet in; blanks in HEX mean nothing
//   expect PORT HEX... [$]          one packet out; * any digit; $ nothing may follow
//   expect PORT                     one packet out or more, of any content
//   no_packet | wait | remove all
//   add TABLE [PRIORITY] KEY:VALUE... ACTION(PARAM:VALUE, ...) [= ID]
//   setdefault TABLE ACTION(PARAM:VALUE, ...)
//   member PROFILE ID ACTION(PARAM:VALUE, ...)
//   group PROFILE ID MEMBER...
//   check_counter NAME(INDEX) [packets|bytes ==|!=|<|<=|>|>= N]
//   mirroring_add SESSION PORT | mirroring_add_mc SESSION GROUP
//   mirroring_delete SESSION | mirroring_get SESSION
//   mc_mgrp_create GROUP | mc_mgrp_delete GROUP
//   mc_node_create RID PORT... | mc_node_update NODE PORT... | mc_node_associate GROUP NODE
//   counter_read NAME INDEX | counter_write NAME INDEX PACKETS BYTES
//   register_read NAME INDEX | register_write NAME INDEX VALUE | register_reset NAME
//   meter_get_rates NAME INDEX | meter_set_rates NAME INDEX RATE:BURST RATE:BURST
//   meter_array_set_rates NAME RATE:BURST RATE:BURST
//   vset_add NAME VALUE [&&& MASK] | vset_remove NAME VALUE [&&& MASK]
//
// In place of an action with parameters stands member(ID) or group(ID) where entries refer to such.
// Names may be quoted. Numbers are decimal, 0x or 0b. # begins a comment.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace stf {

/// What is wrong with one line, in a line for people.
class Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Values stay as they are written: what they mean depends on the field.
struct KeyValue {
  enum class Form : uint8_t { kPlain, kPrefix, kRange, kMask };
  std::string name;
  Form form = Form::kPlain;
  std::string value;
  std::string second;   // kRange: the end; kMask: the mask
  uint32_t prefix = 0;  // kPrefix: bits
};

struct Argument {
  std::string name, value;
};

/// What an entry does.
struct Call {
  std::string action;  // empty for a reference
  std::vector<Argument> arguments;
  std::optional<uint32_t> member, group;
};

struct PacketIn {
  uint32_t port = 0;
  std::string digits;
};
struct Expect {
  uint32_t port = 0;
  std::optional<std::string> digits;  // empty: any packets
  bool whole = false;                 // nothing may follow
};
struct Pause {};  // no_packet
struct Wait {};
struct RemoveAll {};
struct Add {
  std::string table;
  std::optional<uint32_t> priority;
  std::vector<KeyValue> key;
  Call call;
  std::string id;
};
struct SetDefault {
  std::string table;
  Call call;
};
struct AddMember {
  std::string profile;
  uint32_t id = 0;
  Call call;
};
struct AddGroup {
  std::string profile;
  uint32_t id = 0;
  std::vector<uint32_t> members;
};
struct CheckCounter {
  enum class Test : uint8_t { kEqual, kNotEqual, kLess, kLessEqual, kGreater, kGreaterEqual };
  std::string name;
  std::string index;  // a number, or the id of an entry
  struct Condition {
    bool bytes = false;  // else packets
    Test test = Test::kEqual;
    uint64_t value = 0;
  };
  std::optional<Condition> condition;
};
struct SetSession {
  uint32_t session = 0;
  std::optional<uint32_t> port, group;
};
struct DeleteSession {
  uint32_t session = 0;
};
struct GetSession {
  uint32_t session = 0;
};
struct CreateGroup {
  uint32_t group = 0;
};
struct DeleteGroup {
  uint32_t group = 0;
};
struct CreateNode {
  uint32_t rid = 0;
  std::vector<uint32_t> ports;
};
struct UpdateNode {
  uint32_t node = 0;
  std::vector<uint32_t> ports;
};
struct Associate {
  uint32_t group = 0;
  uint32_t node = 0;
};
struct ReadCounter {
  std::string name;
  uint32_t index = 0;
};
struct WriteCounter {
  std::string name;
  uint32_t index = 0;
  uint64_t packets = 0, bytes = 0;
};
struct ReadRegister {
  std::string name;
  uint32_t index = 0;
};
struct WriteRegister {
  std::string name;
  uint32_t index = 0;
  std::string value;
};
struct ResetRegister {
  std::string name;
};
struct ReadMeter {
  std::string name;
  uint32_t index = 0;
};
struct SetMeter {
  struct Rate {
    double per_microsecond = 0;  // packets or bytes
    uint64_t burst = 0;
  };
  std::string name;
  std::optional<uint32_t> index;  // empty: all cells
  Rate committed, peak;
};
struct ChangeValueSet {
  std::string name;
  std::string value;
  std::string mask;  // empty: all ones
  bool remove = false;
};

using Command =
    std::variant<PacketIn, Expect, Pause, Wait, RemoveAll, Add, SetDefault, AddMember, AddGroup,
                 CheckCounter, SetSession, DeleteSession, GetSession, CreateGroup, DeleteGroup,
                 CreateNode, UpdateNode, Associate, ReadCounter, WriteCounter, ReadRegister,
                 WriteRegister, ResetRegister, ReadMeter, SetMeter, ChangeValueSet>;

struct Line {
  uint32_t number = 0;  // in the file, from 1 on
  Command command;
};

/// One line; empty where it is blank or a comment. Throws Error.
std::optional<Command> parseLine(std::string_view text);

/// All lines of a text. Throws Error, whose text begins with "NAME:LINE: ".
std::vector<Line> parseText(std::string_view text, const std::string& name);

/// As parseText, of a file. Throws Error also where it cannot be read.
std::vector<Line> parseFile(const std::string& name);

/// The bytes of an even number of hexadecimal digits.
std::string bytesOfDigits(const std::string& digits);

/// A number of up to 64 bits, decimal, 0x or 0b. Throws Error, which calls it `what`.
uint64_t parseNumber(const std::string& text, const std::string& what, uint64_t limit = UINT64_MAX);

}  // namespace stf
