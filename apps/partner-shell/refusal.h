// Why the SDK refused an operation on a table, in terms of what the command named.
#pragma once

#include <optional>
#include <string>

#include "jxsdk/rt.hpp"
#include "shell.h"
#include "table.h"

namespace jexapps {

/// One operation on a table, as far as a refusal of it names things.
struct Operation {
  enum class Kind : uint8_t {
    kEntry,       // an entry, a member or a group: has a key
    kDefault,     // the default entry
    kFallback,    // a selector's fallback member
    kMembership,  // one member of one group
  };
  const TableFacts& table;
  Kind kind = Kind::kEntry;
  const jxrt::JxRtTableKey* key = nullptr;    // kEntry only
  const jxrt::JxRtTableData* data = nullptr;  // null: the operation has none
  std::optional<uint32_t> group = {};         // kMembership only
  std::optional<uint32_t> member = {};        // kMembership, and kFallback when one is set
};

/// The reason for `status`, which is no success: the thing that is missing, there already, full or
/// in use, found by asking the tables; the SDK's text where the status says no more.
std::string refusal(const Shell& shell, const Operation& operation, jx_status_t status);

/// Throws CommandError with the refusal unless `status` is success.
void check(const Shell& shell, const Operation& operation, jx_status_t status);

}  // namespace jexapps
