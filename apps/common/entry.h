// One line of a dump: what a program shows of one entry of a table. Programs that look at different
// devices fill it from different sources and write it the same, so that dumps can be compared byte
// for byte.
//
// As JSON, an object a line, members in this order, left out where they do not apply:
//   {"handle":7,"key":{"ipv4.dst":"10.0.0.0/8"},"priority":3,"action":"set_nexthop",
//    "params":{"port":"3"},"member":1,"group":2,"max":8,"members":[{"member":1,"active":true}],
//    "packets":1,"bytes":64,"ttl":5000}
//   {"default":true,"action":...}     the default entry, without handle and key
//   {"fallback":true,"member":1}      a selector's fallback member
// Values of fields and parameters are strings, as value.h writes them: a JSON number cannot hold
// all of them, and a reader need not know which. Handles, ids, priorities, times (ms) and counters
// are numbers.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "value.h"

namespace jexapps {

enum class EntryKind : uint8_t { kEntry, kDefault, kFallback };

struct KeyFieldView {
  FieldRef field;
  jx_rt_key_match_type_t kind = JX_RT_MATCH_EXACT;
  Match match;
};

struct ParamView {
  FieldRef field;
  Bytes value;
};

struct GroupMember {
  uint32_t member = 0;
  bool active = false;
};

struct CounterValues {
  uint64_t packets = 0;
  uint64_t bytes = 0;
};

/// Names are views: they belong to whoever filled them in and have to live as long as this does.
struct EntryView {
  EntryKind kind = EntryKind::kEntry;
  uint32_t handle = 0;
  std::vector<KeyFieldView> key;  // in the table's order
  std::optional<uint32_t> priority;
  std::string_view action;  // empty: none
  std::vector<ParamView> params;
  std::optional<uint32_t> member;
  std::optional<uint32_t> group;
  std::optional<uint32_t> max_members;  // groups only; a group shows its members, even if none
  std::vector<GroupMember> members;     // shown in order of their ids
  std::optional<CounterValues> counters;
  std::optional<uint32_t> ttl_ms;
};

/// Append the entry without an end of line.
void appendJson(const EntryView& entry, std::string* out);
void appendText(const EntryView& entry, std::string* out);

/// Appends `text` as a JSON string, quoted and escaped.
void appendJsonString(std::string_view text, std::string* out);

/// Bytes that order the lines of one table's dump: entries by their packed key, then the default
/// entry, then the fallback. No two lines of a dump have the same.
void appendSortKey(const EntryView& entry, std::string* out);

enum class DumpFormat : uint8_t { kText, kJson };

/// Gathers the lines of one table's dump and gives them back sorted. Keeps formatted lines, not
/// views: about 150 bytes for a route.
class Dump {
 public:
  explicit Dump(DumpFormat format) : format_(format) {}

  void add(const EntryView& entry);

  /// Entries added, without default and fallback.
  uint64_t entries() const { return entries_; }

  /// Sorts, then hands out the lines in large pieces that end with an end of line.
  void write(const std::function<void(std::string_view piece)>& sink);

 private:
  struct Line {
    uint64_t begin;       // in text_: sort key, then line
    uint32_t key_length;  // bytes
    uint32_t length;      // bytes of the line, with its end
  };
  DumpFormat format_;
  uint64_t entries_ = 0;
  std::string text_;
  std::vector<Line> lines_;
};

}  // namespace jexapps
