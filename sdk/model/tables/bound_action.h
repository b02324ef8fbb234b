// An action with its parameters, and the immutable record in which tables keep one.
#pragma once

#include <cstdint>
#include <cstring>
#include <new>

#include "model/base/read_copy_update.h"
#include "model/program/program.h"

namespace jxmodel {

/// An action of a program and its packed parameters.
struct BoundAction {
  const Action* action = nullptr;
  const uint8_t* params = nullptr;  // action->param_bytes of them
};

/// The most parameter bytes that an action of the table has.
uint32_t maxParamBytes(const Program& program, const Table& table);

/// A copy of an action's parameters behind a pointer to the action. Never changed: a reader that
/// has it has an action and parameters that belong together.
class ActionRecord {
 public:
  static const ActionRecord* make(const BoundAction& bound) {
    const size_t bytes = bound.action->param_bytes;
    void* const place = ::operator new(sizeof(ActionRecord) + bytes);
    auto* const record = new (place) ActionRecord(bound.action);
    if (bytes != 0) std::memcpy(record + 1, bound.params, bytes);
    return record;
  }
  static void destroy(const ActionRecord* record) {
    ::operator delete(const_cast<ActionRecord*>(record));
  }
  /// Destroys it when no reader can have it any more; null is nothing.
  static void retire(Reclaimer* reclaimer, const ActionRecord* record) {
    if (record == nullptr) return;
    const auto action = [](void* owner, uint64_t) { destroy(static_cast<ActionRecord*>(owner)); };
    defer(reclaimer, action, const_cast<ActionRecord*>(record), 0);
  }

  BoundAction bound() const { return {action_, reinterpret_cast<const uint8_t*>(this + 1)}; }

 private:
  explicit ActionRecord(const Action* action) : action_(action) {}
  const Action* action_;
  // the packed parameters follow
};

}  // namespace jxmodel
