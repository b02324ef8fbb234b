// One value set: values under masks that a parser state's key may match, as operators set them.
//
// Thread safety: calls of writers are serialised by their caller; packets read in a ReadSection.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "model/base/read_copy_update.h"
#include "model/machine/settings.h"

namespace jxmodel {

class ValueSetTable {
 public:
  using Member = MachineSettings::Member;

  ValueSetTable(const ValueSet& description, Reclaimer* reclaimer)
      : description_(description), reclaimer_(reclaimer) {}
  ~ValueSetTable() { delete published_.load(std::memory_order_relaxed); }

  std::string add(const Member& member);
  std::string remove(const Member& member);
  const std::vector<Member>& members() const { return members_; }

  /// Whether a key, each component in whole bytes, is in the set.
  bool has(const uint8_t* key) const;

 private:
  std::string refusal(const Member& member) const;
  std::vector<uint8_t> padded(const std::vector<uint8_t>& compressed) const;
  void publish();

  const ValueSet& description_;
  Reclaimer* const reclaimer_;
  std::vector<Member> members_;                                 // the writers'
  std::atomic<const std::vector<Member>*> published_{nullptr};  // padded like keys
};

}  // namespace jxmodel
