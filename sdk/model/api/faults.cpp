// The C interface of armed faults: jxmodel/faults.h.
#include "jxmodel/faults.h"

#include <vector>

#include "model/base/faults.h"

namespace fault = jxmodel::fault;

jx_status_t jx_model_fault_arm(const char* entry, uint64_t nth, jx_model_fault_effect_t effect,
                               uint32_t value) {
  if (entry == nullptr) return JX_INVALID_ARGUMENTS;
  return fault::arm(entry, {nth, effect, value});
}

void jx_model_fault_clear(void) { fault::clear(); }

uint64_t jx_model_fault_calls(const char* entry) {
  return entry == nullptr ? 0 : fault::calls(entry);
}

const char* const* jx_model_fault_entries(void) {
  static const auto* const names = [] {
    size_t count = 0;
    const fault::Entry* const all = fault::entries(&count);
    auto* const list = new std::vector<const char*>;
    for (size_t i = 0; i < count; ++i) list->push_back(all[i].name);
    list->push_back(nullptr);
    return list;
  }();
  return names->data();
}
