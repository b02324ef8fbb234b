// The hook that every SDK entry begins with, so that faults (jxmodel/faults.h) can be armed on it.
//
// A plain function that goes through a method of the same meaning passes both hooks: a fault armed
// on the method hits it too.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string_view>

#include "jxmodel/faults.h"

namespace jxmodel::fault {

/// What the entry has to do about this call.
struct Hit {
  enum class Kind { kNone, kStatus, kNull, kCount };
  Kind kind = Kind::kNone;
  uint32_t value = 0;                  // the status, the count
  std::chrono::milliseconds delay{0};  // has passed already, unless it was asked for

  bool isStatus() const { return kind == Kind::kStatus; }
  bool isNull() const { return kind == Kind::kNull; }
  bool isCount() const { return kind == Kind::kCount; }
  jx_status_t status() const { return static_cast<jx_status_t>(value); }
};

extern std::atomic<bool> any_armed;

/// Counts one call of the entry and looks for faults that hit it; `entry` has to be one of
/// jx_model_fault_entries().
Hit find(const char* entry);
/// The same; a delay passes.
Hit hit(const char* entry);

/// The same, for next to nothing as long as no fault is armed.
inline Hit check(const char* entry) {
  if (__builtin_expect(any_armed.load(std::memory_order_relaxed), 0)) return hit(entry);
  return {};
}

/// For an entry that starts something: leaves the delay to it, for that which it starts.
inline Hit checkWithoutWaiting(const char* entry) {
  if (__builtin_expect(any_armed.load(std::memory_order_relaxed), 0)) return find(entry);
  return {};
}

/// What an entry can be made to do, beside being late.
enum EffectSet : uint8_t { kDelayOnly = 0, kStatusEffect = 1, kNullEffect = 2, kCountEffect = 4 };
struct Entry {
  const char* name;
  uint8_t effects;  // of EffectSet
};
/// All entries; `*count` of them.
const Entry* entries(size_t* count);

/// One fault of an entry; see jx_model_fault_arm.
struct Fault {
  uint64_t nth;  // counted from 1; 0 = every call
  jx_model_fault_effect_t effect;
  uint32_t value;
};
/// JX_OBJECT_NOT_FOUND: there is no such entry; JX_INVALID_ARGUMENTS: it cannot have this effect.
jx_status_t arm(std::string_view entry, const Fault& fault);
/// Disarms all faults and forgets all counts.
void clear();
/// Calls of the entry since a fault was armed on it.
uint64_t calls(std::string_view entry);

}  // namespace jxmodel::fault

/// Begins an entry that returns a status.
#define JXMODEL_ENTRY(name)                                \
  if (const auto fault_hit_ = jxmodel::fault::check(name); \
      __builtin_expect(fault_hit_.isStatus(), 0))          \
  return fault_hit_.status()

/// Begins an entry that returns a status and hands a pointer out through `out`.
#define JXMODEL_ENTRY_OUT(name, out)                                              \
  if (const auto fault_hit_ = jxmodel::fault::check(name);                        \
      __builtin_expect(fault_hit_.kind != jxmodel::fault::Hit::Kind::kNone, 0)) { \
    if (fault_hit_.isStatus()) return fault_hit_.status();                        \
    *(out) = nullptr;                                                             \
    return JX_SUCCESS;                                                            \
  }                                                                               \
  static_assert(true, "takes the semicolon")
