// Kinds of tables as messages of the control service name them.
#pragma once

#include "jxsdk/rt.h"
#include "switch.pb.h"

namespace jxmodel::control {

inline jx::control::v1::TableKind kindOf(jx_rt_table_type_t type) {
  namespace pb = jx::control::v1;
  switch (type) {
    case JX_RT_TABLE_MATCH_DIRECT:
      return pb::TABLE_KIND_MATCH_DIRECT;
    case JX_RT_TABLE_MATCH_ACTION_DATA:
      return pb::TABLE_KIND_MATCH_ACTION_DATA;
    case JX_RT_TABLE_MATCH_SELECTOR:
      return pb::TABLE_KIND_MATCH_SELECTOR;
    case JX_RT_TABLE_ACTION_DATA:
      return pb::TABLE_KIND_ACTION_DATA;
    case JX_RT_TABLE_SELECTOR:
      return pb::TABLE_KIND_SELECTOR;
    case JX_RT_TABLE_COUNTER:
      return pb::TABLE_KIND_COUNTER;
  }
  return pb::TABLE_KIND_UNSPECIFIED;
}

}  // namespace jxmodel::control
