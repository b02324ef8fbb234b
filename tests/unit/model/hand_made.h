// Programs made by hand, for what no description of ours says.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "model/program/layout.h"

namespace jxmodeltest {

constexpr jx_rt_key_match_type_t kExact = JX_RT_MATCH_EXACT, kTernary = JX_RT_MATCH_TERNARY,
                                 kRange = JX_RT_MATCH_RANGE, kLpm = JX_RT_MATCH_LPM,
                                 kOptional = JX_RT_MATCH_OPTIONAL;

/// A program in the making. What the functions return are indices.
class HandMade {
 public:
  explicit HandMade(const std::string& name) { unpacked_.program.name = name; }

  /// An action with parameters of these widths.
  uint32_t action(const std::string& name, const std::vector<uint32_t>& widths = {});

  struct Field {
    jx_rt_key_match_type_t match;
    uint32_t width;
  };
  /// A match table with actions of its own.
  uint32_t table(const std::string& name, const std::vector<Field>& key, uint32_t size,
                 const std::vector<uint32_t>& actions);
  /// A match table whose entries refer to members; with a selector also to groups.
  uint32_t indirect(const std::string& name, const std::vector<Field>& key, uint32_t members,
                    std::optional<uint32_t> selector = std::nullopt);
  uint32_t members(const std::string& name, uint32_t size, const std::vector<uint32_t>& actions);
  uint32_t selector(const std::string& name, uint32_t size, uint32_t members, uint32_t max_members);
  /// The counters of a table's entries.
  uint32_t directCounter(const std::string& name, uint32_t table);
  /// A learn object with fields of these widths.
  uint32_t learn(const std::string& name, const std::vector<uint32_t>& widths);

  /// An entry that the table has from the start.
  void entry(uint32_t table, std::vector<jxmodel::KeyValue> key, uint32_t action,
             std::vector<uint8_t> params = {}, uint32_t priority = 0);
  jxmodel::Param& param(uint32_t action, size_t position) {
    return unpacked_.program.actions[action].params[position];
  }
  jxmodel::Table& operator[](uint32_t table) { return unpacked_.program.tables[table]; }

  /// The program, which has to be a right one.
  std::shared_ptr<const jxmodel::Program> make();

 private:
  uint32_t add(jxmodel::Table table);

  jxmodel::UnpackedProgram unpacked_;
};

/// Values of an entry's key fields.
jxmodel::KeyValue is(std::vector<uint8_t> value);
jxmodel::KeyValue under(std::vector<uint8_t> value, std::vector<uint8_t> mask);

}  // namespace jxmodeltest
