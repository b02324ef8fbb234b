// What packets find in the tables of one device.
#pragma once

#include <atomic>
#include <cstdint>

#include "model/base/mutex.h"
#include "model/tables/table_state.h"

namespace jxmodel {

/// Thread safety: packets call this in a ReadSection. A look-up waits for the device's mutex only
/// where the table kept changing meanwhile, and is counted then.
class TableReader {
 public:
  TableReader(Mutex& device_mutex, std::atomic<uint64_t>& locked_lookups)
      : mutex_(device_mutex), locked_lookups_(locked_lookups) {}

  /// `values` are packet values; see KeyCodec.
  MatchTable::Applied lookUp(const MatchTable& table, const uint8_t* values) const {
    MatchTable::Applied applied;
    if (table.tryApply(values, &applied)) return applied;
    locked_lookups_.fetch_add(1, std::memory_order_relaxed);
    const MutexLock lock(mutex_);
    return table.apply(values);
  }

  SelectorTable::Choice choose(const SelectorTable& groups, uint32_t group, uint64_t hash) const {
    SelectorTable::Choice choice;
    if (groups.tryChoose(group, hash, &choice)) return choice;
    locked_lookups_.fetch_add(1, std::memory_order_relaxed);
    const MutexLock lock(mutex_);
    return groups.choose(group, hash);
  }

  /// What a packet runs of what a look-up found.
  struct Found {
    BoundAction action;                            // none: nothing is run
    uint32_t member_handle = 0, group_handle = 0;  // 0 where there is none
    bool no_member = false;  // a group without an active member, and no fallback
  };
  /// `default_action` is the description's, null if it has none; `hash()` is called where a group
  /// chooses by it.
  template <typename Hash>
  Found actionOf(const TableState& state, const MatchTable::Applied& applied,
                 const ActionCall* default_action, Hash hash) const {
    Found found;
    if (applied.slot == kNoSlot) {
      if (default_action == nullptr) return found;
      found.action = {&state.program->actions[default_action->action],
                      default_action->params.data()};
      return found;
    }
    if (applied.result.kind == MatchResult::Kind::kAction) {
      found.action = applied.result.action;
      return found;
    }
    uint32_t member = applied.result.slot;
    if (applied.result.kind == MatchResult::Kind::kGroup) {
      const SelectorTable& groups = *state.group_state->groups;
      const SelectorTable::Choice choice = choose(groups, applied.result.slot, hash());
      found.group_handle = choice.group_handle;
      member = choice.member;
      found.no_member = member == kNoSlot;
      if (found.no_member) return found;
    }
    const ActionDataTable& members = *state.member_state->members;
    found.member_handle = members.handleOf(member);
    found.action = members.actionOf(member);
    return found;
  }

 private:
  Mutex& mutex_;
  std::atomic<uint64_t>& locked_lookups_;
};

/// Counts the hit of an entry by a packet of `bytes` bytes, and keeps the entry from ageing out.
/// `now()` is the packet's time.
template <typename Now>
void noteHit(const TableState& state, uint32_t slot, uint32_t bytes, Now now) {
  if (state.direct_counters != nullptr) {
    state.direct_counters->count(state.directIndexOf(slot), bytes);
  }
  if (!state.table->idle_timeout) return;
  if (state.match->hit(slot, now()) && state.aging != nullptr) state.aging->woken(slot);
}

}  // namespace jxmodel
